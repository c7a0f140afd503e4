// aes_material.h: the fixed key and initialisation vector of enciphered configuration files: 16 characters each, as
// bytes.
#pragma once

namespace ap::aes {

extern const unsigned char fixed_key[16 + 1];
extern const unsigned char fixed_iv[16 + 1];

}  // namespace ap::aes
