#include "mailbox/maildirsize_create.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "mailbox/abandoned_temporaries.h"
#include "mailbox/maildir_count.h"
#include "mailbox/maildir_mtime.h"
#include "mailbox/maildirsize_format.h"
#include "mailbox/maildirsize_preconditions.h"
#include "mailbox/open_directory.h"
#include "mailbox/report.h"
#include "mailbox/temporary_maildir_file.h"
#include "util/fd_copy.h"
#include "util/file_lock.h"

namespace {

using crelm::mailbox::TemporaryMaildirFile;

constexpr int kCreateAttempts = 5;
constexpr unsigned kSecondsBetweenAttempts = 2;
// A maildirsize file older than this counts as stale for delivery agents.
constexpr time_t kStaleAge = 960;

bool fail(const std::string& message, int error) {
    mailbox_report(message);
    errno = error;
    return false;
}

bool host_name_for_file_names(std::string& host) {
    char name[65] = {};
    if (gethostname(name, sizeof name - 1) != 0)
        return fail("Unable to receive hostname", errno);
    host = name;
    std::replace(host.begin(), host.end(), '/', '_');
    return true;
}

std::string temporary_name(const std::string& host) {
    char name[512];
    std::snprintf(name, sizeof name, "%lu.%u.%s-maildirsize", static_cast<unsigned long>(std::time(nullptr)),
                  static_cast<unsigned>(getpid()), host.c_str());
    return name;
}

// Only a name that is taken is worth another attempt (the next one carries a
// later time); any other failure would fail the same way every time.
bool create_temporary(TemporaryMaildirFile& file, int maildir_fd, const std::string& maildir,
                      const std::string& host) {
    for (int attempt = 0; attempt < kCreateAttempts; ++attempt) {
        const std::string name = temporary_name(host);
        if (file.create(maildir_fd, name))
            return true;
        if (errno != EEXIST) {
            const int error = errno;
            return fail("Unable to create " + crelm::mailbox::absolute_path_of(maildir_fd, maildir) + "/tmp/" + name +
                            ": " + std::strerror(error),
                        error);
        }
        sleep(kSecondsBetweenAttempts);
    }
    return fail("Maximal allowed number of attempts to create a maildirsize file exceeded", EAGAIN);
}


// The time as the filesystem stamps it, read by stamping the open temporary
// file. Clocks of the process run ahead of or behind those stamps; mail that
// arrives after this moment is stamped no earlier than this.
timespec filesystem_now(int fd) {
    struct stat st;
    if (futimens(fd, nullptr) == 0 && fstat(fd, &st) == 0)
        return st.st_mtim;
    timespec now{};
    clock_gettime(CLOCK_REALTIME_COARSE, &now);
    return now;
}

// Mail that arrived while the Maildir was counted may be missing from the
// totals: make the file old enough that the next reader recounts. A change
// stamped with the very time the count started counts as such an arrival.
bool mark_stale_if_mail_arrived(const std::string& maildir, int maildir_fd, const timespec& count_start) {
    timespec latest{};
    if (!crelm::mailbox::maildir_tree_latest_mtime(maildir, latest))
        return false;
    if (crelm::mailbox::is_later(count_start, latest))
        return true;
    const timespec times[2] = {{0, UTIME_NOW}, {count_start.tv_sec - kStaleAge, 0}};
    if (utimensat(maildir_fd, "maildirsize", times, AT_SYMLINK_NOFOLLOW) != 0)
        mailbox_report(std::string("Unable to mark maildirsize file as stale: ") + std::strerror(errno));
    return true;
}

bool write_counted_totals(TemporaryMaildirFile& file, int maildir_fd, const std::string& maildir,
                          long long quota_bytes, long long quota_count, timespec& count_start) {
    count_start = filesystem_now(file.fd());
    crelm::mailbox::MaildirTotals totals;
    if (!crelm::mailbox::count_maildir_at(maildir_fd, maildir, totals))
        return false;
    const std::string text =
        crelm::mailbox::maildirsize_text(quota_bytes, quota_count, totals.bytes, totals.count);
    if (!crelm::util::write_all(file.fd(), text))
        return fail("unable to write data to file", errno);
    if (fsync(file.fd()) != 0 || file.close() != 0)
        return fail("unable to commit written data to file", errno);
    return true;
}

}  // namespace

namespace {

bool create_locked(const std::string& maildir, uid_t uid, gid_t gid, long long quota_bytes, long long quota_count) {
    std::string host;
    if (!host_name_for_file_names(host))
        return false;
    const auto maildir_fd = crelm::mailbox::open_directory(maildir);
    if (!maildir_fd.valid())
        return fail("Unable to open Maildir folder " + maildir + ": " + std::strerror(errno), errno);
    if (!crelm::mailbox::check_maildir_for_maildirsize(maildir_fd.get(), maildir))
        return false;
    // What an earlier run killed half-way left behind goes first, so that a
    // second run leaves the Maildir exactly as one undisturbed run would.
    crelm::mailbox::remove_abandoned_maildirsize_temporaries(maildir_fd.get(), host);
    TemporaryMaildirFile file;
    if (!create_temporary(file, maildir_fd.get(), maildir, host))
        return false;
    if (fchown(file.fd(), uid, gid) != 0)
        return fail(std::string("Unable to change owner of maildirsize file: ") + std::strerror(errno), errno);
    timespec count_start{};
    if (!write_counted_totals(file, maildir_fd.get(), maildir, quota_bytes, quota_count, count_start))
        return false;
    if (!file.commit(maildir_fd.get(), "maildirsize"))
        return fail("Unable to rename tmp/" + file.name() + " to maildirsize: " + std::strerror(errno), errno);
    return mark_stale_if_mail_arrived(maildir, maildir_fd.get(), count_start);
}

}  // namespace

// Two writers of one maildirsize take turns under its lock, the lock every
// editor of a shared file takes: each writes a whole recount, and the later
// one renames its file into place last.
bool maildirsize_create(const std::string& maildir, uid_t uid, gid_t gid, long long quota_bytes,
                        long long quota_count) {
    const std::string path = maildir + "/maildirsize";
    FileLock lock = lock_file(path, LockPlace::lock_directory);
    if (!lock.held())
        return fail("Error occurred while locking the file " + path + ": " + std::strerror(errno), errno);
    const bool created = create_locked(maildir, uid, gid, quota_bytes, quota_count);
    unlock_file(lock);
    return created;
}
