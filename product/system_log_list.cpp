// system_log_list.cpp: the newest lines of the system log as a table of time, type and message.
//
// Lines have the numbered form "TIME;TYPE_NUMBER;MESSAGE" or the daemon form "TIME [TYPE] [MODULE]: MESSAGE". They are
// read in pieces of at most 255 characters; each piece that is not empty counts as a line. Nothing is kept between two
// calls.

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <sys/stat.h>

#include "apsupport/foundation.h"
#include "apsupport/product.h"
#include "foundation/config_value.h"
#include "foundation/console.h"
#include "foundation/file_io.h"
#include "foundation/owned.h"

namespace ap {

namespace {

static_assert(sizeof(log_entry) == 16 + 32 + 16 + 256 && offsetof(log_entry, message) == 16 + 32 + 16);

constexpr char log_module[] = "prod";
constexpr size_t line_size = 256;  // with the NUL

struct LogLine {
    int type_number;
    char time[32], type[32], message[line_size];
};

const char *type_name(int number) {
    constexpr const char *names[] = {"", "System", "Web Filter", "WAN", "WAN", "WAN", "WAN", "", "LAN DHCP"};
    return number >= 0 && static_cast<size_t>(number) < std::size(names) ? names[number] : "";
}

bool read_numbered_form(const char *text, LogLine &line) {
    // NOLINTNEXTLINE(cert-err34-c): a number that does not fit names no type
    if (std::sscanf(text, "%31[^;];%d;%255[^\n]\n", line.time, &line.type_number, line.message) != 3) return false;
    copy_text(line.type, type_name(line.type_number));
    return true;
}

// A line of this form has type number 0.
bool read_daemon_form(const char *text, LogLine &line) {
    char module[32];  // not kept
    if (std::sscanf(text, "%31[^[] [%31[^]] %*[^[][%31[^]]]: %255[^\n]", line.time, line.type, module, line.message) !=
        4)
        return false;
    line.type_number = 0;
    str_trim_right(line.time, ' ');
    capitalize(line.type);
    sys_log__msgtype_convert(line.type, sizeof line.type);
    return true;
}

// The last `capacity` lines; each line has a buffer of its own.
class LineRing {
public:
    ~LineRing() {
        for (int i = 0; lines_ && i < capacity_; ++i) std::free(lines_.get()[i]);
    }
    bool allocate(int capacity) {
        lines_.reset(static_cast<char **>(std::calloc(static_cast<size_t>(capacity), sizeof(char *))));
        if (!lines_) return false;
        capacity_ = capacity;
        for (int i = 0; i < capacity; ++i) {
            lines_.get()[i] = static_cast<char *>(std::malloc(line_size));
            if (lines_.get()[i] == nullptr) return false;
        }
        return true;
    }
    void keep(const char *line) {
        copy_text(lines_.get()[next_], line_size, line);
        next_ = (next_ + 1) % capacity_;
        kept_ = std::min(kept_ + 1, capacity_);
    }
    int kept() const { return kept_; }
    // The line with this number, from 0 for the oldest that is kept.
    const char *line(int number) const {
        const int oldest = kept_ == capacity_ ? next_ : 0;
        return lines_.get()[(oldest + number) % capacity_];
    }

private:
    HeapPtr<char *> lines_;
    int capacity_ = 0, next_ = 0, kept_ = 0;
};

// A position from which reading on meets the last `wanted` lines that are kept, or `begin` when there are fewer. Line
// feeds are looked for backwards, block by block; the character behind one tells whether its line is kept.
off_t start_of_last_lines(int fd, off_t begin, off_t end, int wanted) {
    constexpr off_t block_size = 16384;
    char block[block_size + 1];  // the block, and the character behind it
    block[0] = '\n';
    while (end > begin) {
        const auto size = static_cast<size_t>(std::min(end - begin, block_size));
        const off_t position = end - static_cast<off_t>(size);
        block[size] = block[0];
        const ssize_t got = retry_interrupted([&] { return pread(fd, block, size, position); });
        if (got != static_cast<ssize_t>(size)) return begin;

        const auto feed_before = [&](size_t length) { return static_cast<char *>(memrchr(block, '\n', length)); };
        for (char *feed = feed_before(size); feed != nullptr; feed = feed_before(static_cast<size_t>(feed - block)))
            if (feed[1] != '\n' && feed[1] != '\0' && --wanted == 0) return position + (feed + 1 - block);
        end = position;
    }
    return begin;
}

// Leaves out what lies before the last `wanted` lines, where the stream is an ordinary file; they are the same lines as
// reading all of it would keep, since each line is cut into pieces from its own start.
void skip_older_lines(FILE *file, int wanted) {
    struct stat status;
    const off_t begin = ftello(file);
    if (begin < 0 || fstat(fileno(file), &status) != 0 || !S_ISREG(status.st_mode)) return;
    const off_t start = start_of_last_lines(fileno(file), begin, status.st_size, wanted);
    if (start > begin) fseeko(file, start, SEEK_SET);
}

void read_lines(FILE *file, LineRing &ring) {
    char line[line_size];
    while (std::fgets(line, sizeof line, file) != nullptr) {
        str_trim_right(line, '\n');
        if (line[0] != '\0') ring.keep(line);
    }
}

}  // namespace

}  // namespace ap

