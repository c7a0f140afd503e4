// web_users.h: the table of web accounts, for the files that look at all accounts. Its one mutex guards everything
// here.
#pragma once

#include <pthread.h>

#include "apsupport/portal.h"
#include "foundation/owned.h"
#include "portal/mac_text.h"

namespace ap {

enum WebUserState : uint32_t { logged_out = 0, logged_in = 1, expired = 2 };

struct LoggedInDevice {
    char mac[mac_text_size];
    LoggedInDevice *next;
};

struct WebUser {
    uint32_t state;
    int32_t device_count;
    uint32_t shared;  // any device may log in
    uint32_t expires;
    uint32_t expiry_time;  // seconds since the epoch
    char expiry_date[32];
    char user_name[16];
    char password[16];
    char text[32];
    char bound_macs[20][mac_text_size];
    LoggedInDevice *devices;
    WebUser *next;  // in the same bucket
};

inline constexpr size_t web_user_buckets = 65;  // by the name's first character

extern pthread_mutex_t web_user_mutex;
extern WebUser *web_users[web_user_buckets];

// Forgets every device that is logged in.
void free_devices(WebUser &user);

// Writes a record's bound devices to the account's file, or removes the file of the name that the account had before.
void write_bound_devices(const portal_web_record &record);
void remove_bound_devices(std::string_view user_name);

}  // namespace ap
