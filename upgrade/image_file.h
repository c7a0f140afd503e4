// image_file.h: opening an uploaded image and going to an offset in it.
#pragma once

#include "foundation/file_io.h"

namespace ap {

// Opens an image. A FIFO in its place does not stop the caller: it opens at once and the seek that follows refuses it.
inline UniqueFd open_image(const char *file, int access) { return open_fd(file, access | O_NONBLOCK); }

// Goes to `offset` from the start; false for a negative offset and for what cannot be sought.
inline bool seek_image(const UniqueFd &image, int offset) { return lseek(image.get(), offset, SEEK_SET) >= 0; }

// A file name for a message.
inline const char *shown(const char *text) { return text != nullptr ? text : "(null)"; }

}  // namespace ap