using namespace ap;

// Reads all of the stream from its position; the entries come in the order of the file, the oldest first. A line that
// is not taken leaves its entry as it was, and counts all the same.
int reverse_read_file(FILE *fp, struct log_entry *list, int logtype, int *count, int max) {
    if (fp == nullptr || list == nullptr || count == nullptr) return AP_ERROR(log_module, "arg is null."), 1;
    if (max <= 0) return *count = 0, 0;
    LineRing ring;
    if (!ring.allocate(max)) return AP_ERROR(log_module, "malloc is fail."), 1;
    skip_older_lines(fp, max);
    read_lines(fp, ring);
    for (int i = 0; i < ring.kept(); ++i) file_syslog_set_log_list_param(list, ring.line(i), logtype, i);
    *count = ring.kept();
    return 0;
}

int file_syslog_get_lists(struct log_entry *list, int logtype, int *count, int max) {
    constexpr char default_path[] = "/var/logs.txt";
    const ConfigValue path("syslogs.system.path");
    const UniqueFile file = open_file(path.empty() ? default_path : path.c_str());
    if (!file) return AP_ERROR(log_module, "fopen is fail. %s", std::strerror(errno)), 1;
    return reverse_read_file(file.get(), list, logtype, count, max);
}

int file_syslog_set_log_list_param(struct log_entry *list, const char *line, int logtype, int index) {
    if (list == nullptr || line == nullptr || index < 0) return AP_ERROR(log_module, "arg is null."), 1;
    LogLine parsed;
    if (!read_numbered_form(line, parsed) && !read_daemon_form(line, parsed))
        return AP_ERROR(log_module, "buf[%s]", line), 1;
    if (logtype != 0 && logtype != parsed.type_number)
        return AP_ERROR(log_module, "logtype[%d]  msgtype[%d]", logtype, parsed.type_number), 1;
    copy_text(list[index].time, parsed.time);
    copy_text(list[index].type, parsed.type);
    copy_text(list[index].message, parsed.message);
    return 0;
}

void capitalize(char *s) {
    if (!is_empty(s)) *s = static_cast<char>(std::toupper(static_cast<unsigned char>(*s)));
}

// `length` bounds both the comparison and the copy.
void sys_log__msgtype_convert(char *type, int length) {
    if (type == nullptr || length <= 0) return;
    const auto size = static_cast<size_t>(length);
    if (std::strncmp(type, "System", size) != 0) copy_text(type, size, "Debug");
}
