#include "util/dir_size.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <unordered_set>

#include "runtime/log.h"
#include "util/unique_fd.h"

namespace {

constexpr int kOpenDirFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

struct InodeKey {
    dev_t dev;
    ino_t ino;
    bool operator==(const InodeKey&) const = default;
};

struct InodeKeyHash {
    std::size_t operator()(const InodeKey& key) const noexcept {
        return std::hash<unsigned long long>()(key.ino) ^ (std::hash<unsigned long long>()(key.dev) << 1);
    }
};

bool is_vanished(int error) { return error == ENOENT || error == ENOTDIR; }

bool is_dot_or_dot_dot(const char* name) {
    return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

class TreeMeasure {
public:
    explicit TreeMeasure(SizeUnit unit) : unit_(unit) {}

    // false after reporting the failure.
    bool add_top(const char* path);
    unsigned long long result() const;

private:
    void add_entry(const struct stat& st);
    bool add_directory(int fd, const std::string& path);
    bool add_child(int dir_fd, const char* name, const std::string& dir_path);
    bool fail(const std::string& path);

    SizeUnit unit_;
    unsigned long long total_ = 0;
    std::unordered_set<InodeKey, InodeKeyHash> seen_links_;
};

bool TreeMeasure::fail(const std::string& path) {
    report_error(0, 1, "Unable to measure size of %s", path.c_str());
    return false;
}

void TreeMeasure::add_entry(const struct stat& st) {
    if (!S_ISDIR(st.st_mode) && st.st_nlink > 1 && !seen_links_.insert({st.st_dev, st.st_ino}).second)
        return;
    if (unit_ == SizeUnit::Bytes)
        total_ += static_cast<unsigned long long>(st.st_size);
    else
        total_ += static_cast<unsigned long long>(st.st_blocks) * 512ULL;
}

unsigned long long TreeMeasure::result() const {
    return unit_ == SizeUnit::Bytes ? total_ : (total_ + 1023) / 1024;
}

bool TreeMeasure::add_top(const char* path) {
    struct stat st;
    if (lstat(path, &st) != 0)
        return errno == ENOENT ? true : fail(path);
    add_entry(st);
    if (!S_ISDIR(st.st_mode))
        return true;
    const int fd = open(path, kOpenDirFlags);
    if (fd < 0)
        return is_vanished(errno) ? true : fail(path);
    return add_directory(fd, path);
}

bool TreeMeasure::add_child(int dir_fd, const char* name, const std::string& dir_path) {
    struct stat st;
    if (fstatat(dir_fd, name, &st, AT_SYMLINK_NOFOLLOW) != 0)
        return is_vanished(errno) ? true : fail(dir_path + "/" + name);
    add_entry(st);
    if (!S_ISDIR(st.st_mode))
        return true;
    const int fd = openat(dir_fd, name, kOpenDirFlags);
    if (fd < 0)
        return is_vanished(errno) || errno == ELOOP ? true : fail(dir_path + "/" + name);
    return add_directory(fd, dir_path + "/" + name);
}

// Takes ownership of fd.
bool TreeMeasure::add_directory(int fd, const std::string& path) {
    crelm::util::UniqueFd owned(fd);
    crelm::util::UniqueDir stream(fdopendir(fd));
    if (!stream.valid())
        return fail(path);
    owned.release();
    const int dir_fd = dirfd(stream.get());
    for (;;) {
        errno = 0;
        const dirent* entry = readdir(stream.get());
        if (entry == nullptr)
            return errno == 0 ? true : fail(path);
        if (is_dot_or_dot_dot(entry->d_name))
            continue;
        if (!add_child(dir_fd, entry->d_name, path))
            return false;
    }
}

}  // namespace

long long dir_size(const char* path, SizeUnit unit) {
    TreeMeasure measure(unit);
    if (!measure.add_top(path))
        return -1;
    return static_cast<long long>(measure.result());
}
