// Making a mail name: its assign record, home, ".qmail", Maildir tree and
// quota record. Once the record is written, any failure undoes what this
// run made before the program ends, so that no half-made mail name stays
// behind. Making an existing mail name again is the way to repair it, so
// the undo never takes away what was there before the run: an old record,
// home, tree entry or password stays, and an old ".qmail" gets its content
// back.
#include "qmail/control_files.h"
#include "qmail/control_lines.h"
#include "qmail/mail_names.h"
#include "qmail/mail_owner.h"
#include "qmail/mailname_files.h"
#include "qmail/mailname_record.h"
#include "qmail/mailname_tree.h"
#include "qmail/owned_entries.h"
#include "qmail/paths.h"
#include "qmail/qmail_report.h"
#include "qmail/session_hooks.h"
#include "qmail/true_qmail.h"
#include "runtime/idn.h"
#include "runtime/name_rules.h"
#include "util/file_replace.h"
#include "util/tree_walk.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <map>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

using namespace crelm::qmail;

namespace {

// A ".qmail" larger than this is not one that sorvane or a panel wrote; it
// is left as the run made it rather than read whole into memory.
constexpr std::size_t kDotQmailKeepLimit = 1 << 20;

bool valid_names(const std::string& mailname, const std::string& domain) {
    const std::optional<std::string> ascii = domain.empty() ? std::nullopt : idn_toascii(domain);
    return ascii && crelm::is_valid_domain_name(lower_case(*ascii)) &&
           crelm::is_valid_mail_name(lower_case(mailname));
}

bool path_taken(const std::string& path) {
    struct stat info {};
    return ::lstat(path.c_str(), &info) == 0 || errno != ENOENT;
}

bool entry_taken(int dir_fd, const char* relative) {
    struct stat info {};
    return ::fstatat(dir_fd, relative, &info, AT_SYMLINK_NOFOLLOW) == 0 || errno != ENOENT;
}

// The content of the regular file at path, read without following a link;
// nullopt when there is none (or it is not one sorvane could have written).
std::optional<std::string> regular_file_content(const std::string& path) {
    const crelm::util::UniqueFd fd(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct stat info {};
    if (!fd.valid() || ::fstat(fd.get(), &info) != 0 || !S_ISREG(info.st_mode) ||
        static_cast<std::size_t>(info.st_size) > kDotQmailKeepLimit)
        return std::nullopt;
    std::string content(static_cast<std::size_t>(info.st_size), '\0');
    std::size_t held = 0;
    while (held < content.size()) {
        const ssize_t got = ::read(fd.get(), content.data() + held, content.size() - held);
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            return std::nullopt;
        held += static_cast<std::size_t>(got);
    }
    return content;
}

// What was there before this run touched anything.
struct Before {
    bool record = true;
    bool home = true;
    bool dot_qmail = true;
    std::optional<std::string> dot_qmail_content;  // the old one, when it could be read
};

class MailnameBuild {
public:
    MailnameBuild(const std::string& mailname, const std::string& domain, const MailOwnerIds& owner,
                  const Before& before)
        : mailname_(mailname), domain_(domain), owner_(owner), before_(before) {}

    void make_home();
    void write_dot_qmail();
    void make_tree();
    void init_quota_record();

private:
    [[noreturn]] void undo_and_end(const char* format, const std::string& subject, int error);
    [[noreturn]] void undo_and_end_entry(const char* format, const char* entry, int error);
    void undo();
    void remove_new_record();
    void undo_in_old_home();
    void restore_dot_qmail();

    const std::string& mailname_;
    const std::string& domain_;
    MailOwnerIds owner_;
    Before before_;
    std::string home_;
    crelm::util::UniqueFd home_fd_;
    bool dot_qmail_written_ = false;
    // Tree entries that were missing when this run made them, in order.
    std::vector<const MailnameTreeEntry*> new_dirs_;
    std::vector<const char*> new_markers_;
};

void MailnameBuild::remove_new_record() {
    if (before_.record)
        return;
    const std::string record = mailname_record_line(mailname_, domain_);
    if (!remove_line(kUsersAssign, record)) {
        const std::string address = lower_case(mailname_) + "@" + ascii_domain(domain_).value_or(domain_);
        report_failure("Unable to remove %s mailbox record from assign file", address.c_str());
    }
}

void MailnameBuild::restore_dot_qmail() {
    if (!dot_qmail_written_)
        return;
    const std::string path = home_ + "/.qmail";
    if (!before_.dot_qmail) {
        ::unlinkat(home_fd_.get(), ".qmail", 0);
        return;
    }
    if (!before_.dot_qmail_content)
        return;
    const MailOwnerIds owner = owner_;
    crelm::util::replace_file_locked(path, *before_.dot_qmail_content, [owner](int fd) {
        return ::fchown(fd, owner.uid, owner.gid) == 0 && ::fchmod(fd, kMailnameFileMode) == 0;
    });
}

// Only what this run made goes; a directory that now holds anything (mail
// delivered meanwhile) stays.
void MailnameBuild::undo_in_old_home() {
    if (!home_fd_.valid())
        return;
    restore_dot_qmail();
    for (auto marker = new_markers_.rbegin(); marker != new_markers_.rend(); ++marker)
        ::unlinkat(home_fd_.get(), *marker, 0);
    for (auto entry = new_dirs_.rbegin(); entry != new_dirs_.rend(); ++entry)
        ::unlinkat(home_fd_.get(), (*entry)->directory, AT_REMOVEDIR);
}

void MailnameBuild::undo() {
    remove_new_record();
    if (before_.home) {
        undo_in_old_home();
        return;
    }
    std::string home;
    if (mailname_home_path(home, mailname_, domain_) == 0)
        remove_tree(home);
}

void MailnameBuild::undo_and_end(const char* format, const std::string& subject, int error) {
    undo();
    report_fatal(format, subject.c_str(), std::strerror(error));
}

void MailnameBuild::undo_and_end_entry(const char* format, const char* entry, int error) {
    undo();
    report_fatal(format, home_.c_str(), entry, std::strerror(error));
}

void MailnameBuild::make_home() {
    if (mailname_home_path(home_, mailname_, domain_) != 0)
        undo_and_end("Unable to make %s dir: %s", mailname_, ENAMETOOLONG);
    OwnedFailure failure;
    OwnedDir made;
    if (make_owned_dir(home_, owner_, kMailnameDirMode, failure, &made) != 0)
        undo_and_end(failure.step == OwnedStep::made ? "Unable to make %s dir: %s" : "Unable to chown %s dir: %s",
                     home_, failure.error);
    // Everything below is reached through this handle on the home itself.
    home_fd_ = std::move(made.fd);
}

void MailnameBuild::write_dot_qmail() {
    std::string path;
    if (mailname_qmail_path(path, mailname_, domain_) != 0)
        undo_and_end("Unable to open '%s': %s", home_ + "/.qmail", ENAMETOOLONG);
    before_.dot_qmail = before_.home && path_taken(path);
    if (before_.dot_qmail)
        before_.dot_qmail_content = regular_file_content(path);
    dot_qmail_written_ = true;
    if (const std::optional<std::string> failure = write_true_line(path)) {
        undo();
        report_fatal("%s", failure->c_str());
    }
}

// Each entry is made through the handle on its parent, made just before
// it, rather than by a walk from the home: the tree's handles stay a fixed
// few, and no directory is looked up twice.
void MailnameBuild::make_tree() {
    OwnedFailure failure;
    std::map<std::string_view, crelm::util::UniqueFd> made_dirs;
    const auto place_of = [&](std::string_view relative) -> std::pair<int, std::string> {
        const std::size_t slash = relative.rfind('/');
        if (slash != std::string_view::npos)
            if (const auto parent = made_dirs.find(relative.substr(0, slash)); parent != made_dirs.end())
                return {parent->second.get(), std::string(relative.substr(slash + 1))};
        return {home_fd_.get(), std::string(relative)};
    };
    for (const MailnameTreeEntry& entry : kMailnameTree) {
        const auto [parent, name] = place_of(entry.directory);
        OwnedDir made;
        const int result = make_owned_dir_at(parent, name, owner_, kMailnameDirMode, failure, &made);
        if (made.created)
            new_dirs_.push_back(&entry);
        if (result != 0)
            undo_and_end_entry(failure.step == OwnedStep::made ? "Unable to make %s/%s dir: %s"
                                                               : "Unable to chown %s/%s dir: %s",
                               entry.directory, failure.error);
        made_dirs[entry.directory] = std::move(made.fd);
        if (entry.folder_marker == nullptr)
            continue;
        const auto [folder, marker] = place_of(entry.folder_marker);
        if (!entry_taken(folder, marker.c_str()))
            new_markers_.push_back(entry.folder_marker);
        if (make_owned_file_at(folder, marker, owner_, kMailnameFileMode, failure) != 0)
            undo_and_end_entry(failure.step == OwnedStep::made ? "Unable to make %s/%s file: %s"
                                                               : "Unable to chown %s/%s file: %s",
                               entry.folder_marker, failure.error);
    }
}

void MailnameBuild::init_quota_record() {
    if (qmail_session_hooks().init_quota_record(domain_, mailname_) != 1) {
        undo();
        report_fatal("Unable to initialize quota settings for %s@%s", mailname_.c_str(), domain_.c_str());
    }
}

// Read before the record is written: whether the home was there already
// (whether the record was is told by its writing).
Before state_before(const std::string& mailname, const std::string& domain) {
    Before before;
    std::string home;
    before.home = mailname_home_path(home, mailname, domain) != 0 || path_taken(home);
    return before;
}

}  // namespace

int create_mailname(const std::string& mailname, const std::string& domain) {
    if (!valid_names(mailname, domain))
        report_fatal("invalid mailname or domain name.");
    const MailOwnerIds owner = mail_owner_ids();
    if (!owner.known())
        report_fatal("Unable to define UID or GID for user popuser");
    Before before = state_before(mailname, domain);
    add_mailname_record(mailname, domain, before.record);
    MailnameBuild build(mailname, domain, owner, before);
    build.make_home();
    build.write_dot_qmail();
    build.make_tree();
    build.init_quota_record();
    return 0;
}
