#include "host/kit/Files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>

namespace {

std::string Reason(const char* what) { return std::string(what) + ": " + std::strerror(errno); }

bool WriteAll(int fd, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t written = write(fd, bytes.data(), bytes.size());
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return false;
        bytes.remove_prefix(static_cast<size_t>(written));
    }
    return true;
}

// The permissions a replacement gets: those of the file it replaces, else those of a new file.
mode_t ReplacementMode(const std::string& path) {
    struct stat old;
    if (stat(path.c_str(), &old) == 0) return old.st_mode & 07777;
    const mode_t mask = umask(0);  // reading the mask sets it: put it back at once
    umask(mask);
    return 0666 & ~mask;
}

}  // namespace

std::string AbsolutePath(const std::string& path) {
    if (path.empty() || path.front() == '/') return path;
    char folder[PATH_MAX];
    if (getcwd(folder, sizeof folder) == nullptr) return path;
    return std::string(folder) + "/" + path;
}

bool ReadWholeFile(const std::string& path, std::string& bytes, std::string& error, bool* missing, size_t limit) {
    if (missing != nullptr) *missing = false;
    bytes.clear();
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        if (missing != nullptr) *missing = errno == ENOENT;
        return error = Reason("cannot read"), false;
    }
    auto refuse = [&](std::string why) {
        close(fd);
        bytes.clear();
        bytes.shrink_to_fit();
        error = std::move(why);
        return false;
    };
    struct stat status;
    if (fstat(fd, &status) == 0) {
        if (S_ISDIR(status.st_mode)) return refuse("is a directory");
        // A regular file's size is known before reading it; a pipe or device is counted as it comes.
        if (S_ISREG(status.st_mode)) {
            if (static_cast<uint64_t>(status.st_size) > limit) return refuse("more than " + std::to_string(limit) + " bytes");
            try {
                bytes.reserve(static_cast<size_t>(status.st_size));
            } catch (const std::bad_alloc&) {
                return refuse("out of memory for its " + std::to_string(status.st_size) + " bytes");
            }
        }
    }
    char buffer[65536];
    for (;;) {
        const ssize_t got = read(fd, buffer, sizeof buffer);
        if (got == 0) break;
        if (got > 0) {
            if (bytes.size() + static_cast<size_t>(got) > limit) return refuse("more than " + std::to_string(limit) + " bytes");
            try {
                bytes.append(buffer, static_cast<size_t>(got));
            } catch (const std::bad_alloc&) {
                return refuse("out of memory after " + std::to_string(bytes.size()) + " bytes");
            }
        } else {
            // Interrupted too: a pipe that keeps a program waiting as it starts gives way to a
            // stop signal (regular files are never interrupted).
            return refuse(Reason("cannot read"));
        }
    }
    close(fd);
    return true;
}

namespace {

// The path the symbolic link at `path` leads to, one step; false when `path` is no link.
bool FollowLink(std::string& path) {
    struct stat status;
    if (lstat(path.c_str(), &status) != 0 || !S_ISLNK(status.st_mode)) return false;
    char target[PATH_MAX];
    const ssize_t length = readlink(path.c_str(), target, sizeof target - 1);
    if (length <= 0) return false;
    const std::string next(target, static_cast<size_t>(length));
    const size_t slash = path.rfind('/');
    path = next.front() == '/' || slash == std::string::npos ? next : path.substr(0, slash + 1) + next;
    return true;
}

constexpr int kMostLinks = 40;  // a loop of links ends somewhere

// The file a path names in the end: a symbolic link is followed (to a target that may not exist
// yet), so that replacing the file replaces the link's target and keeps the link.
std::string FinalPath(std::string path) {
    for (int hops = 0; hops < kMostLinks; ++hops)
        if (!FollowLink(path)) break;
    return path;  // after a loop of links, the rename below replaces the last one seen
}

// The descriptor a path such as /dev/stdout, /dev/fd/3 or /proc/self/fd/1 names, on the way
// through its links; -1 for any other path. Such a file is written through the descriptor the
// process already has, at its position, as a shell's redirection expects.
int DescriptorNamed(std::string path) {
    for (int hops = 0; hops < kMostLinks; ++hops) {
        for (const std::string_view folder : {"/dev/fd/", "/proc/self/fd/", "/proc/thread-self/fd/"}) {
            if (path.compare(0, folder.size(), folder) != 0) continue;
            int descriptor = -1;
            const char* end = path.data() + path.size();
            const auto read = std::from_chars(path.data() + folder.size(), end, descriptor);
            return read.ec == std::errc() && read.ptr == end ? descriptor : -1;
        }
        if (!FollowLink(path)) return -1;
    }
    return -1;
}

// A device, a pipe or a socket takes the bytes as they are written: there is no file to replace.
bool WriteThrough(const std::string& path, std::string_view bytes, std::string& error) {
    const int fd = open(path.c_str(), O_WRONLY | O_CLOEXEC);
    if (fd < 0) return error = Reason("cannot open"), false;
    bool done = WriteAll(fd, bytes);
    if (!done) error = Reason("cannot write");
    if (close(fd) != 0 && done) done = false, error = Reason("cannot write");
    return done;
}

// How `named` is written: refused (a folder), through a descriptor of the process, to the file as
// it is (a device, a pipe, a socket), or by replacing the file.
enum class Writing { kRefused, kDescriptor, kThrough, kReplace };
Writing WritingOf(const std::string& named, int& descriptor, std::string& error) {
    struct stat status;
    const bool exists = stat(named.c_str(), &status) == 0;
    if (exists && S_ISDIR(status.st_mode)) return error = "is a directory", Writing::kRefused;
    if ((descriptor = DescriptorNamed(named)) >= 0) return Writing::kDescriptor;
    if (exists && !S_ISREG(status.st_mode)) return Writing::kThrough;
    return Writing::kReplace;
}

}  // namespace

