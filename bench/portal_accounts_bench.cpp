// portal_accounts_bench.cpp: log-in checks and the expiry sweep over 5,000 accounts, against a bare walk of lists of
// the same records.

#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>
#include <string>
#include <vector>

#include "apsupport/portal.h"
#include "bench/support/compare.h"
#include "bench/support/quiet.h"
#include "portal/web_users.h"

namespace {

constexpr int account_count = 5000;
constexpr std::string_view alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789._-";

time_t now_s = 1'700'000'000;

// `buckets` of them hold the accounts evenly: 65, or all in one.
struct Accounts {
    explicit Accounts(size_t buckets) : requests(account_count), lists(alphabet.size()) {
        const bench::Quiet quiet;
        for (size_t i = 0; i < requests.size(); ++i) {
            const size_t bucket = i % buckets;
            portal_web_record record = {};
            std::snprintf(record.user_name, sizeof record.user_name, "%c%d", alphabet[bucket], static_cast<int>(i));
            std::memcpy(record.password, "secret", 6);
            record.shared = record.expires = 1;
            std::memcpy(record.expiry_date, "2100-1-1 0:0", 12);
            tpi_ap_portal_add_web_user(1, &record);
            std::memcpy(requests[i].user_name, record.user_name, sizeof record.user_name);
            std::memcpy(requests[i].password, record.password, sizeof record.password);
            std::memcpy(requests[i].mac, "02:00:00:00:00:01", 17);
            tpi_ap_portal_check_web_user(&requests[i]);
            push_bare(bucket, record);
        }
    }
    ~Accounts() {
        for (auto &request : requests) tpi_ap_portal_del_web_user(&request);
    }
    Accounts(const Accounts &) = delete;
    Accounts &operator=(const Accounts &) = delete;

    std::vector<portal_web_request> requests;
    std::vector<ap::WebUser *> lists;

private:
    void push_bare(size_t bucket, const portal_web_record &record) {
        records_.push_back(std::make_unique<ap::WebUser>());
        ap::WebUser &user = *records_.back();
        std::memcpy(user.user_name, record.user_name, sizeof user.user_name);
        user.expires = 1;
        user.expiry_time = UINT32_MAX;
        user.next = std::exchange(lists[bucket], &user);
    }
    std::vector<std::unique_ptr<ap::WebUser>> records_;
};

const ap::WebUser *bare_walk(const Accounts &accounts, const portal_web_request &request) {
    const ap::WebUser *user = accounts.lists[alphabet.find(request.user_name[0])];
    while (user != nullptr && std::strncmp(user->user_name, request.user_name, sizeof user->user_name) != 0)
        user = user->next;
    return user;
}

// Each step checks another account, in an order that meets all depths.
template <typename Check> void check_all(benchmark::State &state, Check check) {
    const Accounts accounts(static_cast<size_t>(state.range(0)));
    size_t next = 0;
    for ([[maybe_unused]] auto step : state) {
        next = (next + 1009) % accounts.requests.size();
        if (!check(accounts, accounts.requests[next])) return state.SkipWithError("an account is missing");
    }
}

void LogIn(benchmark::State &state) {
    check_all(state,
              [](const Accounts &, const auto &request) { return tpi_ap_portal_check_web_user(&request) == 15; });
}
void BareLogIn(benchmark::State &state) {
    check_all(state,
              [](const Accounts &accounts, const auto &request) { return bare_walk(accounts, request) != nullptr; });
}
BENCHMARK(LogIn)->Arg(65)->Arg(1);
BENCHMARK(BareLogIn)->Arg(65)->Arg(1);

void Sweep(benchmark::State &state) {
    const Accounts accounts(65);
    portal_kick_batch batch = {};
    for ([[maybe_unused]] auto step : state) {
        now_s += 61;
        tpi_web_user_timeout(&batch);
    }
}
void BareSweep(benchmark::State &state) {
    const Accounts accounts(65);
    for ([[maybe_unused]] auto step : state) {
        int due = 0;
        for (const ap::WebUser *user : accounts.lists)
            for (; user != nullptr; user = user->next) due += user->expires != 0 && user->expiry_time < now_s ? 1 : 0;
        benchmark::DoNotOptimize(due);
    }
}
BENCHMARK(Sweep);
BENCHMARK(BareSweep);

}  // namespace

extern "C" {
time_t time(time_t *out) { return out == nullptr ? now_s : *out = now_s; }
int doSystemCmd(const char *, ...) { return 0; }
}

int main(int argc, char **argv) {
    return bench::run_and_compare(argc, argv,
                                  {{"log-in check, 5,000 accounts over 65 buckets", "LogIn/65", "BareLogIn/65", 1.5},
                                   {"log-in check, 5,000 accounts in one bucket", "LogIn/1", "BareLogIn/1", 1.5},
                                   {"expiry sweep of 5,000 accounts", "Sweep", "BareSweep", 1.5}});
}
