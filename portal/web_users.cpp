// web_users.cpp: accounts that log in on the portal page, each on the devices that are bound to it.
//
// 65 buckets by the first character of the user name, new accounts at the head of theirs. One mutex guards the table;
// every exported function holds it for its whole run.

#include "portal/web_users.h"

#include <algorithm>
#include <cstdio>
#include <ctime>

#include "foundation/portal_line.h"
#include "portal/kernel_link.h"

static_assert(sizeof(portal_web_record) == 2 * 4 + 4 + 4 + 32 + 16 + 16 + 16 + 32 + 20 * 18);
static_assert(offsetof(portal_web_record, shared) == 8 && offsetof(portal_web_record, macs) == 128);
static_assert(sizeof(portal_web_request) == 4 + 16 + 16 + 18 + 2 && offsetof(portal_web_request, mac) == 36);

namespace ap {

pthread_mutex_t web_user_mutex = PTHREAD_MUTEX_INITIALIZER;
WebUser *web_users[web_user_buckets];

namespace {

constexpr int failed = 255;
constexpr unsigned int most_records = 150;

enum LogIn { wrong_account = 12, account_expired = 13, not_bound = 14, accepted = 15 };

// The position of a character is its bucket.
constexpr std::string_view first_characters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789._-";
static_assert(first_characters.size() == web_user_buckets);

// Where the pointer to an account stands; null when there is no such account.
WebUser **find_link(std::string_view name) {
    if (name.empty()) return nullptr;
    const size_t bucket = first_characters.find(name.front());
    if (bucket == std::string_view::npos) return nullptr;
    for (WebUser **link = &web_users[bucket]; *link != nullptr; link = &(*link)->next)
        if (field_text((*link)->user_name) == name) return link;
    return nullptr;
}

WebUser *find_user(std::string_view name) {
    WebUser **link = find_link(name);
    return link == nullptr ? nullptr : *link;
}

bool can_be_added(std::string_view name) {
    return !name.empty() && first_characters.find(name.front()) != std::string_view::npos;
}

void push(WebUser *user) {
    WebUser *&head = web_users[first_characters.find(user->user_name[0])];
    user->next = head;
    head = user;
}

WebUser *unlink_user(WebUser **link) {
    WebUser *user = *link;
    *link = user->next;
    return user;
}

// The seconds of a readable date. What the C library cannot hold lies before its range, or beyond it.
uint32_t clamped_seconds(struct tm local) {
    const bool may_lie_beyond = local.tm_year > 1970 - 1900;
    const int64_t seconds = mktime(&local);
    if (seconds < 0) return may_lie_beyond ? UINT32_MAX : 0;
    return seconds > UINT32_MAX ? UINT32_MAX : static_cast<uint32_t>(seconds);
}

// What does not fit into 32 bits never expires; a date that cannot be read has passed.
uint32_t expiry_seconds(const portal_web_record &record) {
    char date[sizeof record.expiry_date + 1];
    copy_text(date, field_text(record.expiry_date));
    int year = 0, month = 0, day = 0, hour = 0, minute = 0;
    // NOLINTNEXTLINE(cert-err34-c): the fields are counted and their values looked at
    const int fields = std::sscanf(date, "%d-%d-%d %d:%d", &year, &month, &day, &hour, &minute);
    AP_PORTAL_DEBUG(portal_source, "format time is :%d-%d-%d %d:%d\n", year, month, day, hour, minute);
    if (fields != 5 || year < 1970 || year > 9999 || month < 1 || month > 12) return 0;

    struct tm local = {};
    local.tm_year = year - 1900;
    local.tm_mon = month - 1;
    local.tm_mday = day;
    local.tm_hour = hour;
    local.tm_min = minute;
    local.tm_isdst = -1;
    return clamped_seconds(local);
}

// Everything that a record says of an account; whoever was logged in is not any more.
void apply_record(WebUser &user, const portal_web_record &record) {
    user.shared = record.shared;
    user.expires = record.expires;
    user.expiry_time = expiry_seconds(record);
    std::copy_n(record.expiry_date, sizeof user.expiry_date, user.expiry_date);
    std::copy_n(record.user_name, sizeof user.user_name, user.user_name);
    std::copy_n(record.password, sizeof user.password, user.password);
    std::copy_n(record.text, sizeof user.text, user.text);
    std::memcpy(user.bound_macs, record.macs, sizeof user.bound_macs);
    free_devices(user);
    user.device_count = 0;
    const bool is_past = user.expires != 0 && int64_t{user.expiry_time} < int64_t{time(nullptr)};
    user.state = is_past ? WebUserState::expired : WebUserState::logged_out;
}

void keep_bound_devices(const portal_web_record &record) {
    const auto previous = field_text(record.previous_name);
    if (!previous.empty()) remove_bound_devices(previous);
    if (record.shared == 0) write_bound_devices(record);
}

// False when the name is refused. A record that finds no memory is passed over.
bool add_record(const portal_web_record &record) {
    if (!can_be_added(field_text(record.user_name))) return false;
    auto *user = static_cast<WebUser *>(std::calloc(1, sizeof(WebUser)));
    if (user == nullptr) return true;
    apply_record(*user, record);
    push(user);
    keep_bound_devices(record);
    return true;
}

bool is_bound(const WebUser &user, const char *mac) {
    return *mac != '\0' &&
           std::ranges::any_of(user.bound_macs, [&](const auto &bound) { return same_mac(bound, mac); });
}

LoggedInDevice **find_device(WebUser &user, const char *mac) {
    LoggedInDevice **link = &user.devices;
    while (*link != nullptr && !same_mac((*link)->mac, mac)) link = &(*link)->next;
    return link;
}

int log_in(WebUser &user, const char *mac) {
    if (*find_device(user, mac) != nullptr) return LogIn::accepted;
    auto *device = static_cast<LoggedInDevice *>(std::calloc(1, sizeof(LoggedInDevice)));
    if (device == nullptr) return LogIn::not_bound;
    std::memcpy(device->mac, mac, strnlen(mac, sizeof device->mac));
    device->next = user.devices;
    user.devices = device;
    user.state = WebUserState::logged_in;
    ++user.device_count;
    return LogIn::accepted;
}

}  // namespace

void free_devices(WebUser &user) {
    while (user.devices != nullptr) {
        const HeapPtr<LoggedInDevice> device(user.devices);
        user.devices = device->next;
    }
}

}  // namespace ap

