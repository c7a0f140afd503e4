// capture.cpp: standard output through a temporary file, children by fork, descriptors by /proc/self/fd.

#include "tests/support/capture.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

namespace test {

std::string printed_by(const std::function<void()> &action) {
    std::fflush(stdout);
    FILE *file = std::tmpfile();
    const int saved = dup(STDOUT_FILENO);
    if (file == nullptr || saved < 0 || dup2(fileno(file), STDOUT_FILENO) < 0) throw std::runtime_error("no capture");
    action();
    std::fflush(stdout);
    dup2(saved, STDOUT_FILENO);
    close(saved);
    std::string text;
    std::rewind(file);
    for (int c = std::fgetc(file); c != EOF; c = std::fgetc(file)) text.push_back(static_cast<char>(c));
    std::fclose(file);
    return text;
}

int run_in_child(const std::function<void()> &action) {
    std::fflush(stdout);
    const pid_t child = fork();
    if (child == 0) {
        action();
        std::fflush(stdout);
        _exit(0);
    }
    int status = -1;
    if (child > 0) waitpid(child, &status, 0);
    return status;
}

int open_descriptors() {
    int count = 0;
    for ([[maybe_unused]] const auto &entry : std::filesystem::directory_iterator("/proc/self/fd")) ++count;
    return count - 1;  // without the one that lists the folder
}

std::string read_text(const std::string &path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

void write_text(const std::string &path, const std::string &content) {
    std::error_code ignored;
    std::filesystem::create_directories(std::filesystem::path(path).parent_path(), ignored);
    std::ofstream(path, std::ios::binary) << content;
}

}  // namespace test
