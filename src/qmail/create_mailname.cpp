// Making a mail name: its assign record, home, ".qmail", Maildir tree and
// quota record. Once the record is written, any failure takes the whole
// mail name away again before the program ends, so that no half-made
// mail name stays behind.
#include "qmail/control_files.h"
#include "qmail/mail_names.h"
#include "qmail/mail_owner.h"
#include "qmail/mailname_files.h"
#include "qmail/mailname_tree.h"
#include "qmail/owned_entries.h"
#include "qmail/qmail_report.h"
#include "qmail/session_hooks.h"
#include "qmail/true_qmail.h"
#include "runtime/idn.h"
#include "runtime/name_rules.h"

#include <cerrno>
#include <cstring>

using namespace crelm::qmail;

namespace {

bool valid_names(const std::string& mailname, const std::string& domain) {
    const std::optional<std::string> ascii = domain.empty() ? std::nullopt : idn_toascii(domain);
    return ascii && crelm::is_valid_domain_name(lower_case(*ascii)) &&
           crelm::is_valid_mail_name(lower_case(mailname));
}

class MailnameBuild {
public:
    MailnameBuild(const std::string& mailname, const std::string& domain, const MailOwnerIds& owner)
        : mailname_(mailname), domain_(domain), owner_(owner) {}

    void make_home();
    void write_dot_qmail();
    void make_tree();
    void init_quota_record();

private:
    [[noreturn]] void undo_and_end(const char* format, const std::string& subject, int error);
    [[noreturn]] void undo_and_end_entry(const char* format, const char* entry, int error);

    const std::string& mailname_;
    const std::string& domain_;
    MailOwnerIds owner_;
    std::string home_;
    crelm::util::UniqueFd home_fd_;
};

void MailnameBuild::undo_and_end(const char* format, const std::string& subject, int error) {
    remove_mailname_files(mailname_, domain_);
    report_fatal(format, subject.c_str(), std::strerror(error));
}

void MailnameBuild::undo_and_end_entry(const char* format, const char* entry, int error) {
    remove_mailname_files(mailname_, domain_);
    report_fatal(format, home_.c_str(), entry, std::strerror(error));
}

void MailnameBuild::make_home() {
    if (mailname_home_path(home_, mailname_, domain_) != 0)
        undo_and_end("Unable to make %s dir: %s", mailname_, ENAMETOOLONG);
    OwnedFailure failure;
    if (make_owned_dir(home_, owner_, kMailnameDirMode, failure) != 0)
        undo_and_end(failure.step == OwnedStep::made ? "Unable to make %s dir: %s" : "Unable to chown %s dir: %s",
                     home_, failure.error);
    // Everything below is reached through this handle on the home itself.
    home_fd_ = open_owned_dir(home_);
    if (!home_fd_.valid())
        undo_and_end("Unable to make %s dir: %s", home_, errno);
}

void MailnameBuild::write_dot_qmail() {
    std::string path;
    if (mailname_qmail_path(path, mailname_, domain_) != 0)
        undo_and_end("Unable to open '%s': %s", home_ + "/.qmail", ENAMETOOLONG);
    if (const std::optional<std::string> failure = write_true_line(path)) {
        remove_mailname_files(mailname_, domain_);
        report_fatal("%s", failure->c_str());
    }
}

void MailnameBuild::make_tree() {
    OwnedFailure failure;
    for (const MailnameTreeEntry& entry : kMailnameTree) {
        if (make_owned_dir_at(home_fd_.get(), entry.directory, owner_, kMailnameDirMode, failure) != 0)
            undo_and_end_entry(failure.step == OwnedStep::made ? "Unable to make %s/%s dir: %s"
                                                               : "Unable to chown %s/%s dir: %s",
                               entry.directory, failure.error);
        if (entry.folder_marker != nullptr &&
            make_owned_file_at(home_fd_.get(), entry.folder_marker, owner_, kMailnameFileMode, failure) != 0)
            undo_and_end_entry(failure.step == OwnedStep::made ? "Unable to make %s/%s file: %s"
                                                               : "Unable to chown %s/%s file: %s",
                               entry.folder_marker, failure.error);
    }
}

void MailnameBuild::init_quota_record() {
    if (qmail_session_hooks().init_quota_record(domain_, mailname_) != 1) {
        remove_mailname_files(mailname_, domain_);
        report_fatal("Unable to initialize quota settings for %s@%s", mailname_.c_str(), domain_.c_str());
    }
}

}  // namespace

int create_mailname(const std::string& mailname, const std::string& domain) {
    if (!valid_names(mailname, domain))
        report_fatal("invalid mailname or domain name.");
    const MailOwnerIds owner = mail_owner_ids();
    if (!owner.known())
        report_fatal("Unable to define UID or GID for user popuser");
    qmail_add_mailname_record(mailname, domain);
    MailnameBuild build(mailname, domain, owner);
    build.make_home();
    build.write_dot_qmail();
    build.make_tree();
    build.init_quota_record();
    return 0;
}
