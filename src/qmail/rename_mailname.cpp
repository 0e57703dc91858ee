// Renaming a mail name within its domain: its assign record, its home, the
// records of its aliases, its authentication records and the address in its
// ".qmail".
#include <sys/stat.h>

#include <cerrno>
#include <string_view>
#include <utility>
#include <vector>

#include "mailbox/mailnames_root.h"
#include "qmail/control_files.h"
#include "qmail/control_lines.h"
#include "qmail/control_names.h"
#include "qmail/locked_line_copy.h"
#include "qmail/mailname_rewrites.h"
#include "qmail/paths.h"
#include "qmail/qmail_report.h"
#include "qmail/session_hooks.h"
#include "stores/mail_auth_store.h"
#include "util/directories.h"
#include "util/file_str.h"

using namespace crelm::qmail;

namespace {

struct MailnameRename {
    std::string domain;
    std::string old_name;
    std::string new_name;
    PopuserIds ids;

    std::string record(const std::string& name) const { return mailname_assign_record(name, domain, name, ids); }
    std::string home(const std::string& name) const {
        return crelm::mailbox::mailnames_root() + "/" + domain + "/" + name;
    }
};

// The records of the mail name's aliases end in its home: they follow it to
// the new home. Only a whole "=" record whose fields after its key are
// exactly the old ones changes, its key kept. Each record changed is
// remembered (its new text and its old), so that the change can be taken
// back exactly, and no other record pointing at the new home with it.
class AliasRepoint {
public:
    explicit AliasRepoint(const MailnameRename& rename)
        : repoint_(repoint_records(mailname_assign_tail(rename.domain, rename.old_name, rename.ids),
                                   mailname_assign_tail(rename.domain, rename.new_name, rename.ids))) {
        forward_ = crelm::util::LineRewrite{[this](std::string_view line, std::string& replaced) {
                                                const crelm::util::LineFate fate = repoint_.line(line, replaced);
                                                if (fate == crelm::util::LineFate::replace)
                                                    changed_.emplace_back(replaced, line);
                                                return fate;
                                            },
                                            repoint_.needle,
                                            {}};
    }

    // The rewrites refer to this object, which stays where it was made.
    AliasRepoint(const AliasRepoint&) = delete;
    AliasRepoint& operator=(const AliasRepoint&) = delete;

    // The rewrite that re-points them.
    const crelm::util::LineRewrite* forward() { return &forward_; }

    // The rewrite that puts back the records it changed.
    crelm::util::LineRewrite back() const {
        return crelm::util::LineRewrite{[this](std::string_view line, std::string& replaced) {
                                            for (const auto& [now, before] : changed_) {
                                                if (line == now) {
                                                    replaced = before;
                                                    return crelm::util::LineFate::replace;
                                                }
                                            }
                                            return crelm::util::LineFate::keep;
                                        },
                                        "",
                                        {}};
    }

