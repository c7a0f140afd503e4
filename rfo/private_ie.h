// private_ie.h: the text line that each access point broadcasts, so that those of the same system find one another.
#pragma once

namespace ap {

// Where the driver takes the own line and gives those of others.
inline constexpr char neighbour_file[] = "/proc/kv_wlan/private_ie/private_ie_98";

// Opens the ports and writes the own line; tries the whole set-up twice. A status code.
int rfo_init();

}  // namespace ap
