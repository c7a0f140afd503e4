// foundation_config_bench.cpp: the configuration store against what lies under it, on a set of 5,000 values: a
// formatted typed read against a raw LMDB read, a counted write against a raw write transaction, and a commit against
// writing, syncing and renaming a file of the same bytes and syncing its folder. Run it in a device box.
//
// A box keeps /cfg in memory, where syncing costs nothing and there is little to compare with. So the folder of this
// program is laid over it first, to have the commits on a disk.

#include <benchmark/benchmark.h>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <lmdb.h>
#include <string>
#include <sys/mount.h>
#include <unistd.h>
#include <vector>

#include "applatform/config_store.h"
#include "apsupport/foundation.h"
#include "bench/support/compare.h"

namespace {

constexpr int key_count = 5000;
constexpr const char *key_format = "bench.entry.list%d";
constexpr const char *value_format = "%d;192.168.%d.100;192.168.%d.200;255.255.255.0;86400";

std::string key_of(int number) {
    char key[64];
    std::snprintf(key, sizeof key, key_format, number);
    return key;
}
std::string value_of(int number) {
    char value[128];
    std::snprintf(value, sizeof value, value_format, number, number % 256, number % 256);
    return value;
}

const std::vector<std::string> &all_keys() {
    static const std::vector<std::string> keys = [] {
        std::vector<std::string> made(key_count);
        for (int i = 0; i < key_count; ++i) made[static_cast<size_t>(i)] = key_of(i);
        return made;
    }();
    return keys;
}

[[noreturn]] void stop(const char *why) {
    std::perror(why);
    std::exit(1);
}

// An environment of our own with the same content and history, opened as the store opens its own.
struct Raw {
    MDB_env *environment = nullptr;
    MDB_dbi values = 0;

    Raw() {
        mdb_env_create(&environment);
        mdb_env_set_mapsize(environment, size_t{64} << 20);
        if (mdb_env_open(environment, "/var/run/bench.db", MDB_NOSUBDIR | MDB_NOTLS | MDB_NOSYNC, 0600) != 0)
            stop("/var/run/bench.db");
        MDB_txn *transaction = begin(0);
        mdb_dbi_open(transaction, nullptr, 0, &values);
        mdb_txn_commit(transaction);
        for (int i = 0; i < key_count; ++i) write(key_of(i), value_of(i));
    }
    MDB_txn *begin(unsigned flags) const {
        MDB_txn *transaction = nullptr;
        if (mdb_txn_begin(environment, nullptr, flags, &transaction) != 0) stop("transaction");
        return transaction;
    }
    void write(const std::string &key, const std::string &value) const {
        MDB_val name{key.size(), const_cast<char *>(key.data())},
            content{value.size(), const_cast<char *>(value.data())};
        MDB_txn *transaction = begin(0);
        if (mdb_put(transaction, values, &name, &content, 0) != 0) stop("put");
        if (mdb_txn_commit(transaction) != 0) stop("commit");
    }
};

Raw &raw() {
    static Raw instance;
    return instance;
}

void TypedRead(benchmark::State &state) {
    int i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(prod_cfm_get_int_val(key_format, i));
        i = (i + 1) % key_count;
    }
}
BENCHMARK(TypedRead);

void RawLmdbRead(benchmark::State &state) {
    const std::vector<std::string> &keys = all_keys();
    MDB_txn *transaction = raw().begin(MDB_RDONLY);
    mdb_txn_reset(transaction);
    size_t i = 0;
    for (auto _ : state) {
        MDB_val name{keys[i].size(), const_cast<char *>(keys[i].data())}, value;
        mdb_txn_renew(transaction);
        if (mdb_get(transaction, raw().values, &name, &value) != 0) stop("get");
        benchmark::DoNotOptimize(value);
        mdb_txn_reset(transaction);
        i = (i + 1) % keys.size();
    }
    mdb_txn_abort(transaction);
}
BENCHMARK(RawLmdbRead);

