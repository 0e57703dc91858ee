#include "commands/assign_key_checks.h"

#include <sys/stat.h>
#include <syslog.h>

#include <cerrno>
#include <optional>
#include <vector>

#include "qmail/assign_keys.h"
#include "qmail/mailname_files.h"
#include "runtime/log.h"
#include "stores/mailbox_quota_db.h"

namespace crelm::mail::sorvane_commands {
namespace {

// Whether anything (a link included) has the name; a name that cannot be
// looked at counts as taken.
bool path_taken(const std::string& path) {
    struct stat info {};
    return ::lstat(path.c_str(), &info) == 0 || errno != ENOENT;
}

// The three things a mail name has that another mail name must not take
// over: its assign record (a mail alias answers to its key alike), its home
// and its quota record.
struct MailnameParts {
    bool record = false;
    bool home = false;
    bool quota = false;
};

// record: whether assign holds the mail name's key.
MailnameParts parts_of(const std::string& domain, const std::string& mailname, bool record) {
    MailnameParts parts;
    parts.record = record;
    std::string home;
    parts.home = mailname_home_path(home, mailname, domain) != 0 || path_taken(home);
    parts.quota = MailboxQuotaDb().hasMailbox(domain, mailname).value_or(false);
    return parts;
}

// What new_mailname has that old_mailname has too, or nullptr. Each step of
// a rename moves one of these from the old name to the new one whole (the
// quota record, then the record, then the home), so a rename that was
// killed half-way leaves each of them at one name only, and running it
// again finishes it. Both names holding one of them means that the new name
// is a mail name of its own.
const char* taken_over_part(const std::string& domain, const std::string& old_mailname,
                            const std::string& new_mailname) {
    // Both keys are looked for in one read of assign.
    const std::vector<bool> records = crelm::qmail::mail_keys_in_assign(domain, {old_mailname, new_mailname});
    const MailnameParts old_parts = parts_of(domain, old_mailname, records[0]);
    const MailnameParts new_parts = parts_of(domain, new_mailname, records[1]);
    if (old_parts.record && new_parts.record)
        return "a record in assign";
    if (old_parts.home && new_parts.home)
        return "a home directory";
    if (old_parts.quota && new_parts.quota)
        return "a quota record";
    return nullptr;
}

}  // namespace

bool refuse_mail_key(const std::string& domain, const std::string& name) {
    const std::optional<std::string> record = crelm::qmail::mail_key_collision(domain, name);
    if (!record)
        return false;
    const std::string key = domain + "-" + name;
    log_message(LOG_ERR, "Unable to use %s@%s: its assign key '%s' collides with the record '%s' of another domain",
                name.c_str(), domain.c_str(), key.c_str(), record->c_str());
    return true;
}

bool refuse_domain_key(const std::string& domain, const std::string& renamed_from) {
    const std::optional<std::string> record = crelm::qmail::domain_key_collision(domain, renamed_from);
    if (!record)
        return false;
    log_message(LOG_ERR, "Unable to use domain %s: its addresses collide with the record '%s' of another domain in assign",
                domain.c_str(), record->c_str());
    return true;
}

bool refuse_domain_alias(const std::string& alias) {
    const std::optional<std::string> record = crelm::qmail::domain_alias_collision(alias);
    if (!record)
        return false;
    log_message(LOG_ERR, "Unable to use domain alias %s: it is a mail domain with the record '%s' in assign",
                alias.c_str(), record->c_str());
    return true;
}

bool refuse_existing_mailname(const std::string& domain, const std::string& old_mailname,
                              const std::string& new_mailname) {
    const char* part = taken_over_part(domain, old_mailname, new_mailname);
    if (part == nullptr)
        return false;
    log_message(LOG_ERR, "Unable to rename %s@%s to %s@%s: %s@%s already has %s", old_mailname.c_str(),
                domain.c_str(), new_mailname.c_str(), domain.c_str(), new_mailname.c_str(), domain.c_str(), part);
    return true;
}

}  // namespace crelm::mail::sorvane_commands
