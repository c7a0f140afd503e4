// safe_file.h: files that last: written whole under another name, synced, renamed, and the folder synced.
#pragma once

#include <string>
#include <string_view>

namespace ap::host {

inline constexpr size_t largest_file = size_t{64} << 20;

// The whole content; false when the file cannot be read or is larger than `largest_file`. `error` says why.
bool read_whole_file(const char *path, std::string &content, std::string &error);

// Each of these is false, with errno set, when it could not be done.
bool write_synced_file(const char *path, std::string_view content);
bool sync_folder_of(const std::string &path);

// Replaces `path` by way of `temporary`, in the same folder. On failure the old file stands, and the temporary is gone.
bool replace_file(const std::string &path, const std::string &temporary, std::string_view content);

}  // namespace ap::host
