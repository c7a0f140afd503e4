// castfilter.cpp: `apctl castfilter`: the kernel's filter of multicasts and broadcasts.

#include <charconv>
#include <cstdio>

#include "apsupport/identify.h"
#include "tools/apctl/command.h"

namespace {

using namespace apctl;

constexpr char help[] = "usage: apctl castfilter on VALUE | off | clear\n\n"
                        "on     turns the filter on and sets its value.\n"
                        "off    turns it off.\n"
                        "clear  empties it.\n"
                        "A device that does not open is waited for, three seconds in all.\n";

int report(int result) {
    if (result == 0) return exit_ok;
    std::fputs("apctl castfilter: /dev/castfilter does not open or refuses; see /var/logs.txt\n", stderr);
    return exit_failed;
}

int run_castfilter(const Words &words) {
    if (words.size() == 1 && words[0] == "off") return report(ap_cast_filter_set(0, 0));
    if (words.size() == 1 && words[0] == "clear") return report(ap_cast_filter_clear());
    if (words.size() != 2 || words[0] != "on") return usage_error("castfilter", "it takes on VALUE, off or clear");

    const std::string &text = words[1];
    int value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size())
        return usage_error("castfilter", "\"" + text + "\" is no whole number");
    return report(ap_cast_filter_set(1, value));
}

const Verb verb{"castfilter", "filter of multicasts and broadcasts", help, run_castfilter};

}  // namespace
