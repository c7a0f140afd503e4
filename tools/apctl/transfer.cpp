// transfer.cpp: `apctl backup`, `apctl restore`, `apctl factory-reset` and `apctl reboot`.

#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>

#include "apsupport/foundation.h"
#include "apsupport/product.h"
#include "foundation/file_io.h"
#include "tools/apctl/command.h"

namespace {

using namespace apctl;

constexpr char marker[] = "##the public configure end##";
constexpr size_t download_path_size = 13;

struct Content {
    ap::HeapPtr<char> text;
    size_t size = 0;
};

bool read_file(const char *path, Content &content) {
    char *text = nullptr;
    if (get_file_content(path, &text, &content.size) == 0) return false;
    content.text.reset(text);
    return content.size < INT_MAX;
}

int fail(const char *verb, const std::string &message) {
    std::fprintf(stderr, "apctl %s: %s\n", verb, message.c_str());
    return exit_failed;
}

// As a whole or not at all: written beside the file, then renamed.
bool write_whole(const std::string &path, const Content &content) {
    const std::string fresh = path + ".new";
    const ap::UniqueFd file = ap::open_fd(fresh.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    if (file && ap::write_full(file.get(), content.text.get(), content.size) && fsync(file.get()) == 0 &&
        rename(fresh.c_str(), path.c_str()) == 0)
        return true;
    const int error = errno;
    unlink(fresh.c_str());
    errno = error;
    return false;
}

// Takes the file that the device prepared for a download.
bool prepare_download(Content &content) {
    std::array<char, download_path_size> path = {};
    return systool_file_handle(0, path.data(), 0) == 0 && read_file(path.data(), content);
}

int run_backup(const Words &words) {
    if (words.size() != 1) return usage_error("backup", "expected one FILE");
    Content content;
    if (!prepare_download(content)) return fail("backup", "the configuration could not be prepared");
    if (!write_whole(words[0], content)) return fail("backup", words[0] + ": " + std::strerror(errno));
    std::printf("%zu bytes in %s\n", content.size, words[0].c_str());
    return exit_ok;
}

// The file's public settings with the URL settings of this unit.
bool keep_url_settings(std::string &text) {
    Content own;
    const size_t at = text.find(marker);
    if (at == std::string::npos || !prepare_download(own)) return false;
    const std::string_view own_text(own.text.get(), own.size);
    const size_t own_at = own_text.find(marker);
    if (own_at == std::string_view::npos) return false;
    text.resize(at);
    text += own_text.substr(own_at);
    return true;
}

int run_restore(const Words &given) {
    Words words = given;
    const bool keep_urls = take_flag(words, "--keep-urls");
    if (words.size() != 1) return usage_error("restore", "expected one FILE");
    Content content;
    if (!read_file(words[0].c_str(), content)) return fail("restore", words[0] + " cannot be read");
    std::string text(content.text.get(), content.size);
    if (text.find(marker) == std::string::npos)
        return fail("restore", words[0] + " is no backup: it has no marker line");
    if (keep_urls && !keep_url_settings(text)) return fail("restore", "this unit's URL settings cannot be read");
    if (systool_file_handle(2, text.data(), static_cast<int>(text.size())) != 0)
        return fail("restore", "the default files cannot be written; nothing was changed");
    if (prod_cfm_commit() == 0) return fail("restore", "taken in, but the commit failed");
    std::printf("%s taken in and committed\n", words[0].c_str());
    return exit_ok;
}

int run_factory_reset(const Words &words) {
    if (!words.empty()) return usage_error("factory-reset", "takes no argument");
    systool_restore_reboot();
    return exit_ok;
}

int run_reboot(const Words &words) {
    if (!words.empty()) return usage_error("reboot", "takes no argument");
    systool_reboot();
    return exit_ok;
}

const Verb backup{"backup", "the configuration as one file",
                  "usage: apctl backup FILE\n\n"
                  "Writes the public settings, a marker line and the URL settings to FILE.\n",
                  run_backup};
const Verb restore{"restore", "takes a backup in",
                   "usage: apctl restore FILE [--keep-urls]\n\n"
                   "Replaces the configuration by a backup's, but for this unit's own cloud identity, and commits it.\n"
                   "--keep-urls keeps this unit's URL settings as well.\n",
                   run_restore};
const Verb factory_reset{"factory-reset", "back to factory values, and a restart",
                         "usage: apctl factory-reset\n\n"
                         "Restores the factory values, commits them and restarts the device.\n",
                         run_factory_reset};
const Verb reboot_verb{"reboot", "restarts the device",
                       "usage: apctl reboot\n\nSyncs the logs and restarts the device.\n", run_reboot};

}  // namespace
