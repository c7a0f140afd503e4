// online_clients.h: the table of clients that are online, as the kernel module keeps it for readers of text.
#pragma once

#include "platform/host/world.h"

namespace ap::host {

// Writes "/proc/km/km_online_ip" for the clients whose address stands there, where /proc takes new files.
void write_online_file(const World &world);

}  // namespace ap::host
