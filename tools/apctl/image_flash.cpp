// image_flash.cpp: `apctl image check`, `flash` and `banks`: what an upgrade would say, an upgrade watched, and the
// banks.
//
// The library speaks on standard output; the checks run with that turned away, and an upgrade in a child process, whose
// output tells how far it is.

#include <algorithm>
#include <cjson/cJSON.h>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <mtd/mtd-user.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "applatform/flash.h"
#include "apsupport/upgrade.h"
#include "foundation/byte_order.h"
#include "foundation/config_value.h"
#include "foundation/file_io.h"
#include "platform/host/flash_boot.h"
#include "platform/host/flash_model.h"
#include "tools/apctl/image.h"

namespace apctl::image {

namespace {

namespace model = ap::host::flash;

// Standard output goes nowhere while this lives.
class Silence {
public:
    Silence() : saved_(dup(STDOUT_FILENO)) {
        std::fflush(stdout);
        dup2(ap::open_fd("/dev/null", O_WRONLY).get(), STDOUT_FILENO);
    }
    ~Silence() {
        std::fflush(stdout);
        dup2(saved_.get(), STDOUT_FILENO);
    }
    Silence(const Silence &) = delete;
    Silence &operator=(const Silence &) = delete;

private:
    ap::UniqueFd saved_;
};

struct Check {
    const char *name;
    int result;
    bool passed;
    std::string reason;
};

// The partition that an image of that type is for, and what it holds; 0 when it cannot be asked.
std::string partition_of(int type) {
    if (type == FW_TYPE_POLICY_IMAGE) return "Policy";
    if (type == FW_TYPE_FLASH_IMAGE) return "ALL";
    model::BootView view;
    if (!model::look_at_banks(view) || view.running == 0) return get_fw_mtd_name();
    return model::name_of_bank(3 - view.running);
}
uint32_t room_of(const std::string &partition) {
    const ap::UniqueFd fd(mtd_open(partition.c_str(), O_RDONLY));
    mtd_info_t about = {};
    return fd && ioctl(fd.get(), MEMGETINFO, &about) == 0 ? about.size : 0;
}

std::string product_reason(const Image &image) {
    ap::ConfigValue device;
    if (!device.read("fw.profile.type") && !device.read("fw.product.id")) return "this device has no product id";
    return "the image is for " + hex(ap::be32(image.header.product_id)) + ", this device is \"" + device.c_str() + "\"";
}

std::string size_reason(const Image &image, int type) {
    const std::string partition = partition_of(type);
    const uint32_t room = room_of(partition);
    if (room == 0) return "there is no partition \"" + partition + "\"";
    return std::to_string(image.payload_size()) + " bytes behind the header, " + partition + " holds " +
           std::to_string(room);
}

std::string type_reason(const Image &image) {
    return "magic " + hex(ap::be32(image.header.magic)) + ", class " + std::to_string(image.header.firmware_class);
}

std::string checksum_reason(const Image &image) {
    return "the header says " + hex(ap::be32(image.header.data_crc)) + ", the bytes behind it have " +
           hex(checksum_of(image.payload(), image.payload_size()));
}

std::string verdict_reason(int result, int type) {
    if (result == 0) return "accepted";
    const bool is_other_image = type > 0 && type != FW_TYPE_KERNEL_IMAGE;
    return is_other_image ? "only a kernel image can be flashed" : "refused";
}

// Each check that the type allows, and at the end what an upgrade would say.
std::vector<Check> run_checks(const std::string &path, const Image &image) {
    const Silence silence;
    const char *file = path.c_str();
    const int offset = static_cast<int>(image.offset), size = static_cast<int>(image.size());
    int type = check_fw_type_ap(file, offset);
    std::vector<Check> checks{{"type", type, type > 0, type_reason(image)}};
    if (type > 0) {
        const int product = check_fw_valid_ap(type, file, offset);
        const int fits = check_mtd_size_ap(type, file, static_cast<unsigned int>(size));
        const int checksum = check_fw_crc_ap(type, file, offset, size);
        checks.push_back({"product", product, product > 0, product_reason(image)});
        checks.push_back({"size", fits, fits > 0, size_reason(image, type)});
        checks.push_back({"checksum", checksum, checksum > 0, checksum_reason(image)});
    }
    const int all = flash_check_fw_type_and_crc_ap(file, offset, size, &type);
    checks.push_back({"upgrade", all, all == 0, verdict_reason(all, type)});
    return checks;
}

void print_checks(const std::vector<Check> &checks, bool as_json) {
    const ap::UniqueJson json(cJSON_CreateArray());
    std::vector<std::vector<std::string>> rows{{"CHECK", "VERDICT", "RESULT", "WHY"}};
    for (const auto &check : checks) {
        rows.push_back({check.name, check.passed ? "passed" : "failed", std::to_string(check.result), check.reason});
        cJSON *item = cJSON_CreateObject();
        cJSON_AddStringToObject(item, "check", check.name);
        cJSON_AddBoolToObject(item, "passed", check.passed);
        cJSON_AddNumberToObject(item, "result", check.result);
        cJSON_AddStringToObject(item, "reason", check.reason.c_str());
        cJSON_AddItemToArray(json.get(), item);
    }
    if (!as_json) return print_table(rows);
    print_json(json.get());
}

// Draws how far the upgrade is, from what the library prints: erasing is the first half, writing the second.
class Progress {
public:
    explicit Progress(size_t size) : size_(std::max<size_t>(size, 1)), shown_(isatty(STDOUT_FILENO) != 0) {}
    ~Progress() {
        if (shown_ && percent_ >= 0) std::puts("");
    }
    Progress(const Progress &) = delete;
    Progress &operator=(const Progress &) = delete;

