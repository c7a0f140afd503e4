// process_lock.cpp: takes the record lock; closing the file gives it back.

#include "platform/host/process_lock.h"

#include "foundation/file_io.h"

namespace ap::host {

ProcessLock::ProcessLock(pthread_mutex_t &mutex, const char *path)
    : mutex_(mutex), file_(ap::open_fd(path, O_RDWR | O_CREAT, 0600)) {
    struct flock whole_file = {};
    whole_file.l_type = F_WRLCK;
    whole_file.l_whence = SEEK_SET;
    held_ = file_ && ap::retry_interrupted([&] { return fcntl(file_.get(), F_SETLKW, &whole_file); }) == 0;
}

}  // namespace ap::host
