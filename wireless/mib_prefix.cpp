// mib_prefix.cpp: the prefixes of radio and SSID setting keys and of interface names, by kind.
//
// The prefixes themselves are configuration values, read once per process: each builder keeps its own copy, and a copy
// that is still empty is read again on the next call. Threads may fill a copy at the same time; all write the same
// words, and the first word, which says that the copy is there, is written last.

#include <array>
#include <cstdio>

#include "apsupport/foundation.h"
#include "apsupport/wireless.h"
#include "foundation/byte_order.h"
#include "foundation/config_value.h"
#include "foundation/console.h"

namespace ap {

namespace {

constexpr size_t prefix_size = 64;  // of a prefix with its NUL, in the copies and in the callers' buffers

struct Prefix {
    char text[prefix_size];
    bool underscore;  // the separator is "_", otherwise "."
};

class PrefixCache {
public:
    // The separator is read only for a builder that writes one.
    Prefix get(const char *config_key, bool with_separator) {
        if ((__atomic_load_n(&words_[0], __ATOMIC_ACQUIRE) & 0xff) == 0) fill(config_key, with_separator);
        Prefix prefix;
        for (size_t i = 0; i < words_.size(); ++i)
            store_le(prefix.text + 4 * i, __atomic_load_n(&words_[i], __ATOMIC_RELAXED));
        prefix.underscore = __atomic_load_n(&underscore_, __ATOMIC_RELAXED) != 0;
        return prefix;
    }

private:
    void fill(const char *config_key, bool with_separator) {
        char text[prefix_size] = {};
        copy_config(config_key, text);
        const int flag = with_separator ? prod_cfm_get_int_val("wlan.mib_prefix_flag") : 0;
        __atomic_store_n(&underscore_, flag != 0 ? 1u : 0u, __ATOMIC_RELAXED);
        for (size_t i = words_.size(); i-- > 1;) __atomic_store_n(&words_[i], le32(text + 4 * i), __ATOMIC_RELAXED);
        __atomic_store_n(&words_[0], le32(text), __ATOMIC_RELEASE);
    }

    std::array<uint32_t, prefix_size / 4> words_{};
    uint32_t underscore_ = 0;
};

constexpr char bss_24g[] = "wlan24g.bss_mib_prefix", radio_24g[] = "wlan24g.radio_mib_prefix",
               extra_24g[] = "wlan24g.extra_mib_prefix";
constexpr char bss_5g[] = "wlan5g.bss_mib_prefix", radio_5g[] = "wlan5g.radio_mib_prefix",
               extra_5g[] = "wlan5g.extra_mib_prefix";

enum class Form { bss_key, bss_name, key, name };

// One builder for each row of the table, each with its own copy of the configuration.
template <const char *config_key, Form form> int build(char *out, int index) {
    static constinit PrefixCache cache;
    const Prefix prefix = cache.get(config_key, form == Form::bss_key || form == Form::key);
    const char *separator = prefix.underscore ? "_" : ".";
    char whole[prefix_size + sizeof "-2147483648_"] = {};
    switch (form) {
    case Form::bss_key: std::snprintf(whole, sizeof whole, "%s%d%s", prefix.text, index, separator); break;
    case Form::bss_name: std::snprintf(whole, sizeof whole, "%s%d", prefix.text, index); break;
    case Form::key: std::snprintf(whole, sizeof whole, "%s%s", prefix.text, separator); break;
    case Form::name: copy_text(whole, prefix.text); break;
    }
    copy_text(out, prefix_size, whole);
    return 0;
}

int build_nothing(char *, int) { return 0; }

int build_lan(char *out, int) {
    copy_text(out, sizeof "lan", "lan");
    return 0;
}

}  // namespace

}  // namespace ap

using ap::build;
using ap::Form;

const struct mib_prefix_handle g_mib_prefix_handle[14] = {
    {0, ap::build_nothing},
    {1, ap::build_lan},
    {3, build<ap::bss_24g, Form::bss_key>},
    {12, build<ap::bss_24g, Form::bss_name>},
    {2, build<ap::radio_24g, Form::key>},
    {14, build<ap::radio_24g, Form::name>},
    {6, build<ap::extra_24g, Form::key>},
    {5, build<ap::bss_5g, Form::bss_key>},
    {13, build<ap::bss_5g, Form::bss_name>},
    {4, build<ap::radio_5g, Form::key>},
    {15, build<ap::radio_5g, Form::name>},
    {7, build<ap::extra_5g, Form::key>},
    {16, build<ap::extra_24g, Form::name>},
    {17, build<ap::extra_5g, Form::name>},
};

int get_mib_prefix(char *namePre, unsigned int kind, int index) {
    if (namePre == nullptr) {
        AP_CONSOLE(ap::Colour::cyan, "namePre is null");
        return -1;
    }
    for (const auto &row : g_mib_prefix_handle)
        if (row.kind == kind) return row.build(namePre, index);
    return -1;
}
