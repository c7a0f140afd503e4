// A client's operating system, from the identification file and from the user-information service.

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include "apsupport/identify.h"
#include "foundation/text.h"
#include "tests/support/capture.h"

namespace {

struct Answer {
    int result = 0;
    bool is_null = false;
    uint32_t type = 0;
    std::string mac, os_type;
} answer;
std::string request_seen;

}  // namespace

extern "C" int send_msg_to_user_info(const void *request, void **out, unsigned int length) {
    request_seen.assign(static_cast<const char *>(request), length);
    if (answer.is_null) return answer.result;
    auto *block = static_cast<char *>(std::calloc(1, 40));
    std::memcpy(block, &answer.type, 4);
    std::copy_n(answer.mac.data(), std::min<size_t>(answer.mac.size(), 18), block + 4);
    std::copy_n(answer.os_type.data(), std::min<size_t>(answer.os_type.size(), 18), block + 22);
    *out = block;
    return answer.result;
}

namespace {

constexpr char path[] = "/var/type_identify.json";
const std::string mac = "AA:BB:CC:DD:EE:01";

struct Outcome {
    int result;
    std::string os;
    bool operator==(const Outcome &) const = default;
};

template <typename Call> Outcome outcome_of(Call call, const std::string &device, const std::string &before = "") {
    char os[32] = {};
    ap::copy_text(os, before);
    const int result = call(device.c_str(), os);
    return {result, os};
}

TEST(ClientOs, IsReadFromTheClientsEntry) {
    const struct {
        const char *what;
        std::string file, device, before, os;
    } cases[] = {
        {"its system", R"([{"mac":"AA:BB:CC:DD:EE:01","os":"android"}])", mac, "", "android"},
        {"overwrites", R"([{"mac":"AA:BB:CC:DD:EE:01","os":"ios"}])", mac, "old", "ios"},
        {"the first entry wins", R"([{"mac":"x","os":"a"},{"mac":"AA:BB","os":"b"},{"mac":"AA:BB","os":"c"}])", "AA:BB",
         "", "b"},
        {"a shorter text is a prefix", R"([{"mac":"AA:BB:CC:DD:EE:01","os":"b"}])", "AA:B", "", "b"},
        {"a longer one is none", R"([{"mac":"AA:BB","os":"b"}])", mac, "old", "old"},
        {"letters' case counts", R"([{"mac":"aa:bb:cc:dd:ee:01","os":"b"}])", mac, "", ""},
        {"no such client", R"([{"mac":"1","os":"b"}])", mac, "old", "old"},
        {"an empty list", "[]", mac, "old", "old"},
        {"a system that is no text", R"([{"mac":"AA:BB:CC:DD:EE:01","os":7}])", mac, "old", ""},
        {"cut at 31 bytes", R"([{"mac":"AA:BB:CC:DD:EE:01","os":"0123456789012345678901234567890123"}])", mac, "",
         "0123456789012345678901234567890"},
        {"our camera", R"([{"mac":"AA:BB:CC:DD:EE:01","os":"","brand":"KIVRA","type":"IPC"}])", mac, "", "linux"},
        {"the other brand", R"([{"mac":"AA:BB:CC:DD:EE:01","brand":"Ze-Nor","type":"ipc"}])", mac, "old", "linux"},
        {"our phone", R"([{"mac":"AA:BB:CC:DD:EE:01","brand":"kivra","type":"phone"}])", mac, "", ""},
        {"another's camera", R"([{"mac":"AA:BB:CC:DD:EE:01","brand":"kivra2","type":"ipc"}])", mac, "", ""},
        {"a camera with a system", R"([{"mac":"AA:BB:CC:DD:EE:01","os":"rtos","brand":"kivra","type":"ipc"}])", mac, "",
         "rtos"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        test::write_text(path, c.file);
        EXPECT_EQ(outcome_of(get_os_info_by_identify_json, c.device, c.before), (Outcome{0, c.os}));
        EXPECT_EQ(outcome_of(ap_client_identify_get_os_info, c.device, c.before), (Outcome{0, c.os}));
    }
}

TEST(ClientOs, AFileThatIsMissingOrNoJsonFails) {
    const char *const damaged[] = {"", "[", R"([{"mac":"AA)", "no json"};
    for (const char *text : damaged) {
        SCOPED_TRACE(text);
        test::write_text(path, text);
        EXPECT_EQ(file_type_identify_get_terminal_arry(), nullptr);
        EXPECT_EQ(outcome_of(ap_client_identify_get_os_info, mac, "old"), (Outcome{255, "old"}));
    }
    unlink(path);
    EXPECT_EQ(outcome_of(ap_client_identify_get_os_info, mac, "old"), (Outcome{0, "old"}));
    EXPECT_THAT(test::printed_by([] {
                    EXPECT_EQ(outcome_of(get_os_info_by_identify_json, mac, "old"), (Outcome{255, "old"}));
                }),
                testing::MatchesRegex(".*get_string_value_form_identify_json_by_mac,[0-9]+ terminal_arry is null \n"));
}

TEST(ClientOs, TheServiceAnswersForTheClientThatWasAskedFor) {
    const struct {
        const char *what;
        Answer answer;
        int result;
        std::string os, printed;
    } cases[] = {
        {"its system", {0, false, 0, mac, "windows"}, 0, "windows", ""},
        {"a full field", {0, false, 0, mac, "012345678901234567"}, 0, "012345678901234567", ""},
        {"another type",
         {0, false, 3, mac, "windows"},
         255,
         "old",
         "get_os_info_by_user_info,[0-9]+ error resp msg type = 3, pmsg->mac = AA:BB:CC:DD:EE:01, pmsg->ostype = "
         "windows\n"},
        {"another client",
         {0, false, 0, "AA:BB:CC:DD:EE:02", "mac"},
         255,
         "old",
         "get_os_info_by_user_info,[0-9]+ error resp msg type = 0, pmsg->mac = AA:BB:CC:DD:EE:02, pmsg->ostype = "
         "mac\n"},
        {"a MAC that goes on",
         {0, false, 0, mac + "1", "mac"},
         255,
         "old",
         "get_os_info_by_user_info,[0-9]+ error .*\n"},
        {"no answer", {0, true, 0, "", ""}, 255, "old", "get_os_info_by_user_info,[0-9]+ resp error \n"},
        {"a failure", {-1, true, 0, "", ""}, 255, "old", "get_os_info_by_user_info,[0-9]+ resp error \n"},
        {"a failure that left a block",
         {-1, false, 0, mac, "x"},
         255,
         "old",
         "get_os_info_by_user_info,[0-9]+ resp error \n"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        answer = c.answer;
        const std::string printed = test::printed_by([&] {
            EXPECT_EQ(outcome_of(get_os_info_by_user_info, mac, "old"), (Outcome{c.result, c.os}));
        });
        EXPECT_THAT(printed, testing::MatchesRegex(c.printed));
        EXPECT_EQ(request_seen, std::string(4, '\0') + mac + std::string(40 - 4 - mac.size(), '\0'));
    }
}

TEST(UdpSocket, IsADatagramSocketOrALine) {
    const int socket_fd = init_net_udp_sock();
    EXPECT_GE(socket_fd, 0);
    close(socket_fd);
    std::string printed;
    EXPECT_EQ(
        test::run_in_child([] {
            const std::string line = test::printed_by([] {
                const rlimit none = {0, 0};
                setrlimit(RLIMIT_NOFILE, &none);
                if (init_net_udp_sock() != -1) _exit(1);
            });
            const testing::Matcher<const std::string &> expected = testing::MatchesRegex(
                "Error->src/ap_portal/public_pt_sock.c: init_net_udp_sock\\([0-9]+\\)--create udp socket is error.\n");
            if (!expected.Matches(line)) _exit(2);
        }),
        0);
}

}  // namespace
