// shared_memory.cpp: named System V segments, each bound to a file "/var/run/shm.NAME".
//
// The process that creates a segment appends a line to "/var/run/id.shm". While the debug table is not attached the
// file is created in silence, since the debug log would come back here for the table that it needs.

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <sys/ipc.h>
#include <sys/shm.h>

#include "apsupport/foundation.h"
#include "foundation/console.h"
#include "foundation/debug_table.h"
#include "foundation/file_io.h"
#include "foundation/process_name.h"

namespace ap {

namespace {

constexpr int project_id = 1;
constexpr char segment_log[] = "/var/run/id.shm";

void create_segment_file(const char *path) {
    if (debug_table_if_attached() != nullptr) {
        touch_file(path);
    } else {
        open_fd(path, O_RDWR | O_CREAT);
    }
}

// Opens the segment, or creates it; -1 with errno set when neither works.
int open_segment(key_t key, size_t size, bool &is_new) {
    const int created = shmget(key, size, 0666 | IPC_CREAT | IPC_EXCL);
    is_new = created >= 0;
    if (is_new || errno != EEXIST) return created;
    return shmget(key, size, 0666);
}

void note_new_segment(key_t key, int id, const char *path) {
    char line[256];
    const int length = std::snprintf(line, sizeof line, "0x%08x id=%8d %5d/%-15s %s\n", static_cast<unsigned int>(key),
                                     id, static_cast<int>(getpid()), self_name_quietly(), path);
    const UniqueFd log = open_fd(segment_log, O_WRONLY | O_CREAT | O_APPEND);
    if (log) write_full(log.get(), line, static_cast<size_t>(length));
}

}  // namespace

}  // namespace ap

void *get_shared_memory(const char *name, size_t size) {
    if (name == nullptr) {
        AP_CONSOLE(ap::Colour::red, "Failed to get shared memory, invalid arguments.");
        return nullptr;
    }
    char path[128];
    std::snprintf(path, sizeof path, "/var/run/shm.%.114s", name);
    ap::create_segment_file(path);

    const key_t key = ftok(path, ap::project_id);
    if (key == -1) {
        AP_CONSOLE(ap::Colour::red, "Failed(%d) to call ftok(%s, %s.", errno, path, std::strerror(errno));
        return nullptr;
    }
    bool is_new = false;
    const int id = ap::open_segment(key, size, is_new);
    if (id < 0) {
        AP_CONSOLE(ap::Colour::red, "Failed(%d) to create shared memory %s, %s.", errno, name, std::strerror(errno));
        return nullptr;
    }
    void *address = shmat(id, nullptr, 0);
    if (reinterpret_cast<intptr_t>(address) == -1) {
        AP_CONSOLE(ap::Colour::red, "Failed(%d) to attach shared memory %s(%d), %s.", errno, name, id,
                   std::strerror(errno));
        return nullptr;
    }
    if (is_new) ap::note_new_segment(key, id, path);
    return address;
}
