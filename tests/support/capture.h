// capture.h: what a piece of code prints on standard output, and what it leaves behind: files, children, descriptors.
#pragma once

#include <functional>
#include <string>

namespace test {

// Runs `action` and returns what it, and the commands that it starts, wrote to standard output.
std::string printed_by(const std::function<void()> &action);

// Runs `action` in a forked child and returns the child's wait status; 0 when it came back and exited normally.
int run_in_child(const std::function<void()> &action);

// The number of descriptors that this process has open.
int open_descriptors();

std::string read_text(const std::string &path);                        // empty when there is no such file
void write_text(const std::string &path, const std::string &content);  // makes the folders above it

}  // namespace test
