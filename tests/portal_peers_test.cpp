// The portal's counterparts as programs of their own, asked through the library over their real sockets. They end with
// the box that this test runs in.

#include <filesystem>

#include "platform/host/portal_netlink.h"
#include "tests/portal_world.h"
#include "tests/support/scripted_store.h"
#include "tools/portal_peers/client_record.h"

namespace {

using test::Bytes;

std::string next_line(FILE *output) {
    char text[256] = {};
    return std::fgets(text, sizeof text, output) == nullptr ? "" : text;
}

const std::string program =
    std::filesystem::read_symlink("/proc/self/exe").parent_path().parent_path() / "bin/portal_peers";

// A role that serves from now on; what it prints.
FILE *start(const std::string &role) {
    FILE *const output = popen((program + " " + role).c_str(), "re");
    EXPECT_EQ(next_line(output), "ready\n");
    return output;
}

TEST(Peers, AnswerTheLibrary) {
    if (!std::filesystem::exists(program) || !ap::host::open_portal_module()) GTEST_SKIP() << "no portal_peers here";
    FILE *const module = start("kernel"), *const management = start("management");
    FILE *const controller = start("controller --status 7");

    const peers::ClientRecord record = {{2, 0, 0, 0, 0, 3}, {}, "guest", {}, {}, {}, {}};
    unsigned int count = 0;
    for (int i = 0; i < 2; ++i) EXPECT_EQ(ap_portal_online_user_add(&record, sizeof record), 0);
    EXPECT_EQ(tpi_ap_portal_get_node_info(&count), 0);
    EXPECT_EQ(count, 1U);
    EXPECT_EQ(next_line(module), "online 02:00:00:00:00:03 guest\n");
    std::free(std::exchange(portal_info, nullptr));
    const unsigned char macs[][6] = {{2, 0, 0, 0, 0, 3}, {2, 0, 0, 0, 0, 9}};
    EXPECT_EQ(tpi_ap_portal_del_mac(2, macs, peers::kick), 0);
    EXPECT_EQ(std::memcmp(portal_info, &record, sizeof record), 0);
    std::free(std::exchange(portal_info, nullptr));
    EXPECT_EQ(tpi_ap_portal_del_mac(2, macs, peers::kick), 255);

    Bytes message(616);
    message[0] = 4;
    EXPECT_EQ(tpi_connect_with_ap_mng_svr(message.data()), 0);
    EXPECT_EQ(ap::le64(message.data() + 8), 1U);
    EXPECT_EQ(next_line(management), "message 1 of type 4\n");
    test::store.values = {{"ap.apname", "KV-AP620"}, {"vendor.type_pack", "0x1799"}};
    EXPECT_EQ(tpi_interaction_ac("127.0.0.1", message.data()), 7);
    EXPECT_THAT(next_line(controller), testing::EndsWith("from type 0, vendor 0x1799: message of type 4\n"));
}

}  // namespace
