#include "util/dir_size.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <unordered_set>
#include <vector>

#include "runtime/log.h"
#include "runtime/shown_text.h"
#include "util/nofollow.h"
#include "util/unique_fd.h"
#include "util/walk_steps.h"

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

// A directory on the way down: its path (for messages), its identity (to
// know it again on the way up) and its entries, read whole when entered.
struct Level {
    std::string path;
    dev_t dev = 0;
    ino_t ino = 0;
    std::vector<std::string> names;
    std::size_t next = 0;
};

// Walks with a bounded number of descriptors however deep the tree is:
// only the directory being counted is open, and its parent is reopened
// through ".." (checked to be the one the walk came from) on the way up.
class TreeMeasure {
public:
    explicit TreeMeasure(SizeUnit unit) : unit_(unit) {}

    // false after reporting the failure.
    bool add_top(const char* path);
    unsigned long long result() const;

private:
    void add_entry(const struct stat& st);
    bool walk(crelm::util::UniqueFd top, const std::string& path);
    bool enter(int fd, const std::string& path);
    bool add_child(const std::string& name);
    bool climb();
    bool fail(const std::string& path);

    SizeUnit unit_;
    unsigned long long total_ = 0;
    std::unordered_set<InodeKey, InodeKeyHash> seen_links_;
    std::vector<Level> levels_;
    crelm::util::UniqueFd current_;
};

// The path holds names a mail user gave: it is shown escaped, so that none
// of their bytes starts a line or drives a terminal.
bool TreeMeasure::fail(const std::string& path) {
    report_error(0, 1, "Unable to measure size of %s", crelm::shown_text(path).c_str());
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

// The top is reached without following a link a mail user planted on the
// way (the mail name's home replaced by a link gives ELOOP).
bool TreeMeasure::add_top(const char* path) {
    const crelm::util::ParentDir parent = crelm::util::open_parent(path);
    struct stat st;
    if (!parent.fd.valid() || fstatat(parent.fd.get(), parent.name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0)
        return errno == ENOENT ? true : fail(path);
    add_entry(st);
    if (!S_ISDIR(st.st_mode))
        return true;
    crelm::util::UniqueFd top(openat(parent.fd.get(), parent.name.c_str(), kOpenDirFlags));
    if (!top.valid())
        return is_vanished(errno) || errno == ELOOP ? true : fail(path);
    return walk(std::move(top), path);
}

bool TreeMeasure::enter(int fd, const std::string& path) {
    struct stat st;
    Level level{path, 0, 0, {}, 0};
    if (fstat(fd, &st) != 0 || !crelm::util::read_directory_names(fd, level.names))
        return fail(path);
    level.dev = st.st_dev;
    level.ino = st.st_ino;
    levels_.push_back(std::move(level));
    return true;
}

bool TreeMeasure::walk(crelm::util::UniqueFd top, const std::string& path) {
    current_ = std::move(top);
    if (!enter(current_.get(), path))
        return false;
    while (!levels_.empty()) {
        Level& level = levels_.back();
        const bool ok = level.next == level.names.size() ? climb() : add_child(level.names[level.next++]);
        if (!ok)
            return false;
    }
    return true;
}

// Back up to the parent of a directory that is done.
bool TreeMeasure::climb() {
    if (levels_.size() == 1) {
        levels_.pop_back();
        current_.reset();
        return true;
    }
    const Level& parent = levels_[levels_.size() - 2];
    crelm::util::UniqueFd up = crelm::util::open_checked_parent(current_.get(), parent.dev, parent.ino);
    if (!up.valid())
        return fail(levels_.back().path);
    levels_.pop_back();
    current_ = std::move(up);
    return true;
}

bool TreeMeasure::add_child(const std::string& name) {
    const std::string path = levels_.back().path + "/" + name;
    struct stat st;
    if (fstatat(current_.get(), name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0)
        return is_vanished(errno) ? true : fail(path);
    add_entry(st);
    if (!S_ISDIR(st.st_mode))
        return true;
    crelm::util::UniqueFd below(openat(current_.get(), name.c_str(), kOpenDirFlags));
    if (!below.valid())
        return is_vanished(errno) || errno == ELOOP ? true : fail(path);
    if (!enter(below.get(), path))
        return false;
    current_ = std::move(below);
    return true;
}

}  // namespace

long long dir_size(const char* path, SizeUnit unit) {
    TreeMeasure measure(unit);
    if (!measure.add_top(path))
        return -1;
    return static_cast<long long>(measure.result());
}
