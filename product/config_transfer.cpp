// config_transfer.cpp: the configuration as one file, for download to and upload from a management program.
//
// The file holds the public settings, a marker line, then the URL settings. An upload is split at the marker into the
// two default files, and the unit's own cloud identity is written behind the uploaded defaults.

#include <cstdio>
#include <string_view>
#include <unistd.h>

#include "applatform/commands.h"
#include "applatform/config_store.h"
#include "apsupport/product.h"
#include "foundation/config_value.h"
#include "foundation/console.h"
#include "foundation/file_io.h"
#include "foundation/trace.h"

namespace ap {

namespace {

constexpr char log_module[] = "common_so";
constexpr char download_path[] = "/etc/tmp.cfg";
constexpr size_t download_path_size = sizeof download_path;  // the caller's buffer holds at least this much
constexpr std::string_view marker = "##the public configure end##";
static_assert(download_path_size == 13 && marker.size() == 28);

constexpr const char *kept_keys[] = {
    "yd.manage.en",  "yd.manage.mode", "yd.manage.status", "yd.cloud.id",
    "yd.project.id", "yd.msgreport",   "yd.bind_status",   "AP_UUID",
};

enum FileType { download = 0, upload = 2 };

int prepare_download(char *path_out) {
    copy_text(path_out, download_path_size, download_path);
    doSystemCmd("cfm show /etc/tmp.cfg");
    doSystemCmd("echo -e \"\\n%s\\n\" >> /etc/tmp.cfg", marker.data());
    doSystemCmd("cfm urlshow /etc/tmp_url.cfg");
    doSystemCmd("cat /etc/tmp_url.cfg >> /etc/tmp.cfg");
    sleep(1);
    return 0;
}

void write_text(FILE *file, std::string_view text) {
    if (!text.empty()) std::fwrite(text.data(), 1, text.size(), file);
}

void write_kept_keys(FILE *file) {
    for (const char *key : kept_keys) std::fprintf(file, "%s=%s\n", key, ConfigValue(key).c_str());
}

// True when everything that was written reached the file.
bool finish(UniqueFile file) {
    const bool written = std::ferror(file.get()) == 0;
    return std::fclose(file.release()) == 0 && written;
}

int take_upload(std::string_view text) {
    UniqueFile defaults = open_file("/webroot/default.cfg", "we");
    UniqueFile url_defaults = open_file("/webroot/default_url.cfg", "we");
    if (!defaults || !url_defaults) return AP_PLATFORM_LOG(2, log_module, "fopen is fail."), -1;

    const size_t at = text.find(marker);
    if (at != std::string_view::npos) {
        write_text(defaults.get(), {text.data(), at});
        write_text(url_defaults.get(), {text.data() + at + marker.size(), text.size() - at - marker.size()});
    }
    write_kept_keys(defaults.get());

    // A half-written default would replace the whole working set, so it is never taken in.
    const bool defaults_whole = finish(std::move(defaults));
    if (!finish(std::move(url_defaults)) || !defaults_whole)
        return AP_PLATFORM_LOG(2, log_module, "write is fail."), -1;
    if (UploadValue() == 0) AP_PLATFORM_LOG(2, log_module, "upload value is fail.");
    return 0;
}

}  // namespace

}  // namespace ap

using namespace ap;

int systool_file_handle(int type, char *buffer, int length) {
    AP_PLATFORM_TRACE(log_module);
    AP_PLATFORM_LOG(5, log_module, "type:%d.", type);
    if (type == FileType::download && buffer != nullptr) return prepare_download(buffer);
    if (type == FileType::upload && buffer != nullptr && length >= 0)
        return take_upload({buffer, strnlen(buffer, static_cast<size_t>(length))});
    return AP_PLATFORM_LOG(2, log_module, "invalid type!"), -1;
}
