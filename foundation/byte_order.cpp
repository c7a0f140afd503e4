// byte_order.cpp: the byte order of records that leave the process is the device's own, so nothing is swapped.

#include "apsupport/foundation.h"

uint16_t Swap16(uint16_t value) { return value; }
uint32_t Swap32(uint32_t value) { return value; }
uint64_t Swap64(uint64_t value) { return value; }
