// log_archive.h: keeps the logs of /var over a restart.
#pragma once

namespace ap::host {

// Replaces "/cfg/log/log.tar.gz" by an archive of the log files of /var. On failure, which is logged, the old one
// stands.
void archive_logs();

}  // namespace ap::host
