// white_list.cpp: devices that pass without a log-in. The list is replaced whole, under a mutex of its own.

#include <algorithm>

#include "apsupport/portal.h"
#include "foundation/owned.h"
#include "portal/mac_text.h"

static_assert(sizeof(portal_white_list) == 4 + 20 * 18);

namespace ap {

namespace {

enum Admission { not_listed = 0, listed = 9 };

pthread_mutex_t white_list_mutex = PTHREAD_MUTEX_INITIALIZER;
portal_white_list white_list;

}  // namespace

}  // namespace ap

using namespace ap;

int tpi_init_white_mac_list(const struct portal_white_list *list) {
    const MutexLock lock(white_list_mutex);
    white_list = *list;
    return 0;
}

int tpi_check_white_mac(const char *mac) {
    const MutexLock lock(white_list_mutex);
    const auto end = white_list.macs + std::min<size_t>(white_list.count, std::size(white_list.macs));
    return std::any_of(white_list.macs, end, [&](const auto &entry) { return same_mac(entry, mac); })
               ? Admission::listed
               : Admission::not_listed;
}
