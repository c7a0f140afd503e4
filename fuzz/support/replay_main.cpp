// replay_main.cpp: runs a fuzz target once over each of its seeds, so that the seeds are ordinary tests without libFuzzer.

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "tests/support/box_entry.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

int main(int argc, char **argv) {
    test::enter_box(argv);
    if (argc != 2) return std::fprintf(stderr, "usage: %s SEED_FOLDER\n", argv[0]), 2;
    int replayed = 0;
    for (const auto &entry : std::filesystem::directory_iterator(argv[1])) {
        std::ifstream file(entry.path(), std::ios::binary);
        const std::string bytes{std::istreambuf_iterator<char>(file), {}};
        std::printf("seed %s\n", entry.path().filename().c_str());
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size());
        ++replayed;
    }
    std::printf("%d seeds replayed\n", replayed);
    return replayed > 0 ? 0 : 1;
}
