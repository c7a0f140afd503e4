// product_data.h: what a maker changes for its own products: brands with their web login domains, and the firmware's
// version.
#pragma once

#include <array>
#include <string_view>

namespace ap {

struct Vendor {
    std::string_view name;         // a profile's "vendor"
    const char *type_pack;         // "vendor.type_pack"
    const char *web_login_domain;  // "web.login.domain"
};

inline constexpr std::array vendors = {
    Vendor{"Kivra", "0x1799", "wifi.kivra.lan"},
    Vendor{"ZE-NOR", "0x1788", "wifi.ze-nor.lan"},
};

inline constexpr char firmware_version[] = "V3.0.1.18";
inline constexpr char firmware_build[] = "5151";

}  // namespace ap
