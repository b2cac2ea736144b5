// Whole-file reading and crash-safe replacement, for the files a host reads and keeps.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

// `path` made absolute against the current directory (as it stands now), so that it keeps naming
// the same file after the program moves elsewhere.
std::string AbsolutePath(const std::string& path);

// True when `a` and `b` name one file, however each names it (links, "..", another folder's
// view); a file that does not exist yet counts by its folder and its name.
bool SameFile(const std::string& a, const std::string& b);

// `text` without the UTF-8 byte order mark an editor may put first.
inline std::string_view WithoutByteOrderMark(std::string_view text) {
    return text.substr(0, 3) == "\xEF\xBB\xBF" ? text.substr(3) : text;
}

// Files read whole (a workspace, a state, a transcript, a token) are far smaller than this; a
// device or pipe that never ends is refused once it has given this much.
constexpr size_t kLargestRead = size_t{1} << 30;

// Reads the file at `path` (a pipe too) into `bytes`. False with `error` set to "cannot read:
// <reason>", "is a directory" or "more than LIMIT bytes"; `missing` tells whether it failed only
// because there is no such file.
bool ReadWholeFile(const std::string& path, std::string& bytes, std::string& error, bool* missing = nullptr,
                   size_t limit = kLargestRead);

// Replaces the file at `path` by `bytes` so that a crash at any moment leaves either the old file
// or the new one, never a mix: the bytes go to a new file in the same folder, which is flushed to
// disk, renamed over `path`, and then the folder itself is flushed. False with `error` set when any
// step fails; the old file is then untouched and the temporary file removed.
// A symbolic link is followed: its target is replaced and the link stays. A path that names a
// descriptor of the process (/dev/stdout, /dev/fd/N, /proc/self/fd/N) is written through that
// descriptor, where it stands; one that names a device, a pipe or a socket is written to as it
// is, never replaced; a folder is refused.
bool ReplaceFile(const std::string& path, std::string_view bytes, std::string& error);
// Whether ReplaceFile could replace `path` now: the file beside it can be made (it is made and
// removed at once). What would be written to as it is (a descriptor, a device, a pipe) is not
// opened, so as not to wait for a reader. False with `error` as ReplaceFile would set it.
bool CanReplaceFile(const std::string& path, std::string& error);