    void take(const std::string &printed) {
        for (const char c : printed) {
            if (c != '\r' && c != '\n')
                line_ += c;
            else
                take_line();
        }
    }

private:
    void take_line() {
        if (line_.starts_with("Erasing")) {
            const size_t number = line_.find("-- ");
            if (number != std::string::npos)
                draw("erasing", static_cast<int>(std::strtol(line_.c_str() + number + 3, nullptr, 10) / 2));
        } else if (line_.starts_with("write :")) {
            const auto written = std::strtoull(line_.c_str() + 7, nullptr, 16);
            draw("writing", 50 + static_cast<int>(std::min<uint64_t>(written, size_) * 50 / size_));
        }
        line_.clear();
    }
    void draw(const char *what, int percent) {
        if (!shown_ || percent == percent_) return;
        percent_ = percent;
        constexpr int width = 40;
        const std::string bar(static_cast<size_t>(percent * width / 100), '#');
        std::printf("\r%s [%-*s] %3d %%", what, width, bar.c_str(), percent);
        std::fflush(stdout);
    }

    size_t size_;
    bool shown_;
    int percent_ = -1;
    std::string line_;
};

// Runs the upgrade in a child; its wait status, or -1.
int run_upgrade(const std::string &file, const Image &image) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) return -1;
    ap::UniqueFd from(ends[0]), to(ends[1]);
    const pid_t child = fork();
    if (child < 0) return -1;
    if (child == 0) {
        dup2(to.get(), STDOUT_FILENO);
        dup2(to.get(), STDERR_FILENO);
        const int size = static_cast<int>(image.size());
        const int result = flash_upgradefw_ap(file.c_str(), static_cast<int>(image.offset), size, FW_TYPE_KERNEL_IMAGE);
        std::fflush(stdout);
        _exit(result == 1 ? 0 : 1);
    }
    to.reset();
    Progress progress(image.payload_size());
    char printed[4096];
    for (ssize_t got; (got = ap::retry_interrupted([&] { return read(from.get(), printed, sizeof printed); })) > 0;)
        progress.take({printed, static_cast<size_t>(got)});
    int status = -1;
    waitpid(child, &status, 0);
    return status;
}

// An upgrade deletes what it was given, so it gets a copy.
bool copy_for_upgrade(const Image &image, std::string &path) {
    char name[] = "/tmp/firmware-XXXXXX";
    const ap::UniqueFd file(mkstemp(name));
    path = name;
    if (file && ap::write_full(file.get(), image.bytes.data(), image.bytes.size())) return true;
    std::perror(name);
    unlink(name);
    return false;
}

std::string bank_name(int bank) { return bank == 0 ? "none" : model::name_of_bank(bank); }

