// Taking a mail name's files away: also the undo of a mail name that could
// not be made whole.
#include "qmail/control_names.h"
#include "qmail/mail_owner.h"
#include "qmail/mailname_files.h"
#include "qmail/mailname_record.h"
#include "qmail/paths.h"
#include "qmail/qmail_report.h"
#include "stores/mail_auth_store.h"
#include "util/file_str.h"
#include "util/tree_walk.h"

using namespace crelm::qmail;

namespace {

// The mail name's authentication record and its home tree, after its
// record left assign; each failure is reported and the other still tried.
int remove_record_owners_files(const std::string& mailname, const std::string& domain, const std::string& name,
                               const std::string& ascii) {
    int result = 0;
    if (remove_mail_auth_user(name, ascii) != 0)
        result = -1;
    std::string home;
    if (mailname_home_path(home, mailname, domain) != 0 || remove_tree(home) != 0)
        result = -1;
    return result;
}

}  // namespace

int remove_mailname_files(const std::string& mailname, const std::string& domain) {
    if (mailname.empty() || domain.empty())
        report_fatal("empty mailname or maildomain");
    const MailOwnerIds owner = mail_owner_ids();
    if (!owner.known())
        report_fatal("Unable to get popuser uid or gid\n");
    const std::string ascii = control_domain_name(domain);
    const std::string name = lower_ascii(mailname);
    const std::string record = mailname_assign_record(name, ascii, name, {owner.uid, owner.gid});
    const std::string address = name + "@" + ascii;

    int result = 0;
    if (file_str_one(kUsersAssign, record, LineAction::remove_exact, LinePosition::anywhere) != 0) {
        report_failure("Unable to remove %s mailbox record from assign file", address.c_str());
        result = -1;
    }
    return remove_record_owners_files(mailname, domain, name, ascii) != 0 ? -1 : result;
}

int remove_mailname_and_alias_files(const std::string& mailname, const std::string& domain,
                                    const std::vector<std::string>& aliases) {
    if (aliases.empty())
        return remove_mailname_files(mailname, domain);
    std::vector<std::string> records;
    for (const std::string& alias : aliases)
        records.push_back(alias_record(mailname, domain, alias, "Unable to get popuser uid or gid\n"));
    if (mailname.empty() || domain.empty())
        report_fatal("empty mailname or maildomain");
    const MailOwnerIds owner = mail_owner_ids();
    if (!owner.known())
        report_fatal("Unable to get popuser uid or gid\n");
    const std::string ascii = control_domain_name(domain);
    const std::string name = lower_ascii(mailname);
    records.push_back(mailname_assign_record(name, ascii, name, {owner.uid, owner.gid}));
    // Every one of these records ends in the fields of the mail name's home.
    if (file_str(kUsersAssign, records, LineAction::remove_exact, LinePosition::anywhere,
                 mailname_assign_tail(ascii, name, {owner.uid, owner.gid})) != 0)
        report_fatal("Unable to remove record from assign file");
    set_assign_mode();
    return remove_record_owners_files(mailname, domain, name, ascii);
}
