// scan_records.cpp: turns the driver's scan results into records of neighbouring access points.
//
// SSIDs in GB2312 are also noted in a cache file, one line each time that such an SSID is converted.

#include "wireless/scan_records.h"

#include <cerrno>
#include <cstdio>
#include <span>

#include "foundation/file_io.h"
#include "foundation/text.h"

namespace ap {

namespace {

constexpr char encoding_cache[] = "/var/sta_encode_ssid_cache";

template <size_t N> void print_number(char (&field)[N], int value) { std::snprintf(field, N, "%d", value); }

void note_encoded_ssid(std::string_view ssid) {
    const UniqueFile file = open_file(encoding_cache, "ae");
    if (!file) {
        std::printf("%s %d: fopen error: %s\n", __func__, __LINE__, std::strerror(errno));
        return;
    }
    std::fprintf(file.get(), "\"%.*s\" %s\n", static_cast<int>(ssid.size()), ssid.data(), "gb2312");
}

const char *sideband_name(int32_t code) { return code == 2 ? "upper" : code == 3 ? "lower" : "none"; }

// A kind of security: its texts by type, and what is said and taken for a type that is not among them.
struct SecurityTypes {
    std::span<const char *const> texts;
    const char *complaint, *otherwise;
};
constexpr const char *enterprise_texts[] = {"none", "wpa/", "wpa2/", "wpa&wpa2/"};
constexpr SecurityTypes enterprise_types{enterprise_texts, "[%s][%d]Unsupported security type %d, Set to WPA/WPA2.\n",
                                         "wpa&wpa2/"};
constexpr const char *psk_texts[] = {"none",  "wpa-psk/",       "wpa2-psk/", "wpa-psk&wpa2-psk/",
                                     "wpa3/", "wpa2-psk&wpa3/", "owe/"};
constexpr SecurityTypes psk_types{psk_texts, "[%s][%d]Unsupported security type %d, Set to WPAPSK/WPA2PSK.\n",
                                  "wpa-psk&wpa2-psk/"};

constexpr const char *cipher_texts[] = {"aes", "tkip", "tkip&aes"};

const char *type_text(const SecurityTypes &types, int32_t type) {
    if (type >= 0 && static_cast<size_t>(type) < types.texts.size()) return types.texts[static_cast<size_t>(type)];
    std::printf(types.complaint, __func__, __LINE__, type);
    return types.otherwise;
}

const char *cipher_text(int32_t cipher) {
    if (cipher >= 0 && static_cast<size_t>(cipher) < std::size(cipher_texts)) return cipher_texts[cipher];
    std::printf("[%s][%d]Unsupported security crypto, Set to tkip&aes.\n", __func__, __LINE__);
    return "tkip&aes";
}

template <size_t N> void print_security(char (&field)[N], const SecurityTypes &types, int32_t type, int32_t cipher) {
    const char *text = type_text(types, type);
    std::snprintf(field, N, "%s%s", text, type == 0 ? "" : cipher_text(cipher));
}

// A network that claims an enterprise type and a PSK type at once has no text.
template <size_t N> void describe_security(char (&field)[N], const ScanEntry &entry) {
    field[0] = '\0';
    if (entry.is_wep()) {
        copy_text(field, "wep");
    } else if (entry.enterprise_type() == 0) {
        print_security(field, psk_types, entry.psk_type(), entry.psk_cipher());
    } else if (entry.psk_type() == 0) {
        print_security(field, enterprise_types, entry.enterprise_type(), entry.enterprise_cipher());
    }
}

void convert_entry(const ScanEntry &entry, WifiScanResult &record) {
    copy_text(record.ssid, entry.ssid());
    if (entry.encoding() == "gb2312") note_encoded_ssid(entry.ssid());
    copy_text(record.encode, entry.encoding());
    const uint8_t *bssid = entry.bssid();
    std::snprintf(record.bssid, sizeof record.bssid, "%02x:%02x:%02x:%02x:%02x:%02x", bssid[0], bssid[1], bssid[2],
                  bssid[3], bssid[4], bssid[5]);
    print_number(record.num_a, entry.number_a());
    print_number(record.num_b, entry.number_b());
    copy_text(record.sideband, sideband_name(entry.sideband()));
    print_number(record.rssi, entry.rssi());
    describe_security(record.security, entry);
}

}  // namespace

void convert_scan_results(const ScanBuffer &results, WifiScanList &out) {
    const int count = results.entry_count();
    for (int i = 0; i < count; ++i) convert_entry({results.entry(i)}, out.records[i]);
    out.count = count;
}

}  // namespace ap
