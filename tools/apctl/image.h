// image.h: what the parts of `apctl image` share.
#pragma once

#include <cjson/cJSON.h>
#include <cstdint>
#include <string>

#include "tools/apctl/command.h"
#include "upgrade/image_layout.h"

namespace apctl::image {

// An image read from a file at an offset. What the file is too short for is zero.
struct Image {
    std::string bytes;  // the whole file
    size_t offset = 0;
    ap::ImageHeader header{};
    ap::DualHead head{};  // of a kernel image's payload

    size_t size() const { return bytes.size() - offset; }  // of the image, its header included
    size_t payload_size() const { return size() > sizeof header ? size() - sizeof header : 0; }
    const uint8_t *payload() const { return reinterpret_cast<const uint8_t *>(bytes.data()) + offset + sizeof header; }
};

// Reads the image that the words name ("FILE", "--offset N" taken out before). False after a message.
bool read_image(const std::string &file, size_t offset, Image &image);

// Takes "OPTION NUMBER" out of the words; a missing option leaves `number`. False, after a message, when it is no
// number that an int can hold.
bool take_number(Words &words, const std::string &option, uint32_t &number);

uint32_t checksum_of(const void *bytes, size_t size);
std::string hex(uint32_t value);  // "0x" and eight digits

void print_json(const cJSON *json);

int make(Words words);
int info(Words words);
int check(Words words);
int flash(Words words);
int banks(Words words);

inline constexpr char verb[] = "image";

}  // namespace apctl::image