    bool changed_any() const { return !changed_.empty(); }

private:
    crelm::util::LineRewrite repoint_;
    crelm::util::LineRewrite forward_;
    std::vector<std::pair<std::string, std::string>> changed_;  // new text, old text
};

// The new record replaces the old one at the top of assign, both records'
// old copies taken out and the aliases' records re-pointed in the same
// rewrite (a large assign is read and written once; a rename run again
// after an interrupted one leaves the new record there once); if it cannot
// be written, the old one goes back at the top before the program ends.
// Without assign the steps go one by one, and the first ends the program.
void replace_record(const MailnameRename& rename, AliasRepoint& aliases) {
    struct stat info {};
    if (::lstat(kUsersAssign, &info) == 0 || errno != ENOENT) {
        // Every line this rewrite changes ends in a home in the domain's
        // directory: the fields up to that directory are searched for once.
        std::string domain_fields = mailname_assign_tail(rename.domain, "", rename.ids);
        domain_fields.resize(domain_fields.size() - 3);
        if (file_str_on_top(kUsersAssign, rename.record(rename.new_name), {rename.record(rename.old_name)}, nullptr,
                            aliases.forward(), domain_fields) != 0) {
            // The new record could not be put in: the old one goes back at
            // the top (once, and without the new one), as after a failed
            // insertion.
            file_str_on_top(kUsersAssign, rename.record(rename.old_name), {rename.record(rename.new_name)});
            report_fatal("Unable to add record to assign file");
        }
        set_assign_mode();
        return;
    }
    if (!remove_line(kUsersAssign, rename.record(rename.old_name))) {
        report_fatal("Unable to remove record from assign file");
    }
    remove_line(kUsersAssign, rename.record(rename.new_name));
    if (!insert_line_at_top(kUsersAssign, rename.record(rename.new_name))) {
        insert_line_at_top(kUsersAssign, rename.record(rename.old_name));
        report_fatal("Unable to add record to assign file");
    }
    set_assign_mode();
}

// When the home cannot be renamed, assign gets its old records back: the
// mail name's at the top, its aliases' pointing at the old home again.
void rename_home(const MailnameRename& rename, const AliasRepoint& aliases) {
    if (rename_dir(rename.home(rename.old_name), rename.home(rename.new_name)) != 0) {
        const crelm::util::LineRewrite back = aliases.back();
        file_str_on_top(kUsersAssign, rename.record(rename.old_name), {rename.record(rename.new_name)}, nullptr,
                        aliases.changed_any() ? &back : nullptr);
        set_assign_mode();
        report_fatal("Unable to rename directory");
    }
}

// The mail name's own record in domain. When it cannot be renamed because
// the new name has a record there already, the old one is taken away, since
// no mail name answers to it any more. When the store failed for any other
// reason (a full or failing disk) the old record and its password stay, so
// that running the rename again can still move them.
bool rename_auth_record(const MailnameRename& rename, const std::string& domain) {
    if (rename_mail_auth_user(domain, rename.old_name, rename.new_name) == 0) {
        return true;
    }
    report_failure("Unable to rename auth record %s@%s -> %s@%s", rename.old_name.c_str(), domain.c_str(),
                   rename.new_name.c_str(), domain.c_str());
    MailAuthUser taken;
    if (get_mail_auth_user(domain, rename.new_name, taken) == 0 &&
        remove_mail_auth_user(rename.old_name, domain) != 0) {
        report_failure("Unable to delete auth records for %s@%s", rename.old_name.c_str(), domain.c_str());
    }
    return false;
}

// At the domain and at each of its aliases, whose records are copies.
bool rename_auth_records(const MailnameRename& rename) {
    NameList aliases;
    if (qmail_session_hooks().domain_aliases(rename.domain, aliases) != 0) {
        report_failure("Unable to get domain aliases for domain %s", rename.domain.c_str());
        return false;
    }
    bool renamed = rename_auth_record(rename, rename.domain);
    for (const std::string& alias : aliases.value_or(std::vector<std::string>{})) {
        renamed = rename_auth_record(rename, control_domain_name(alias)) && renamed;
    }
    return renamed;
}

// The domain and its aliases, whose addresses all reach the mail name.
std::vector<std::string> address_domains(const MailnameRename& rename) {
    std::vector<std::string> domains = {rename.domain};
    NameList aliases;
    if (qmail_session_hooks().domain_aliases(rename.domain, aliases) == 0) {
        for (const std::string& alias : aliases.value_or(std::vector<std::string>{})) {
            domains.push_back(control_domain_name(alias));
        }
    }
    return domains;
}

// Forwarding and delivery lines of ".qmail" may name the mail name's own
// address at its domain or one of its aliases; those whole addresses follow
// the rename, and no other address. Failures here are reported only.
void rename_in_dot_qmail(const MailnameRename& rename) {
    if (rename.old_name == rename.new_name) {
        return;
    }
    const std::string path = rename.home(rename.new_name) + "/.qmail";
    const crelm::util::LineRewrite rewrite =
        rename_addresses(rename.old_name, rename.new_name, address_domains(rename));
    if (!rewrite_copy_locked(path, rewrite, CopyAttributes{0600, std::pair{rename.ids.uid, rename.ids.gid}})) {
        report_failure("Unable to change mailname in dot-qmail in %s\n", path.c_str());
    }
}

}  // namespace

int qmail_rename_mailname(const std::string& old_mailname, const std::string& domain,
                          const std::string& new_mailname, const std::string& auth_rename) {
    if (old_mailname.empty() || new_mailname.empty() || domain.empty()) {
        report_failure("empty mailname or maildomain");
        return -1;
    }
    const MailnameRename rename{control_domain_name(domain), lower_ascii(old_mailname), lower_ascii(new_mailname),
                                popuser_ids_or_die("Unable to define UID or GID for user popuser")};
    AliasRepoint aliases(rename);
    replace_record(rename, aliases);
    rename_home(rename, aliases);
    int result = 0;
    if (!auth_rename.empty() && !rename_auth_records(rename)) {
        result = -1;
    }
    rename_in_dot_qmail(rename);
    return result;
}
