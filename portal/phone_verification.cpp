// phone_verification.cpp: codes sent to mobile phones, the phones that may not ask for one, and the check of a code.
//
// The black list, the public information block and the phone entries share one mutex, which is held throughout, also
// while an accepted client is announced to the kernel module.

#include <algorithm>
#include <cstdlib>
#include <ctime>

#include "apsupport/portal.h"
#include "foundation/byte_order.h"
#include "foundation/owned.h"
#include "foundation/portal_line.h"
#include "portal/gateway_request.h"
#include "portal/kernel_link.h"
#include "portal/mac_text.h"

static_assert(sizeof(portal_black_list) == 4 + 4 + 150 * 8 && offsetof(portal_black_list, phones) == 8);
static_assert(offsetof(portal_phone_request, mac) == 16 && offsetof(portal_phone_request, user_name) == 34 &&
              offsetof(portal_phone_request, url) == 66);

namespace ap {

namespace {

constexpr int failed = 255;
constexpr int64_t code_lifetime_seconds = 120;
constexpr uint32_t build_request = 1;

enum PhoneAnswer { code_wrong = 16, code_right = 17, phone_listed = 18, phone_not_listed = 19 };

struct PhoneEntry {
    uint32_t created;  // seconds since the epoch
    uint32_t code;
    uint64_t phone;
    PhoneEntry *next;
};

// What the kernel module learns of a client that proved its phone.
struct PhoneClient {
    uint8_t mac[6];       // 0
    uint8_t zero_6[2];    // 6
    char user_name[32];   // 8
    uint8_t phone[8];     // 40: little-endian
    uint8_t kind[4];      // 48: little-endian, 2
    uint8_t status[4];    // 52: little-endian, 16
    uint8_t zero_56[56];  // 56
};
static_assert(sizeof(PhoneClient) == 112 && offsetof(PhoneClient, phone) == 40);
constexpr uint32_t phone_client_kind = 2, phone_client_status = 16;

pthread_mutex_t phone_mutex = PTHREAD_MUTEX_INITIALIZER;
portal_black_list black_list;
portal_public_info public_info;
PhoneEntry *phone_entries;

uint32_t random_digit() { return static_cast<uint32_t>(rand() % 10); }

// 1000 to 9999.
uint32_t make_code() {
    const uint32_t first = random_digit();
    uint32_t code = first == 0 ? 1 : first;
    for (int i = 0; i < 3; ++i) code = code * 10 + random_digit();
    return code;
}

// The new entry is the whole list: only the latest code can be proved.
void replace_entries(PhoneEntry *entry) { const HeapPtr<PhoneEntry> before(std::exchange(phone_entries, entry)); }

void announce(const portal_phone_request &request) {
    PhoneClient client = {};
    parse_mac(request.mac, client.mac);
    std::copy_n(request.user_name, sizeof client.user_name, client.user_name);
    store_le(client.phone, request.phone);
    store_le(client.kind, phone_client_kind);
    store_le(client.status, phone_client_status);
    send_to_portal(PortalType::client, &client, sizeof client);
}

bool is_proved(const portal_phone_request &request) {
    for (const PhoneEntry *entry = phone_entries; entry != nullptr; entry = entry->next)
        if (entry->phone == request.phone && entry->code == request.code) return true;
    return false;
}

}  // namespace

}  // namespace ap

using namespace ap;

int tpi_ap_portal_init_black_list(const struct portal_black_list *list) {
    const MutexLock lock(phone_mutex);
    black_list = *list;
    return 0;
}

int tpi_check_black_list(const struct portal_phone_request *request) {
    const MutexLock lock(phone_mutex);
    const auto end = black_list.phones + std::min<size_t>(black_list.count, std::size(black_list.phones));
    return std::find(black_list.phones, end, request->phone) != end ? PhoneAnswer::phone_listed
                                                                    : PhoneAnswer::phone_not_listed;
}

int tpi_ap_portal_init_public_info(const struct portal_public_info *info) {
    const MutexLock lock(phone_mutex);
    public_info = *info;
    return 0;
}

int tpi_ap_portal_add_phone_list(struct portal_phone_request *request) {
    const MutexLock lock(phone_mutex);
    const uint32_t code = make_code();
    auto *entry = static_cast<PhoneEntry *>(std::calloc(1, sizeof(PhoneEntry)));
    if (entry == nullptr) return AP_PORTAL_ERROR(portal_source, "phone malloc node error!\n"), failed;
    *entry = {static_cast<uint32_t>(time(nullptr)), code, request->phone, nullptr};
    replace_entries(entry);

    EncodedMessage content;
    encode_message(public_info, code, content);
    if (public_info.build_request != build_request) return 0;
    write_gateway_request(public_info, request->phone, content, request->url, sizeof request->url);
    AP_PORTAL_DEBUG(portal_source, "======url = %s\n", request->url);
    return 0;
}

int tpi_ap_portal_check_phone(struct portal_phone_request *request) {
    const MutexLock lock(phone_mutex);
    request->status = PhoneAnswer::code_wrong;
    if (!is_proved(*request)) return failed;
    announce(*request);
    request->status = PhoneAnswer::code_right;
    return 0;
}

int tpi_phone_username_timeout(void) {
    const MutexLock lock(phone_mutex);
    const int64_t now = time(nullptr);
    for (PhoneEntry **link = &phone_entries; *link != nullptr; link = &(*link)->next) {
        if (std::abs(now - int64_t{(*link)->created}) <= code_lifetime_seconds) continue;
        const HeapPtr<PhoneEntry> old(*link);
        *link = old->next;
        break;
    }
    return 0;
}
