#include "mailbox/maildir_count.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>

#include "mailbox/directory_entries.h"
#include "mailbox/maildir_mtime.h"
#include "mailbox/message_size.h"
#include "mailbox/open_directory.h"
#include "mailbox/report.h"

namespace crelm::mailbox {
namespace {

// Folder paths were built in buffers of this size; a longer one is refused.
constexpr std::size_t kPathBufferSize = 4096;

bool fail(const std::string& message, int error) {
    mailbox_report(message);
    errno = error;
    return false;
}

// The agent's totals wrap around rather than stop at the largest number.
void add_bytes(MaildirTotals& totals, long long bytes) {
    totals.bytes = static_cast<long long>(static_cast<unsigned long long>(totals.bytes) +
                                          static_cast<unsigned long long>(bytes));
    ++totals.count;
}

bool is_vanished(int error) { return error == ENOENT || error == ENOTDIR; }

bool is_counted_message(std::string_view name) { return name[0] != '.' && !is_trashed_message_name(name); }

bool add_message(int dir_fd, const DirectoryEntry& entry, const std::string& dir_path, MaildirTotals& totals) {
    if (!is_counted_message(entry.name))
        return true;
    if (const auto size = size_from_message_name(entry.name)) {
        add_bytes(totals, *size);
        return true;
    }
    struct stat st;
    if (fstatat(dir_fd, entry.name.data(), &st, AT_SYMLINK_NOFOLLOW) == 0) {
        add_bytes(totals, st.st_size);
        return true;
    }
    if (is_vanished(errno))
        return true;
    const int error = errno;
    return fail("Unable to stat message " + dir_path + "/" + std::string(entry.name) + ": " + std::strerror(error),
                error);
}

bool add_messages(int dir_fd, const std::string& dir_path, MaildirTotals& totals) {
    DirectoryEntries entries(dir_fd);
    DirectoryEntry entry;
    while (entries.next(entry))
        if (!add_message(dir_fd, entry, dir_path, totals))
            return false;
    if (entries.error() != 0)
        return fail("Unable to read Maildir folder " + dir_path + ": " + std::strerror(entries.error()),
                    entries.error());
    return true;
}

// Whether a folder without "cur" or "new" is a failure or counts what it has.
enum class Missing { Fails, CountsNothing };

// Counts "<folder>/cur" or "<folder>/new".
bool count_subdirectory(int folder_fd, const std::string& folder, const char* which, Missing missing,
                        MaildirTotals& totals) {
    const std::string path = folder + "/" + which;
    const std::string subfolder = std::string("Maildir subfolder '") + which + "'";
    if (path.size() >= kPathBufferSize)
        return fail(subfolder + " name too long to fit the allowed buffer", ENAMETOOLONG);
    struct stat st;
    if (fstatat(folder_fd, which, &st, AT_SYMLINK_NOFOLLOW) != 0) {
        if (missing == Missing::CountsNothing && is_vanished(errno))
            return true;
        return fail(subfolder + " stat failed", EIO);
    }
    if (!S_ISDIR(st.st_mode))
        return true;
    const auto dir = open_directory_at(folder_fd, which);
    if (!dir.valid())
        return fail(subfolder + " stat failed", EIO);
    if (is_later(st.st_mtim, totals.latest_mtime))
        totals.latest_mtime = st.st_mtim;
    return add_messages(dir.get(), path, totals);
}

bool count_folder(int folder_fd, const std::string& folder, Missing missing, MaildirTotals& totals) {
    return count_subdirectory(folder_fd, folder, "cur", missing, totals) &&
           count_subdirectory(folder_fd, folder, "new", missing, totals);
}

// Deleted mail waits in Trash until it is emptied; the agent does not charge
// it against the quota.
bool is_counted_subfolder(std::string_view name) { return name[0] == '.' && name != ".Trash"; }

// The subfolder named entry opened; invalid when it is no directory (a link
// is not followed).
crelm::util::UniqueFd open_subfolder(int maildir_fd, const DirectoryEntry& entry) {
    if (entry.type != DT_DIR && entry.type != DT_UNKNOWN)
        return {};
    return open_directory_at(maildir_fd, entry.name.data());
}

bool count_subfolders(int maildir_fd, const std::string& maildir, MaildirTotals& totals) {
    const auto listing = open_directory_at(maildir_fd, ".");
    if (!listing.valid())
        return fail("Unable to read Maildir folder " + maildir + ": " + std::strerror(errno), errno);
    DirectoryEntries entries(listing.get());
    DirectoryEntry entry;
    while (entries.next(entry)) {
        if (!is_counted_subfolder(entry.name))
            continue;
        const std::string path = maildir + "/" + std::string(entry.name);
        const auto folder = open_subfolder(maildir_fd, entry);
        if (folder.valid() && !count_folder(folder.get(), path, Missing::CountsNothing, totals))
            return false;
    }
    if (entries.error() != 0)
        return fail("Unable to read Maildir folder " + maildir + ": " + std::strerror(entries.error()),
                    entries.error());
    return true;
}

}  // namespace

bool count_maildir_at(int maildir_fd, const std::string& maildir, MaildirTotals& totals) {
    return count_folder(maildir_fd, maildir, Missing::Fails, totals) && count_subfolders(maildir_fd, maildir, totals);
}

}  // namespace crelm::mailbox

bool maildir_count(const std::string& maildir, long long& bytes, long long& count, timespec& latest_mtime) {
    using namespace crelm::mailbox;
    if ((maildir + "/cur").size() >= kPathBufferSize)
        return fail("Maildir subfolder 'cur' name too long to fit the allowed buffer", ENAMETOOLONG);
    const auto maildir_fd = open_directory(maildir);
    if (!maildir_fd.valid())
        return fail("Maildir subfolder 'cur' stat failed", EIO);
    MaildirTotals totals;
    if (!count_maildir_at(maildir_fd.get(), maildir, totals))
        return false;
    bytes = totals.bytes;
    count = totals.count;
    latest_mtime = totals.latest_mtime;
    return true;
}
