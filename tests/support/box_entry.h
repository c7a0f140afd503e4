// box_entry.h: starts a program again in a device box, so that it never touches the machine that it runs on.
#pragma once

namespace test {

// True when this process runs in a device box.
bool in_box();

// How often the device of this box was restarted, its command with it; 0 outside of a box.
int restarts();

// Returns at once in a box; otherwise replaces this process by the same program, with the same arguments, in a new box.
// Ends the process when no box can be had: with 77, after one line that says why, where the machine allows none.
void enter_box(char **argv);

}  // namespace test
