// dual_head.h: what happens to an open image before it is written: its header is skipped and its boot order set.
#pragma once

namespace ap {

// Moves an image file that stands at its start to the payload, and on a dual-bank device writes the next sequence
// number into the payload's head, so that the boot loader takes the new bank.
void kivraupgrade_more_handle(int fd, const char *mtd_name);

}  // namespace ap
