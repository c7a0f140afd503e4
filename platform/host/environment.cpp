// environment.cpp: opening a working set. Processes that start at the same time take turns under the start lock.
//
// LMDB maps its lock file for writing and leaves it sparse, so that on a full file system the first touch of a new page
// would kill the process; its zeros are written here first, where running out of room is an error like others. The file
// that LMDB leaves when it runs out of room while it makes one is too short to be opened and is made anew. The first
// load is one transaction, with a mark that it is done: killed half-way, the next process starts over.

#include "platform/host/environment.h"

#include <cctype>
#include <cerrno>
#include <string>
#include <sys/stat.h>

#include "applatform/commands.h"
#include "foundation/file_io.h"

namespace ap::host {

namespace {

constexpr std::string_view filled_mark = "=filled";

// LMDB's heading and a place of 64 bytes a reader, in whole pages.
constexpr size_t lock_file_size = 1024 + size_t{most_readers} * 64 + 512;
static_assert(lock_file_size % 4096 == 0);

struct CloseEnvironment {
    void operator()(MDB_env *handle) const { mdb_env_close(handle); }
};
using OwnedHandle = std::unique_ptr<MDB_env, CloseEnvironment>;

int fill_lock_file(const std::string &path) {
    const ap::UniqueFd file = ap::open_fd(path.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
    struct stat status;
    if (!file || fstat(file.get(), &status) != 0) return errno;
    const auto size = static_cast<size_t>(status.st_size);
    if (size >= lock_file_size) return 0;
    const std::string zeros(lock_file_size - size, '\0');
    return ap::write_full(file.get(), zeros.data(), zeros.size()) ? 0 : errno;
}

int remove_unfinished_file(const char *path) {
    constexpr long heading_pages = 2;
    struct stat status;
    if (stat(path, &status) != 0 || status.st_size >= heading_pages * sysconf(_SC_PAGESIZE)) return 0;
    return unlink(path) == 0 ? 0 : errno;
}

// LMDB lets commands inherit the descriptor of its data.
int close_on_exec(MDB_env *handle) {
    int file = -1;
    if (const int error = mdb_env_get_fd(handle, &file)) return error;
    return fcntl(file, F_SETFD, FD_CLOEXEC) == 0 ? 0 : errno;
}

int open_handle(const StoreFiles &files, OwnedHandle &handle) {
    if (const int error = fill_lock_file(std::string(files.working_set) + "-lock")) return error;
    if (const int error = remove_unfinished_file(files.working_set)) return error;
    MDB_env *created = nullptr;
    if (const int error = mdb_env_create(&created)) return error;
    handle.reset(created);
    mdb_env_set_mapsize(created, working_set_limit);
    mdb_env_set_maxreaders(created, most_readers);
    if (const int error = mdb_env_open(created, files.working_set, MDB_NOSUBDIR | MDB_NOTLS | MDB_NOSYNC, 0600))
        return error;
    return close_on_exec(created);
}

int fill_when_fresh(Environment &environment, const StoreFiles &files) {
    const int error = write_once(environment, [&](MDB_txn *transaction) {
        if (const int failed = mdb_dbi_open(transaction, nullptr, 0, &environment.values)) return failed;
        if (const int failed = put_filled_mark(transaction, environment.values)) return failed;
        return put_all(transaction, environment.values, first_values(files));
    });
    return error == MDB_KEYEXIST ? 0 : error;
}

}  // namespace

int open_environment(const StoreFiles &files, Environment *&environment) {
    OwnedHandle handle;
    if (const int error = open_handle(files, handle)) return error;
    auto opened = std::make_unique<Environment>();
    opened->handle = handle.get();
    clear_dead_readers(*opened);
    if (const int error = fill_when_fresh(*opened, files)) return error;
    (void)handle.release();
    environment = opened.release();
    return 0;
}

int put_value(MDB_txn *transaction, MDB_dbi values, std::string_view key, std::string_view value) {
    MDB_val name = bytes_of(key), content = bytes_of(value);
    return mdb_put(transaction, values, &name, &content, 0);
}

int put_all(MDB_txn *transaction, MDB_dbi values, const Entries &entries) {
    for (const Entry &entry : entries)
        if (const int error = put_value(transaction, values, entry.key, entry.value)) return error;
    return 0;
}

int put_filled_mark(MDB_txn *transaction, MDB_dbi values) {
    MDB_val name = bytes_of(filled_mark), content = bytes_of("1");
    return mdb_put(transaction, values, &name, &content, MDB_NOOVERWRITE);
}

bool clear_dead_readers(const Environment &environment) {
    int dead = 0;
    return mdb_reader_check(environment.handle, &dead) == 0 && dead > 0;
}

bool has_reader_at_work(const Environment &environment) {
    // LMDB tells a line a reader: process, thread, and what it reads, a number or "-".
    const auto note_number = [](const char *line, void *found) {
        const std::string_view text(line);
        if (text.size() > 1 && std::isdigit(static_cast<unsigned char>(text[text.size() - 2])))
            *static_cast<bool *>(found) = true;
        return 0;
    };
    bool found = false;
    mdb_reader_list(environment.handle, note_number, &found);
    return found;
}

void log_store_error(const char *path, int error) {
    constexpr int level_error = 2;
    log_debug_print(__func__, __LINE__, level_error, "cfm", "%s: %s", path, mdb_strerror(error));
}

}  // namespace ap::host
