#include "mailbox/maildir_mtime.h"

#include <sys/stat.h>

#include <cerrno>
#include <filesystem>

#include "mailbox/directory_entries.h"
#include "mailbox/open_directory.h"
#include "mailbox/report.h"

namespace crelm::mailbox {
namespace {

void take_later(timespec& latest, const timespec& candidate) {
    if (is_later(candidate, latest))
        latest = candidate;
}

std::string absolute_text(const std::string& path) {
    std::error_code ec;
    const auto absolute = std::filesystem::absolute(path, ec);
    return ec ? path : absolute.lexically_normal().string();
}

// Adds the times of one subfolder entry of the Maildir.
void take_subfolder(int maildir_fd, const DirectoryEntry& entry, const std::string& maildir,
                    timespec& latest) {
    struct stat st;
    if (fstatat(maildir_fd, entry.name.data(), &st, AT_SYMLINK_NOFOLLOW) != 0)
        return;
    if (!S_ISDIR(st.st_mode)) {
        mailbox_report("Bad/unrecognized entry " + std::string(entry.name) + " within Maildir folder " +
                       absolute_text(maildir) + "\n");
        return;
    }
    const auto folder = open_directory_at(maildir_fd, entry.name.data());
    timespec time{};
    if (folder.valid() && latest_mtime_at(folder.get(), time))
        take_later(latest, time);
}

}  // namespace

bool is_later(const timespec& a, const timespec& b) {
    return a.tv_sec != b.tv_sec ? a.tv_sec > b.tv_sec : a.tv_nsec > b.tv_nsec;
}

bool latest_mtime_at(int folder_fd, timespec& time) {
    struct stat cur;
    struct stat fresh;
    if (fstatat(folder_fd, "cur", &cur, AT_SYMLINK_NOFOLLOW) != 0 ||
        fstatat(folder_fd, "new", &fresh, AT_SYMLINK_NOFOLLOW) != 0)
        return false;
    time = is_later(fresh.st_mtim, cur.st_mtim) ? fresh.st_mtim : cur.st_mtim;
    return true;
}

bool maildir_tree_latest_mtime(const std::string& maildir, timespec& time) {
    const auto maildir_fd = open_directory(maildir);
    if (!maildir_fd.valid()) {
        mailbox_report("Unable to open Maildir folder. Has it just been removed?");
        return false;
    }
    time = timespec{};
    timespec own{};
    if (latest_mtime_at(maildir_fd.get(), own))
        time = own;
    DirectoryEntries entries(maildir_fd.get());
    DirectoryEntry entry;
    while (entries.next(entry))
        if (entry.name[0] == '.')
            take_subfolder(maildir_fd.get(), entry, maildir, time);
    return true;
}

}  // namespace crelm::mailbox

bool maildir_latest_mtime(const std::string& folder, timespec& time) {
    const auto folder_fd = crelm::mailbox::open_directory(folder);
    return folder_fd.valid() && crelm::mailbox::latest_mtime_at(folder_fd.get(), time);
}
