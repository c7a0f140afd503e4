// A client's operating system, from the identification file and from the user-information service.

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include "apsupport/identify.h"
#include "foundation/owned.h"
#include "foundation/text.h"
#include "tests/support/capture.h"

namespace {

// What the service answers; its block ends where a text does that is shorter than its field.
struct Answer {
    int result = 0;
    bool has_block = true;
    uint32_t type = 0;
    std::string mac, os_type;
} answer;
std::string request_seen;

}  // namespace

extern "C" int send_msg_to_user_info(const void *request, void **out, unsigned int length) {
    request_seen.assign(static_cast<const char *>(request), length);
    if (!answer.has_block) return answer.result;
    auto *block = static_cast<char *>(std::calloc(1, std::min<size_t>(22 + answer.os_type.size() + 1, 40)));
    std::memcpy(block, &answer.type, sizeof answer.type);
    answer.mac.copy(block + 4, 18);
    answer.os_type.copy(block + 22, 18);
    *out = block;
    return answer.result;
}

namespace {

constexpr char path[] = "/var/type_identify.json";
const std::string mac = "AA:BB:CC:DD:EE:01";

using Outcome = std::pair<int, std::string>;  // the result and what stands in the buffer
const Outcome failure = {255, "old"};

template <typename Call> Outcome outcome_of(Call call, const std::string &before = "old") {
    char os[32] = {};
    ap::copy_text(os, before);
    const int result = call(mac.c_str(), os);
    return {result, os};
}

TEST(ClientOs, IsReadFromTheClientsEntry) {
    // In the entries, "MAC" stands for the client's.
    const struct {
        const char *what;
        std::string entries, before, os;
    } cases[] = {
        {"its system", R"({"mac":"MAC","os":"android"})", "", "android"},
        {"overwrites", R"({"mac":"MAC","os":"ios"})", "old", "ios"},
        {"the client's text is a prefix", R"({"mac":"MAC:7","os":"b"})", "", "b"},
        {"letters' case counts", R"({"mac":"aa:bb:cc:dd:ee:01","os":"b"})", "", ""},
        {"a system that is no text", R"({"mac":"MAC","os":7})", "old", ""},
        {"our camera", R"({"mac":"MAC","os":"","brand":"KIVRA","type":"IPC"})", "", "linux"},
        {"the other brand", R"({"mac":"MAC","brand":"Ze-Nor","type":"ipc"})", "old", "linux"},
        {"our phone", R"({"mac":"MAC","brand":"kivra","type":"phone"})", "", ""},
        {"another's camera", R"({"mac":"MAC","brand":"kivra2","type":"ipc"})", "", ""},
        {"a camera with a system", R"({"mac":"MAC","os":"rtos","brand":"kivra","type":"ipc"})", "", "rtos"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        std::string entries = c.entries;
        for (size_t at; (at = entries.find("MAC")) != std::string::npos;) entries.replace(at, 3, mac);
        test::write_text(path, "[" + entries + "]");
        EXPECT_EQ(outcome_of(get_os_info_by_identify_json, c.before), (Outcome{0, c.os}));
        EXPECT_EQ(outcome_of(ap_client_identify_get_os_info, c.before), (Outcome{0, c.os}));
    }
}

TEST(ClientOs, AFileThatIsMissingOrNoJsonFails) {
    for (const char *text : {"", R"([{"mac":"AA)", "no json"}) {
        SCOPED_TRACE(text);
        test::write_text(path, text);
        EXPECT_EQ(file_type_identify_get_terminal_arry(), nullptr);
        EXPECT_EQ(outcome_of(ap_client_identify_get_os_info), failure);
    }
    unlink(path);
    EXPECT_EQ(outcome_of(ap_client_identify_get_os_info), (Outcome{0, "old"}));
    EXPECT_THAT(test::printed_by([] { EXPECT_EQ(outcome_of(get_os_info_by_identify_json), failure); }),
                testing::MatchesRegex(".*get_string_value_form_identify_json_by_mac,[0-9]+ terminal_arry is null \n"));
}

TEST(ClientOs, TheServiceAnswersForTheClientThatWasAskedFor) {
    const std::string other = "AA:BB:CC:DD:EE:02";
    const struct {
        const char *what;
        Answer answer;
        Outcome outcome;
        std::string printed;
    } cases[] = {
        {"its system", {0, true, 0, mac, "windows"}, {0, "windows"}, ""},
        {"a full field", {0, true, 0, mac, "012345678901234567"}, {0, "012345678901234567"}, ""},
        {"another type",
         {0, true, 3, mac, "ios"},
         failure,
         "error resp msg type = 3, pmsg->mac = " + mac + ", pmsg->ostype = ios"},
        {"another client",
         {0, true, 0, other, "ios"},
         failure,
         "error resp msg type = 0, pmsg->mac = " + other + ", pmsg->ostype = ios"},
        {"a MAC that goes on", {0, true, 0, mac + "1", "ios"}, failure, "error .*"},
        {"no answer", {0, false, 0, "", ""}, failure, "resp error "},
        {"a failure that left a block", {-1, true, 0, mac, "x"}, failure, "resp error "},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        answer = c.answer;
        EXPECT_THAT(
            test::printed_by([&] { EXPECT_EQ(outcome_of(get_os_info_by_user_info), c.outcome); }),
            testing::MatchesRegex(c.printed.empty() ? "" : "get_os_info_by_user_info,[0-9]+ " + c.printed + "\n"));
        EXPECT_EQ(request_seen, std::string(4, '\0') + mac + std::string(40 - 4 - mac.size(), '\0'));
    }
}

TEST(UdpSocket, IsADatagramSocketOrALine) {
    EXPECT_TRUE(ap::UniqueFd(init_net_udp_sock()));
    rlimit before = {};
    getrlimit(RLIMIT_NOFILE, &before);
    const rlimit none = {0, before.rlim_max};
    const std::string line = test::printed_by([&] {
        setrlimit(RLIMIT_NOFILE, &none);
        EXPECT_EQ(init_net_udp_sock(), -1);
        setrlimit(RLIMIT_NOFILE, &before);
    });
    EXPECT_THAT(line, testing::MatchesRegex("Error->src/ap_portal/public_pt_sock.c: init_net_udp_sock\\([0-9]+\\)--"
                                            "create udp socket is error.\n"));
}

}  // namespace
