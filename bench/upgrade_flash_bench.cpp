// A whole upgrade of 64 MiB against a bare loop of the same erases and writes on the same virtual flash.

#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <mtd/mtd-user.h>
#include <string>
#include <sys/ioctl.h>
#include <unistd.h>

#include "applatform/config_store.h"
#include "applatform/flash.h"
#include "apsupport/upgrade.h"
#include "bench/support/compare.h"
#include "bench/support/quiet.h"
#include "foundation/file_io.h"
#include "platform/host/flash_boot.h"
#include "platform/host/flash_description.h"
#include "platform/host/flash_model.h"
#include "upgrade/image_layout.h"

namespace {

namespace flash = ap::host::flash;

constexpr char path[] = "/tmp/bench-upload";
constexpr size_t payload_size = 64 << 20, header_size = sizeof(ap::ImageHeader);
constexpr char scenario[] = R"({"flash": {"partitions": [
    {"name": "KernelFS1", "size": 67174400}, {"name": "RootFS1", "size": 65536},
    {"name": "KernelFS2", "size": 67174400}, {"name": "RootFS2", "size": 65536}]}})";

const std::string &image() {
    static const std::string bytes = [] {
        std::string all(header_size + payload_size, '\0');
        for (size_t i = header_size; i < all.size(); ++i) all[i] = static_cast<char>(i * 2654435761U >> 13);
        return all;
    }();
    return bytes;
}

void put_upload() {
    const auto file = ap::open_fd(path, O_WRONLY | O_CREAT | O_TRUNC);
    ap::write_full(file.get(), image().data(), image().size());
}

void Upgrade(benchmark::State &state) {
    const bench::Quiet quiet;
    for (auto _ : state) {
        state.PauseTiming();
        put_upload();
        state.ResumeTiming();
        const int size = static_cast<int>(image().size());
        if (flash_upgradefw_ap(path, 0, size, FW_TYPE_KERNEL_IMAGE) != 1) state.SkipWithError("the upgrade failed");
    }
}

bool erase_and_write(const ap::UniqueFd &upload, const ap::UniqueFd &bank) {
    mtd_info_t info = {};
    ioctl(bank.get(), MEMGETINFO, &info);
    for (uint32_t start = 0; start < image().size(); start += info.erasesize) {
        erase_info_t block = {start, info.erasesize};
        if (ioctl(bank.get(), MEMUNLOCK, &block) < 0 || ioctl(bank.get(), MEMERASE, &block) < 0) return false;
    }
    static char piece[65536];
    lseek(upload.get(), header_size, SEEK_SET);
    for (ssize_t got; (got = read(upload.get(), piece, sizeof piece)) > 0;) {
        if (write(bank.get(), piece, static_cast<size_t>(got)) != got) return false;
    }
    return true;
}

void BareLoop(benchmark::State &state) {
    std::ofstream("/sys/class/mtd/mtd2/flags") << "ro0";  // the upgrades left the bank read-only
    for (auto _ : state) {
        state.PauseTiming();
        put_upload();
        state.ResumeTiming();
        const auto upload = ap::open_fd(path, O_RDONLY);
        const ap::UniqueFd bank(mtd_open("KernelFS2", O_RDWR));
        if (!erase_and_write(upload, bank)) state.SkipWithError("the flash refused");
        unlink(path);
    }
}

// The fastest repetition counts, so that what else runs on the machine weighs less.
BENCHMARK(Upgrade)->Unit(benchmark::kMillisecond)->Iterations(6)->Repetitions(12);
BENCHMARK(BareLoop)->Unit(benchmark::kMillisecond)->Iterations(6)->Repetitions(12);

}  // namespace

// The watchdog's command does not count.
extern "C" int GetValue(const char *, char *) { return 0; }

int main(int argc, char **argv) {
    std::string error;
    std::ofstream(flash::scenario_path) << scenario;
    if (!flash::start_over() || !flash::power_on(error)) return std::printf("no flash: %s\n", error.c_str()), 1;
    return bench::run_and_compare(argc, argv,
                                  {{"upgrade of 64 MiB, erases and writes alone, ms", "Upgrade/iterations:6/repeats:12",
                                    "BareLoop/iterations:6/repeats:12", 1.2}});
}
