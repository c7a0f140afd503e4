// log_archive.cpp: the log files as a compressed archive on flash, "/cfg/log/log.tar.gz" in ustar form: a heading of
// 512 bytes a file, its content filled up to 512 bytes, and two empty blocks behind the last. What goes in: the
// platform's log, the one before it, and the error logs "/var/debug.*.log".

#include "platform/host/log_archive.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <numeric>
#include <stdexcept>
#include <string>
#include <sys/stat.h>
#include <vector>
#include <zlib.h>

#include "applatform/commands.h"
#include "foundation/text.h"
#include "platform/host/safe_file.h"

namespace ap::host {

namespace {

constexpr size_t block_size = 512;
constexpr const char *log_folder = "/var/", *archive_folder = "/cfg/log", *archive_path = "/cfg/log/log.tar.gz";

struct TarHeading {
    char name[100], mode[8], owner[8], group[8], size[12], time[12], checksum[8], type, link[100];
    char magic[6], version[2], owner_name[32], group_name[32], major[8], minor[8], prefix[155], padding[12];
};
static_assert(sizeof(TarHeading) == block_size && offsetof(TarHeading, checksum) == 148 &&
              offsetof(TarHeading, magic) == 257);

template <size_t N> void put_octal(char (&field)[N], unsigned long number) {
    std::snprintf(field, N, "%0*lo", static_cast<int>(N - 1), number);
}

// The sum of the heading's bytes, with the checksum's own field as blanks.
unsigned long checksum_of(TarHeading heading) {
    std::memset(heading.checksum, ' ', sizeof heading.checksum);
    const auto *bytes = reinterpret_cast<const unsigned char *>(&heading);
    return std::accumulate(bytes, bytes + sizeof heading, 0ul);
}

void append_file(std::string &archive, const std::string &name, const std::string &content) {
    TarHeading heading = {};
    ap::copy_text(heading.name, name);
    put_octal(heading.mode, 0600);
    put_octal(heading.owner, 0);
    put_octal(heading.group, 0);
    put_octal(heading.size, content.size());
    put_octal(heading.time, static_cast<unsigned long>(time(nullptr)));
    heading.type = '0';
    std::memcpy(heading.magic, "ustar", sizeof heading.magic);
    std::memset(heading.version, '0', sizeof heading.version);
    put_octal(heading.checksum, checksum_of(heading));
    archive.append(reinterpret_cast<const char *>(&heading), sizeof heading).append(content);
    archive.append((block_size - archive.size() % block_size) % block_size, '\0');
}

bool is_log_name(const std::string &name) {
    return name == "logs.txt" || name == "logs.txt.0" || (name.starts_with("debug.") && name.ends_with(".log"));
}

std::vector<std::string> log_names() {
    std::vector<std::string> names;
    for (const auto &entry : std::filesystem::directory_iterator(log_folder))
        if (is_log_name(entry.path().filename())) names.push_back(entry.path().filename());
    std::ranges::sort(names);
    return names;
}

std::string compressed(const std::string &content) {
    constexpr int gzip_window = 15 + 16, memory_level = 8;
    z_stream stream = {};
    if (deflateInit2(&stream, Z_BEST_COMPRESSION, Z_DEFLATED, gzip_window, memory_level, Z_DEFAULT_STRATEGY) != Z_OK)
        throw std::runtime_error("no memory to compress it");
    std::string packed(deflateBound(&stream, static_cast<uLong>(content.size())), '\0');
    stream.next_in = reinterpret_cast<Bytef *>(const_cast<char *>(content.data()));
    stream.avail_in = static_cast<uInt>(content.size());
    stream.next_out = reinterpret_cast<Bytef *>(packed.data());
    stream.avail_out = static_cast<uInt>(packed.size());
    const int result = deflate(&stream, Z_FINISH);
    packed.resize(stream.total_out);
    deflateEnd(&stream);
    if (result != Z_STREAM_END) throw std::runtime_error("it cannot be compressed");
    return packed;
}

}  // namespace

void archive_logs() {
    std::string archive;
    for (const std::string &name : log_names()) {
        std::string content, error;
        if (read_whole_file((log_folder + name).c_str(), content, error)) append_file(archive, name, content);
    }
    archive.append(2 * block_size, '\0');
    mkdir(archive_folder, 0700);
    if (!replace_file(archive_path, std::string(archive_path) + ".next", compressed(archive)))
        throw std::runtime_error(std::string(archive_path) + ": " + std::strerror(errno));
}

}  // namespace ap::host