// The store's own read, without the formatting and the conversion of the typed one.
void PlainRead(benchmark::State &state) {
    const std::vector<std::string> &keys = all_keys();
    char value[2308];
    size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(GetValue(keys[i].c_str(), value));
        i = (i + 1) % keys.size();
    }
}
BENCHMARK(PlainRead);

void CountedWrite(benchmark::State &state) {
    const std::string key = key_of(key_count / 2), values[] = {value_of(1), value_of(2)};
    static size_t i = 0;  // a run that started with the last one's value would not write
    for (auto _ : state)
        if (prod_cfm_set_val(key.c_str(), values[++i % 2].c_str()) != 1) stop("set");
}
BENCHMARK(CountedWrite);

void RawLmdbWrite(benchmark::State &state) {
    const std::string key = key_of(key_count / 2), values[] = {value_of(1), value_of(2)};
    size_t i = 0;
    for (auto _ : state) raw().write(key, values[++i % 2]);
}
BENCHMARK(RawLmdbWrite);

void Commit(benchmark::State &state) {
    int i = 0;
    for (auto _ : state) {
        SetValue(key_of(0).c_str(), value_of(++i).c_str());  // an unchanged set would not be written
        if (CommitCfm() != 1) stop("CommitCfm");
    }
}
BENCHMARK(Commit)->Unit(benchmark::kMicrosecond)->Repetitions(7)->UseRealTime();

std::string committed_bytes() {
    std::string content;
    FILE *file = std::fopen("/cfg/cfm.cfg", "r");
    if (file == nullptr) stop("/cfg/cfm.cfg");
    for (int c = std::fgetc(file); c != EOF; c = std::fgetc(file)) content.push_back(static_cast<char>(c));
    std::fclose(file);
    return content;
}

void WriteSyncRename(benchmark::State &state) {
    CommitCfm();
    const std::string content = committed_bytes();
    const int folder = open("/cfg", O_RDONLY | O_DIRECTORY);
    for (auto _ : state) {
        const int file = open("/cfg/bench.next", O_WRONLY | O_CREAT | O_TRUNC, 0600);
        if (write(file, content.data(), content.size()) != static_cast<ssize_t>(content.size())) stop("write");
        if (fsync(file) != 0 || close(file) != 0) stop("sync");
        if (std::rename("/cfg/bench.next", "/cfg/bench.cfg") != 0 || fsync(folder) != 0) stop("rename");
    }
    close(folder);
}
BENCHMARK(WriteSyncRename)->Unit(benchmark::kMicrosecond)->Repetitions(7)->UseRealTime();

void put_cfg_on_disk() {
    const std::string folder = std::filesystem::read_symlink("/proc/self/exe").parent_path() / "bench-cfg";
    std::error_code error;
    std::filesystem::create_directory(folder, error);
    if (mount(folder.c_str(), "/cfg", nullptr, MS_BIND, nullptr) != 0) std::perror("bench: /cfg stays in memory");
}

bool fill_store() {
    for (int i = 0; i < key_count; ++i)
        if (SetValue(key_of(i).c_str(), value_of(i).c_str()) != 1) return false;
    return true;
}

}  // namespace

int main(int argc, char **argv) {
    if (access("/.apbox", F_OK) != 0) return std::fputs("run this in a device box: apbox run -- PROGRAM\n", stderr), 1;
    put_cfg_on_disk();
    if (!fill_store()) return std::fputs("the configuration store cannot be filled\n", stderr), 1;
    return bench::run_and_compare(argc, argv,
                                  {{"formatted typed read : raw LMDB read", "TypedRead", "RawLmdbRead", 2.0},
                                   {"counted write : raw write transaction", "CountedWrite", "RawLmdbWrite", 1.3},
                                   {"commit of 5,000 values : write, sync, rename, sync", "Commit/repeats:7/real_time",
                                    "WriteSyncRename/repeats:7/real_time", 1.3}});
}
