// record_lock.cpp: locks a whole file between processes, without waiting for a holder that is seen.

#include <cerrno>
#include <cstring>
#include <fcntl.h>

#include "apsupport/product.h"
#include "foundation/console.h"

namespace ap {

namespace {

struct flock whole_file(int type) {
    struct flock lock = {};
    lock.l_type = static_cast<short>(type);
    lock.l_whence = SEEK_SET;
    return lock;
}

}  // namespace

}  // namespace ap

int lock_set(int fd, int type) {
    if (type != F_UNLCK) {
        struct flock holder = ap::whole_file(type);
        if (fcntl(fd, F_GETLK, &holder) < 0) {
            AP_ERROR("prod", "Failed(%d) to F_GETLK, %s.", errno, std::strerror(errno));
            return 0;
        }
        if (holder.l_type != F_UNLCK) {
            AP_ERROR("prod", "already locked by pid_%d (t=%d)", static_cast<int>(holder.l_pid), holder.l_type);
            return 0;
        }
    }
    struct flock lock = ap::whole_file(type);
    if (fcntl(fd, F_SETLKW, &lock) < 0) {
        AP_ERROR("prod", "Failed(%d) to F_SETLKW(%d), %s.", errno, type, std::strerror(errno));
        return 0;
    }
    return 1;
}