bool CanReplaceFile(const std::string& named, std::string& error) {
    int descriptor = -1;
    const Writing writing = WritingOf(named, descriptor, error);
    if (writing != Writing::kReplace) return writing != Writing::kRefused;
    std::string temporary = FinalPath(named) + ".XXXXXX";
    const int fd = mkostemp(temporary.data(), O_CLOEXEC);
    if (fd < 0) return error = Reason("cannot create a file beside it"), false;
    close(fd);
    unlink(temporary.c_str());
    return true;
}

bool ReplaceFile(const std::string& named, std::string_view bytes, std::string& error) {
    int descriptor = -1;
    switch (WritingOf(named, descriptor, error)) {
        case Writing::kRefused: return false;
        case Writing::kDescriptor: return WriteAll(descriptor, bytes) || (error = Reason("cannot write"), false);
        case Writing::kThrough: return WriteThrough(named, bytes, error);
        case Writing::kReplace: break;
    }
    const std::string path = FinalPath(named);
    const size_t slash = path.rfind('/');
    const std::string folder = slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
    std::string temporary = path + ".XXXXXX";
    const int fd = mkostemp(temporary.data(), O_CLOEXEC);
    if (fd < 0) return error = Reason("cannot create a file beside it"), false;
    fchmod(fd, ReplacementMode(path));  // mkostemp makes it private to its owner
    bool done = WriteAll(fd, bytes);
    if (!done) error = Reason("cannot write");
    if (done && fsync(fd) != 0) done = false, error = Reason("cannot flush");
    if (close(fd) != 0 && done) done = false, error = Reason("cannot write");
    if (done && rename(temporary.c_str(), path.c_str()) != 0) done = false, error = Reason("cannot replace");
    if (!done) {
        unlink(temporary.c_str());
        return false;
    }
    // The rename is durable once the folder's entry is on disk.
    const int dir = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dir >= 0) {
        fsync(dir);
        close(dir);
    }
    return true;
}

namespace {

// The file `path` names, links followed; a file that does not exist yet (a state its first save
// makes, perhaps through a link) by its folder, links followed, and its name.
std::string Resolved(std::string path) {
    // A link to a file not made yet is followed to the name it gives (as many links as the
    // system itself follows).
    for (int hop = 0;; ++hop) {
        if (char* whole = realpath(path.c_str(), nullptr)) {
            std::string resolved = whole;
            std::free(whole);
            return resolved;
        }
        char target[4096];
        const ssize_t length = hop < 40 ? readlink(path.c_str(), target, sizeof target) : -1;
        if (length <= 0 || static_cast<size_t>(length) >= sizeof target) break;
        std::string next(target, static_cast<size_t>(length));
        const size_t slash = path.find_last_of('/');
        if (next[0] != '/' && slash != std::string::npos) next = path.substr(0, slash + 1) + next;
        path = std::move(next);
    }
    const size_t slash = path.find_last_of('/');
    const std::string parent = slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
    char* folder = realpath(parent.c_str(), nullptr);
    if (folder == nullptr) return path;
    std::string resolved = std::string(folder) + "/" + path.substr(slash == std::string::npos ? 0 : slash + 1);
    std::free(folder);
    return resolved;
}

}  // namespace

bool SameFile(const std::string& a, const std::string& b) {
    if (a.empty() || b.empty()) return false;
    struct stat first {}, second {};
    if (stat(a.c_str(), &first) == 0 && stat(b.c_str(), &second) == 0)
        return first.st_dev == second.st_dev && first.st_ino == second.st_ino;
    return Resolved(a) == Resolved(b);
}

