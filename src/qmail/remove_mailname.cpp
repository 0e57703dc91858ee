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

// The mail name as its record and home know it. Empty names ("empty
// mailname or maildomain") and an unknown popuser ("Unable to get popuser
// uid or gid\n") end the program.
struct RemovedMailname {
    std::string mailname;  // as given, for its home
    std::string domain;
    std::string ascii;  // the domain as the control files write it
    std::string name;   // the mail name in lower case
    PopuserIds ids;

    RemovedMailname(const std::string& given_mailname, const std::string& given_domain)
        : mailname(given_mailname), domain(given_domain) {
        if (mailname.empty() || domain.empty())
            report_fatal("empty mailname or maildomain");
        const MailOwnerIds owner = mail_owner_ids();
        if (!owner.known())
            report_fatal("Unable to get popuser uid or gid\n");
        ascii = control_domain_name(domain);
        name = lower_ascii(mailname);
        ids = {owner.uid, owner.gid};
    }

    std::string record() const { return mailname_assign_record(name, ascii, name, ids); }

    // Its authentication record and its home tree, after its record left
    // assign; each failure is reported and the other still tried.
    int remove_owned_files() const {
        int result = 0;
        if (remove_mail_auth_user(name, ascii) != 0)
            result = -1;
        std::string home;
        if (mailname_home_path(home, mailname, domain) != 0 || remove_tree(home) != 0)
            result = -1;
        return result;
    }
};

}  // namespace

int remove_mailname_files(const std::string& mailname, const std::string& domain) {
    const RemovedMailname removed(mailname, domain);
    int result = 0;
    if (file_str_one(kUsersAssign, removed.record(), LineAction::remove_exact, LinePosition::anywhere) != 0) {
        const std::string address = removed.name + "@" + removed.ascii;
        report_failure("Unable to remove %s mailbox record from assign file", address.c_str());
        result = -1;
    }
    return removed.remove_owned_files() != 0 ? -1 : result;
}

int remove_mailname_and_alias_files(const std::string& mailname, const std::string& domain,
                                    const std::vector<std::string>& aliases) {
    if (aliases.empty())
        return remove_mailname_files(mailname, domain);
    std::vector<std::string> records;
    for (const std::string& alias : aliases)
        records.push_back(alias_record(mailname, domain, alias, "Unable to get popuser uid or gid\n"));
    const RemovedMailname removed(mailname, domain);
    records.push_back(removed.record());
    // Every one of these records ends in the fields of the mail name's home.
    if (file_str(kUsersAssign, records, LineAction::remove_exact, LinePosition::anywhere,
                 mailname_assign_tail(removed.ascii, removed.name, removed.ids)) != 0)
        report_fatal("Unable to remove record from assign file");
    set_assign_mode();
    return removed.remove_owned_files();
}
