// The checksum of a 32 MiB image against zlib over the mapped file, and what memory it takes.

#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "applatform/flash.h"
#include "apsupport/upgrade.h"
#include "bench/support/compare.h"
#include "bench/support/quiet.h"
#include "foundation/byte_order.h"
#include "foundation/file_io.h"
#include "upgrade/image_layout.h"

namespace {

constexpr char path[] = "/tmp/bench-image";
constexpr size_t header_size = sizeof(ap::ImageHeader);

void put_image(size_t size) {
    std::vector<uint8_t> bytes(size);
    for (size_t i = header_size; i < size; ++i) bytes[i] = static_cast<uint8_t>(i * 2654435761U >> 13);
    ap::ImageHeader header{};
    const auto length = static_cast<unsigned>(size - header_size);
    ap::store_be32(header.data_crc, static_cast<uint32_t>(crc32(0, bytes.data() + header_size, length)));
    std::memcpy(bytes.data(), &header, header_size);
    const auto file = ap::open_fd(path, O_WRONLY | O_CREAT | O_TRUNC);
    ap::write_full(file.get(), bytes.data(), size);
}

void ImageChecksum(benchmark::State &state) {
    const auto size = static_cast<size_t>(state.range(0));
    put_image(size);
    const bench::Quiet quiet;
    for (auto _ : state) {
        if (check_fw_crc_ap(FW_TYPE_KERNEL_IMAGE, path, 0, static_cast<int>(size)) != 1) state.SkipWithError("wrong");
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

void MappedZlib(benchmark::State &state) {
    const auto size = static_cast<size_t>(state.range(0));
    put_image(size);
    for (auto _ : state) {
        const auto file = ap::open_fd(path, O_RDONLY);
        void *bytes = mmap(nullptr, size, PROT_READ, MAP_PRIVATE, file.get(), 0);
        const auto *payload = static_cast<const unsigned char *>(bytes) + header_size;
        const auto length = static_cast<unsigned>(size - header_size);
        benchmark::DoNotOptimize(crc32(0, payload, length));
        munmap(bytes, size);
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

BENCHMARK(ImageChecksum)->Arg(65)->Arg(4096)->Arg(1 << 20)->Arg(32 << 20)->Unit(benchmark::kMicrosecond);
BENCHMARK(MappedZlib)->Arg(65)->Arg(4096)->Arg(1 << 20)->Arg(32 << 20)->Unit(benchmark::kMicrosecond);

// The largest memory, in KiB, of a child that checks an image of that size.
long memory_for(size_t size) {
    put_image(size);
    std::fflush(stdout);
    const pid_t child = fork();
    if (child == 0) {
        const bench::Quiet quiet;
        _exit(check_fw_crc_ap(FW_TYPE_KERNEL_IMAGE, path, 0, static_cast<int>(size)) == 1 ? 0 : 1);
    }
    int status = 0;
    struct rusage usage = {};
    wait4(child, &status, 0, &usage);
    return usage.ru_maxrss;
}

}  // namespace

int main(int argc, char **argv) {
    put_image(32 << 20);
    const int result = bench::run_and_compare(
        argc, argv,
        {{"checksum of 32 MiB, zlib over the map, us", "ImageChecksum/33554432", "MappedZlib/33554432", 1.3}});
    std::printf("memory: the checksum of 32 MiB takes %ld KiB more than that of 64 bytes\n",
                memory_for(32 << 20) - memory_for(header_size));
    unlink(path);
    return result;
}