int tell_outcome(int status) {
    model::BootView view;
    model::look_at_banks(view);
    const bool is_cut = WIFSIGNALED(status);
    const bool is_done = !is_cut && WIFEXITED(status) && WEXITSTATUS(status) == 0;
    std::printf("%s; the bank that boots next: %s\n",
                is_done  ? "upgraded"
                : is_cut ? "the power was cut"
                         : "the upgrade failed",
                bank_name(view.boots).c_str());
    return is_done ? exit_ok : exit_failed;
}

void print_banks(const model::BootView &view, bool as_json) {
    const ap::UniqueJson json(cJSON_CreateObject());
    cJSON *list = cJSON_AddArrayToObject(json.get(), "banks");
    std::vector<std::vector<std::string>> rows{{"BANK", "STATE", "SEQUENCE", "LENGTH", "CHECKSUM", ""}};
    for (const int number : {1, 2}) {
        const model::Bank &bank = view.banks[static_cast<size_t>(number - 1)];
        const std::string role = std::string(view.running == number ? "running" : "") +
                                 (view.running == number && view.boots == number ? ", " : "") +
                                 (view.boots == number ? "boots next" : "");
        rows.push_back({bank_name(number), text_of(bank.state), hex(bank.sequence), std::to_string(bank.length),
                        hex(bank.checksum), role});
        cJSON *item = cJSON_CreateObject();
        cJSON_AddStringToObject(item, "name", bank_name(number).c_str());
        cJSON_AddStringToObject(item, "state", text_of(bank.state));
        cJSON_AddStringToObject(item, "sequence", hex(bank.sequence).c_str());
        cJSON_AddNumberToObject(item, "length", bank.length);
        cJSON_AddStringToObject(item, "checksum", hex(bank.checksum).c_str());
        cJSON_AddItemToArray(list, item);
    }
    cJSON_AddStringToObject(json.get(), "running", bank_name(view.running).c_str());
    cJSON_AddStringToObject(json.get(), "boots_next", bank_name(view.boots).c_str());
    if (!as_json) return print_table(rows);
    print_json(json.get());
}

bool in_box() { return access("/.apbox", F_OK) == 0; }

}  // namespace

int check(Words words) {
    const bool as_json = take_flag(words, "--json");
    uint32_t offset = 0;
    if (!take_number(words, "--offset", offset)) return exit_usage;
    if (words.size() != 1) return usage_error(verb, "check takes an image's file");
    Image image;
    if (!read_image(words[0], offset, image)) return exit_failed;
    const auto checks = run_checks(words[0], image);
    print_checks(checks, as_json);
    return checks.back().passed ? exit_ok : exit_failed;
}

int flash(Words words) {
    uint32_t offset = 0, cut_at = 0;
    if (!take_number(words, "--offset", offset) || !take_number(words, "--power-cut", cut_at)) return exit_usage;
    if (words.size() != 1) return usage_error(verb, "flash takes an image's file");
    if (!in_box())
        return std::fputs("apctl image flash: only in a device box (apbox run -- ...)\n", stderr), exit_failed;
    Image image;
    std::string copy;
    if (!read_image(words[0], offset, image) || !copy_for_upgrade(image, copy)) return exit_failed;

    const auto checks = run_checks(copy, image);
    if (!checks.back().passed) {
        const auto failed = std::ranges::find(checks, false, &Check::passed);
        std::printf("refused with %d: %s: %s\n", checks.back().result, failed->name, failed->reason.c_str());
        return unlink(copy.c_str()), exit_failed;
    }
    if (cut_at != 0) model::arm({.action = model::Action::cut_power, .nth = cut_at});
    return tell_outcome(run_upgrade(copy, image));
}

int banks(Words words) {
    const bool as_json = take_flag(words, "--json"), init = take_flag(words, "--init");
    if (!words.empty()) return usage_error(verb, "banks takes no file");
    std::string error;
    if (init && !model::power_on(error))
        return std::fprintf(stderr, "apctl image banks: %s\n", error.c_str()), exit_failed;
    model::BootView view;
    if (!model::look_at_banks(view)) {
        std::fputs("apctl image banks: no virtual flash here; it is in a device box (apbox run -- ...)\n", stderr);
        return exit_failed;
    }
    return print_banks(view, as_json), exit_ok;
}

}  // namespace apctl::image
