// aes_material.cpp: a file of its own, so that both texts stay whole in the read-only data and are never code.

#include "foundation/aes_material.h"

namespace ap::aes {

const unsigned char fixed_key[] = "5f3a9c1e7b2d4068";
const unsigned char fixed_iv[] = "c8e1f02b6d4a9735";

}  // namespace ap::aes
