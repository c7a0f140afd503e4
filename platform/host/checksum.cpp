// checksum.cpp: zlib's CRC-32 under the name that the library asks the platform for. It is defined here, over zlib's
// `crc32_z`, so that linking and loading libapplatform.so is enough; zlib's own callers of `crc32` arrive here as well.

#include <cstddef>

#include "applatform/flash.h"

// As in zlib.h, which would declare `crc32` a second time.
extern "C" unsigned long crc32_z(unsigned long crc, const unsigned char *data, size_t length);

unsigned long crc32(unsigned long crc, const unsigned char *data, unsigned int length) {
    return crc32_z(crc, data, length);
}
