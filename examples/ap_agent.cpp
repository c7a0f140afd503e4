// ap_agent.cpp: stands for one access point towards a controller: starts the library's survey runs, keeps the records
// that they report until they are fetched, and applies what the controller decided.
//
//   ap_agent [tcp:ADDRESS:PORT] &        by default any address, port 7001
//   controller 192.168.0.1 192.168.0.2 192.168.0.3
//
// The questions are those of ap_messages.h. The message loop has one thread; records come on the surveys' worker
// threads and on the bus's, so they stand under a mutex. The callbacks of the library carry no argument: there is one
// for each kind of record.

#include <algorithm>
#include <cstdio>
#include <mutex>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "apsupport/msgserver.h"
#include "apsupport/rfo.h"
#include "examples/ap_messages.h"
#include "foundation/byte_order.h"

namespace {

using namespace ap_messages;
using Bytes = std::vector<uint8_t>;
using Argument = std::span<const uint8_t>;

// A record that was reported and not fetched yet. A new run forgets the one before.
class Mailbox {
public:
    void put(const void *record, int length) {
        const std::lock_guard lock(mutex_);
        const auto *bytes = static_cast<const uint8_t *>(record);
        record_.assign(bytes, bytes + length);
    }
    Bytes take() {
        const std::lock_guard lock(mutex_);
        return std::exchange(record_, {});
    }
    void put_back(Bytes record) {
        const std::lock_guard lock(mutex_);
        if (record_.empty()) record_ = std::move(record);
    }
    Bytes copy() const {
        const std::lock_guard lock(mutex_);
        return record_;
    }

private:
    mutable std::mutex mutex_;
    Bytes record_;
};

Mailbox channel_records, power_records, switch_results;

void keep_channels(const void *record, int length) { channel_records.put(record, length); }
void keep_power(const void *record, int length) { power_records.put(record, length); }
void keep_result(const void *record, int length) { switch_results.put(record, length); }

// A survey answers "not yet" until its record is there; one that failed never reports, and the controller gives up.
Bytes fetch(const Mailbox &mailbox) {
    const Bytes record = mailbox.copy();
    Bytes answer(1 + record.size(), record.empty() ? not_yet : done);
    std::ranges::copy(record, answer.begin() + 1);
    return answer;
}

Bytes status(bool is_done) { return Bytes(1, is_done ? done : refused); }

// A start that is refused leaves the record of the run before.
Bytes start(Mailbox &mailbox, int (*start_run)(rfo_callback, const void *), rfo_callback keep, Argument argument) {
    Bytes before = mailbox.take();
    if (start_run(keep, argument.data()) == 0) return status(true);
    mailbox.put_back(std::move(before));
    return status(false);
}

Bytes start_channels(Argument argument) { return start(channel_records, set_ap_chan_optmz, keep_channels, argument); }
Bytes start_power(Argument argument) { return start(power_records, set_ap_power_optmz, keep_power, argument); }

Bytes switch_channels(Argument argument) {
    switch_results.take();
    return status(set_ap_chan_optmzCfg(keep_result, argument.data()) == 2);
}

Bytes set_power(Argument argument) {
    set_ap_power_optmzCfg(argument.data());
    return status(true);
}

// The library trusts a scene's own counts, so they are checked here, where the length is known.
bool is_whole_scene(Argument scene) {
    constexpr size_t head_size = 2 + 2, element_head_size = 1 + 1 + 2;
    if (scene.size() < head_size) return false;
    size_t at = head_size;
    for (unsigned int left = ap::le16(scene.data() + 2); left > 0; --left) {
        if (scene.size() - at < element_head_size) return false;
        const size_t value_size = ap::le16(scene.data() + at + 2);
        if (scene.size() - at - element_head_size < value_size) return false;
        at += element_head_size + value_size;
    }
    return true;
}

Bytes set_scene(Argument argument) {
    if (!is_whole_scene(argument)) return status(false);
    set_ap_scence_optmzCfg(argument.data());
    return status(true);
}

Bytes fetch_channel_record(Argument) { return fetch(channel_records); }
Bytes fetch_power_record(Argument) { return fetch(power_records); }
Bytes fetch_switch_result(Argument) { return fetch(switch_results); }

constexpr size_t any_size = SIZE_MAX;
constexpr struct {
    Question question;
    const char *what;
    size_t argument_size;
    Bytes (*answer)(Argument argument);
} commands[] = {
    {start_channel_survey, "channel survey", 2, start_channels},
    {start_power_survey, "power survey", 2, start_power},
    {fetch_channels, "", 0, fetch_channel_record},
    {fetch_power, "", 0, fetch_power_record},
    {apply_channels, "channels", 5, switch_channels},
    {fetch_result, "", 0, fetch_switch_result},
    {apply_power, "power", 2, set_power},
    {apply_scene, "scene", any_size, set_scene},
};

Bytes answer_to(uint8_t question, Argument argument) {
    for (const auto &command : commands) {
        if (command.question != question) continue;
        if (command.argument_size != any_size && command.argument_size != argument.size()) return status(false);
        Bytes answer = command.answer(argument);
        if (*command.what != '\0')
            std::printf("ap_agent: %s %s\n", command.what, answer.front() == done ? "taken" : "refused");
        return answer;
    }
    return status(false);
}

int handle(ms_session *session, char *data, int length) {
    if (length <= 0) return 0;
    const std::span<char> bytes(data, static_cast<size_t>(length));
    const Bytes message(bytes.begin(), bytes.end());
    const Bytes answer = answer_to(message.front(), Argument(message).subspan(1));
    ms_send(session, answer.data(), static_cast<int>(answer.size()));
    return 0;
}

}  // namespace

int main(int argc, char **argv) {
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    const std::string address = argc > 1 ? argv[1] : "tcp::" + std::to_string(agent_port);
    if (argc > 2 || !address.starts_with("tcp:")) return std::fputs("usage: ap_agent [tcp:ADDRESS:PORT]\n", stderr), 2;
    if (ms_server(address.c_str(), handle) == nullptr) return std::fputs("ap_agent: no endpoint\n", stderr), 1;
    ms_run();
}
