// private_lines.h: the text lines that access points broadcast in a private information element, and the driver's
// file of those that were heard.
#pragma once

#include "platform/host/world.h"

namespace ap::host {

// After a change of this access point's ports or switch: without its line port it broadcasts nothing and forgets what
// it heard; with it, it hears what is being broadcast.
void follow_ports(World &world);

// Notices who is still broadcasting, drops what is too old, and writes the file.
void collect_lines(World &world);

}  // namespace ap::host
