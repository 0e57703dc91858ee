#include "audit/mail_home_walk.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <unordered_map>
#include <unordered_set>

#include "audit/leftover_temporaries.h"
#include "mailbox/directory_entries.h"
#include "mailbox/open_directory.h"
#include "util/unique_fd.h"
#include "util/walk_steps.h"

namespace crelm::audit {

namespace {

constexpr const char* kAttachments = "@attachments";
// The directories of the first levels stay open while the walk is below
// them, so that a Maildir++ tree (home, Maildir, folder, cur) is walked
// without climbing back through ".."; deeper ones are closed.
constexpr std::size_t kHeldLevels = 4;

struct Frame {
    dev_t dev = 0;
    ino_t ino = 0;
    std::string path;  // relative to the home; "" for the home itself
    std::vector<std::string> subdirs;
    std::size_t next = 0;
    bool in_attachments = false;
    bool holds_watched = false;
    util::UniqueFd held;  // the directory itself while the walk is below it
};

std::string joined(const std::string& dir, const std::string& name) {
    return dir.empty() ? name : dir + "/" + name;
}

class Walker {
public:
    Walker(const std::vector<std::string>& watched_paths, HomeWalk& walk) : walk_(walk) {
        walk_.watched.assign(watched_paths.size(), std::nullopt);
        for (std::size_t i = 0; i < watched_paths.size(); ++i) {
            watched_[watched_paths[i]] = i;
            const std::size_t slash = watched_paths[i].rfind('/');
            parents_.insert(slash == std::string::npos ? std::string() : watched_paths[i].substr(0, slash));
        }
    }

    void run(int home_fd);

private:
    bool list(int fd, Frame& frame);
    void note(const Frame& frame, const char* name, const struct stat& info);
    void unsafe(const Frame& frame, const char* name, UnsafeKind kind);
    void fail(const std::string& path, int error) {
        if (walk_.failure.empty())
            walk_.failure = (path.empty() ? std::string(".") : path) + ": " + std::strerror(error);
    }

    HomeWalk& walk_;
    std::unordered_map<std::string, std::size_t> watched_;
    std::unordered_set<std::string> parents_;
};

void Walker::unsafe(const Frame& frame, const char* name, UnsafeKind kind) {
    if (walk_.unsafe_count++ < kUnsafeKept)
        walk_.unsafe.push_back({joined(frame.path, name), kind});
}

void Walker::note(const Frame& frame, const char* name, const struct stat& info) {
    if (frame.in_attachments)
        walk_.attachments_bytes += info.st_size;
    if (S_ISLNK(info.st_mode))
        unsafe(frame, name, UnsafeKind::link);
    else if (!S_ISDIR(info.st_mode) && !S_ISREG(info.st_mode))
        unsafe(frame, name, UnsafeKind::special);
    else if (S_ISREG(info.st_mode) && info.st_nlink > 1)
        unsafe(frame, name, UnsafeKind::hard_link);
    if (frame.holds_watched) {
        const auto found = watched_.find(joined(frame.path, name));
        if (found != watched_.end())
            walk_.watched[found->second] = info;
    }
}

// Examines every entry of the directory open on fd and keeps the names of
// its subdirectories for later.
bool Walker::list(int fd, Frame& frame) {
    mailbox::DirectoryEntries entries(fd);
    mailbox::DirectoryEntry entry;
    while (entries.next(entry)) {
        const std::string name(entry.name);
        struct stat info {};
        if (::fstatat(fd, name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0) {
            if (errno != ENOENT)  // gone meanwhile: delivered mail moves
                fail(joined(frame.path, name), errno);
            continue;
        }
        const bool attachments = frame.path.empty() && name == kAttachments && S_ISDIR(info.st_mode);
        if (attachments)
            walk_.attachments_bytes += info.st_size;
        note(frame, name.c_str(), info);
        if (frame.path.empty() && S_ISREG(info.st_mode) && is_edit_temporary(name, ".qmail"))
            walk_.temporaries.push_back(name);
        if (S_ISDIR(info.st_mode))
            frame.subdirs.push_back(name);
    }
    if (entries.error() != 0) {
        fail(frame.path, entries.error());
        return false;
    }
    return true;
}

void Walker::run(int home_fd) {
    util::UniqueFd current(::fcntl(home_fd, F_DUPFD_CLOEXEC, 0));
    struct stat info {};
    if (!current.valid() || ::fstat(current.get(), &info) != 0) {
        fail("", errno);
        return;
    }
    std::vector<Frame> stack(1);
    stack[0].dev = info.st_dev;
    stack[0].ino = info.st_ino;
    stack[0].holds_watched = parents_.count("") != 0;
    list(current.get(), stack[0]);
    while (!stack.empty()) {
        Frame& top = stack.back();
        if (top.next == top.subdirs.size()) {
            if (stack.size() == 1)
                return;
            Frame& parent = stack[stack.size() - 2];
            current = parent.held.valid() ? std::move(parent.held)
                                          : util::open_checked_parent(current.get(), parent.dev, parent.ino);
            if (!current.valid()) {
                fail(top.path, errno);
                return;
            }
            stack.pop_back();
            continue;
        }
        const std::string& name = top.subdirs[top.next++];
        util::UniqueFd child = mailbox::open_directory_at(current.get(), name.c_str());
        if (!child.valid() || ::fstat(child.get(), &info) != 0) {
            // A directory that went away or was swapped for a link since
            // it was listed is not walked.
            if (errno != ENOENT && errno != ELOOP && errno != ENOTDIR)
                fail(joined(top.path, name), errno);
            continue;
        }
        Frame frame;
        frame.dev = info.st_dev;
        frame.ino = info.st_ino;
        frame.path = joined(top.path, name);
        frame.in_attachments = top.in_attachments || (top.path.empty() && name == kAttachments);
        frame.holds_watched = parents_.count(frame.path) != 0;
        if (stack.size() < kHeldLevels)
            top.held = std::move(current);
        current = std::move(child);
        list(current.get(), frame);
        stack.push_back(std::move(frame));
    }
}

}  // namespace

HomeWalk walk_home(int home_fd, const std::vector<std::string>& watched_paths) {
    HomeWalk walk;
    Walker walker(watched_paths, walk);
    walker.run(home_fd);
    return walk;
}

}  // namespace crelm::audit
