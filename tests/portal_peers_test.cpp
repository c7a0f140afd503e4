// The portal's counterparts as programs of their own: each role over its real socket, asked through the library.

#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <sys/prctl.h>
#include <sys/wait.h>

#include "tests/portal_world.h"
#include "tests/support/capture.h"
#include "tests/support/scripted_store.h"
#include "tools/portal_peers/client_record.h"

namespace {

using test::Bytes;

std::string peers_program() {
    return std::filesystem::read_symlink("/proc/self/exe").parent_path().parent_path() / "bin/portal_peers";
}

// A role that runs until the end of the scope; its lines.
class Peer {
public:
    explicit Peer(const std::vector<std::string> &words) {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0) return;
        child_ = fork();
        if (child_ == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            dup2(ends[1], STDOUT_FILENO);
            std::vector<char *> arguments = {const_cast<char *>("portal_peers")};
            for (const auto &word : words) arguments.push_back(const_cast<char *>(word.c_str()));
            arguments.push_back(nullptr);
            execv(peers_program().c_str(), arguments.data());
            _exit(127);
        }
        close(ends[1]);
        output_.reset(fdopen(ends[0], "r"));
        EXPECT_EQ(line(), "ready");
    }
    ~Peer() {
        kill(child_, SIGKILL);
        waitpid(child_, nullptr, 0);
    }
    Peer(const Peer &) = delete;
    Peer &operator=(const Peer &) = delete;

    std::string line() const {
        char text[4096] = {};
        if (std::fgets(text, sizeof text, output_.get()) == nullptr) return {};
        return std::string(text).substr(0, std::strcspn(text, "\n"));
    }

private:
    pid_t child_ = -1;
    ap::UniqueFile output_;
};

class Peers : public testing::Test {
protected:
    void SetUp() override {
        if (!std::filesystem::exists(peers_program())) GTEST_SKIP() << "portal_peers is not built";
    }
};

void announce(uint8_t last) {
    peers::ClientRecord record = {};
    record.mac[0] = 2;
    record.mac[5] = last;
    test::fill_field(record.user_name, "guest" + std::to_string(last));
    ap_portal_online_user_add(&record, sizeof record);
}

// The last bytes of the online clients' MACs; "failed" for no answer.
std::string online() {
    unsigned int count = 0;
    if (tpi_ap_portal_get_node_info(&count) != 0) return "failed";
    const ap::HeapPtr<void> records(std::exchange(portal_info, nullptr));
    std::string text;
    for (unsigned int i = 0; i < count; ++i)
        text += std::to_string(static_cast<const peers::ClientRecord *>(records.get())[i].mac[5]) + " ";
    return text;
}

TEST_F(Peers, TheModuleKeepsWhoIsOnlineAndKicks) {
    if (!test::PortalModule().fd) GTEST_SKIP() << "no user-space netlink sockets here";
    const Peer module({"kernel"});
    EXPECT_EQ(online(), "");
    for (const int last : {1, 2, 3, 2}) announce(static_cast<uint8_t>(last));
    EXPECT_EQ(online(), "1 3 2 ");
    EXPECT_EQ(module.line(), "online 02:00:00:00:00:01 guest1");

    const unsigned char macs[][6] = {{2, 0, 0, 0, 0, 3}, {2, 0, 0, 0, 0, 9}};
    EXPECT_EQ(tpi_ap_portal_del_mac(2, macs, peers::kick), 0);
    const ap::HeapPtr<void> kicked(std::exchange(portal_info, nullptr));
    EXPECT_EQ(static_cast<const peers::ClientRecord *>(kicked.get())->mac[5], 3);
    EXPECT_EQ(online(), "1 2 ");
    EXPECT_EQ(tpi_ap_portal_del_mac(2, macs, peers::kick), 255);
}

TEST_F(Peers, TheServersAnswerTheLibrary) {
    Bytes message(616);
    const Peer management({"management"});
    for (const uint64_t number : {1U, 2U}) {
        ap::store_le(message.data(), uint32_t{4});
        EXPECT_EQ(tpi_connect_with_ap_mng_svr(message.data()), 0);
        EXPECT_EQ(ap::le64(message.data() + 8), number);
        EXPECT_EQ(management.line(), "message " + std::to_string(number) + " of type 4");
    }
    test::store.values = {{"ap.apname", "KV-AP620"}, {"vendor.type_pack", "0x1799"}};
    const Peer controller({"controller", "--status", "7"});
    EXPECT_EQ(tpi_interaction_ac("127.0.0.1", message.data()), 7);
    EXPECT_EQ(ap::le32(message.data()), 7U);
    EXPECT_THAT(controller.line(), testing::EndsWith("from type 0, vendor 0x1799: message of type 4"));
}

}  // namespace