using namespace ap;

int tpi_ap_portal_add_web_user(unsigned int count, const struct portal_web_record *records) {
    if (count > most_records || (count != 0 && records == nullptr)) return failed;
    const MutexLock lock(web_user_mutex);
    int result = 0;
    for (unsigned int i = 0; i < count; ++i)
        if (!add_record(records[i])) result = failed;
    return result;
}

int tpi_ap_portal_check_web_user(const struct portal_web_request *request) {
    const MutexLock lock(web_user_mutex);
    WebUser *user = find_user(field_text(request->user_name));
    if (user == nullptr || field_text(user->password) != field_text(request->password)) return LogIn::wrong_account;
    if (user->state == WebUserState::expired) return LogIn::account_expired;
    if (user->shared == 0 && !is_bound(*user, request->mac)) return LogIn::not_bound;
    return log_in(*user, request->mac);
}

int tpi_ap_portal_modify_web_user_state(const struct portal_web_request *request) {
    const MutexLock lock(web_user_mutex);
    WebUser *user = find_user(field_text(request->user_name));
    if (user == nullptr) return failed;
    LoggedInDevice **link = find_device(*user, request->mac);
    if (*link == nullptr) return failed;

    const HeapPtr<LoggedInDevice> device(*link);
    *link = device->next;
    if (--user->device_count < 1) {
        user->state = WebUserState::logged_out;
        user->device_count = 0;
    }
    return 0;
}

int tpi_get_web_state(struct portal_web_request *request) {
    const MutexLock lock(web_user_mutex);
    const WebUser *user = find_user(field_text(request->user_name));
    if (user == nullptr) return failed;
    request->state = user->state;
    return 0;
}

int tpi_ap_portal_del_web_user(const struct portal_web_request *request) {
    const MutexLock lock(web_user_mutex);
    WebUser **link = find_link(field_text(request->user_name));
    if (link == nullptr) return failed;
    remove_bound_devices(field_text(request->user_name));
    const HeapPtr<WebUser> user(unlink_user(link));
    free_devices(*user);
    return 0;
}

int tpi_ap_portal_update_web_user(const struct portal_web_record *record) {
    const auto previous = field_text(record->previous_name), name = field_text(record->user_name);
    if (!can_be_added(name)) return failed;
    const MutexLock lock(web_user_mutex);
    WebUser **link = find_link(previous);
    if (link == nullptr) link = find_link(name);
    if (link == nullptr) return failed;

    // A renamed account moves to the head of its new bucket.
    const bool renamed = field_text((*link)->user_name) != name;
    WebUser *user = renamed ? unlink_user(link) : *link;
    apply_record(*user, *record);
    if (renamed) push(user);
    keep_bound_devices(*record);
    return 0;
}
