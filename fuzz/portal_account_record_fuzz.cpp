// portal_account_record_fuzz.cpp: any bytes as account records: who is added can log in or is expired, can be removed,
// and no file outside its folder is named.

#include <algorithm>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>

#include "apsupport/portal.h"
#include "fuzz/support/quiet.h"

static void require(bool holds) {
    if (!holds) std::abort();
}

extern "C" {
int do_file_cmd(const char *path, int, const char *, ...) {
    constexpr std::string_view folder = "/mnt/s_brcmnand/mac_web_";
    require(std::string_view(path).starts_with(folder) && std::strchr(path + folder.size(), '/') == nullptr);
    return 0;
}
// The word is plain, or between quotes that it does not leave.
int doSystemCmd(const char *format, ...) {
    char command[512];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(command, sizeof command, format, arguments);
    va_end(arguments);
    const std::string_view word(command + sizeof "rm -fr " - 1);
    require(word.starts_with("/mnt/s_brcmnand/") ? word.find_first_of(" ;&|$`<>()\\\"'\n*?[") == word.npos
                                                 : word.starts_with("'/mnt/s_brcmnand/") && word.ends_with('\''));
    return 0;
}
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz::be_quiet();
    const size_t count = std::min<size_t>(size / sizeof(portal_web_record), 150);
    const std::unique_ptr<portal_web_record[]> records(new portal_web_record[count]);
    if (count != 0) std::memcpy(records.get(), data, count * sizeof(portal_web_record));
    const bool all_added = tpi_ap_portal_add_web_user(static_cast<unsigned int>(count), records.get()) == 0;

    size_t removed = 0;
    for (size_t i = count; i-- > 0;) {  // the newest of a name comes first
        portal_web_request request = {};
        std::memcpy(request.user_name, records[i].user_name, sizeof request.user_name);
        std::memcpy(request.password, records[i].password, sizeof request.password);
        std::memcpy(request.mac, "02:00:00:00:00:01", 18);
        const int answer = tpi_ap_portal_check_web_user(&request);
        const bool is_there = tpi_get_web_state(&request) == 0;
        require(is_there || answer == 12);
        if (answer == 13) require(request.state == 2);
        if (answer == 15) require(request.state == 1);
        tpi_ap_portal_update_web_user(&records[i]);
    }
    for (size_t i = 0; i < count; ++i) {
        portal_web_request request = {};
        std::memcpy(request.user_name, records[i].user_name, sizeof request.user_name);
        while (tpi_ap_portal_del_web_user(&request) == 0) ++removed;
        require(tpi_get_web_state(&request) == 255);
    }
    require(all_added ? removed == count : removed < count || count == 0);
    return 0;
}
