// checksum.cpp: zlib's CRC-32 under the name that the library asks the platform for. It is defined here, over zlib's
// `crc32_z`, so that linking and loading libapplatform.so is enough; zlib's own callers of `crc32` arrive here as well.

#include <zlib.h>

#include "applatform/flash.h"

unsigned long crc32(unsigned long crc, const unsigned char *data, unsigned int length) {
    return crc32_z(crc, data, length);
}
