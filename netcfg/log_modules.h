// log_modules.h: the names under which the room logs.
#pragma once

namespace ap {

inline constexpr char platform_log_module[] = "common_so";  // of what moves with the LAN address
inline constexpr char network_log_module[] = "netctrl";     // of conflicts and WAN state
inline constexpr char table_log_module[] = "prod";          // of the system table readers

}  // namespace ap
