// client_record.h: the 112 bytes by which the portal's kernel module knows a client, and the netlink types that this
// stand-in understands. Words are little-endian.
#pragma once

#include <cstddef>
#include <cstdint>

namespace peers {

struct ClientRecord {
    uint8_t mac[6];       // 0
    uint8_t zero_6[2];    // 6
    char user_name[32];   // 8
    uint8_t phone[8];     // 40
    uint8_t kind[4];      // 48: 1 a web account, 2 a phone
    uint8_t status[4];    // 52
    uint8_t zero_56[56];  // 56
};
static_assert(sizeof(ClientRecord) == 112 && offsetof(ClientRecord, phone) == 40 &&
              offsetof(ClientRecord, status) == 52);

inline constexpr uint32_t web_account_kind = 1, phone_kind = 2;

enum PortalType : uint16_t { client = 21, kick_one = 25, kick = 26, node_info = 27, online_user = 29 };

}  // namespace peers
