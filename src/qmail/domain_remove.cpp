// Removing a mail domain from the control files, the authentication store,
// assign and the mail names tree.
#include "qmail/control_files.h"
#include "qmail/control_lines.h"
#include "qmail/control_names.h"
#include "qmail/paths.h"
#include "qmail/qmail_report.h"
#include "stores/mail_auth_store.h"
#include "util/file_stamp.h"
#include "util/tree_walk.h"

using namespace crelm::qmail;

int qmail_remove_domain(const std::string& domain_name) {
    if (domain_name.empty()) {
        report_fatal("empty maildomain");
    }
    const std::string domain = control_domain_name(domain_name);
    const PopuserIds ids = popuser_ids_or_die("Unable to define UID or GID for user popuser");
    // A failed removal is reported and the steps go on; the result tells
    // the caller that the domain is still accepted (a second run removes it).
    const LineRemoval removal = take_line_out(kRcptHosts, domain, true);
    if (removal != LineRemoval::taken_out) {
        report_failure("Unable to remove domain from rcpthosts file");
    }
    bool removed = removal != LineRemoval::failed;
    if (!remove_line(kVirtualDomains, domain + ":" + domain)) {
        report_fatal("Unable to remove domain from virtualdomains file");
    }
    if (remove_mail_auth_domain(domain) != 0) {
        return -1;
    }
    // Every record whose home lies in the domain's directory: its mail
    // names and their aliases. The closing "/" keeps domains whose names
    // merely begin the same ("a.test" and "a.test.example"). The domain's
    // own "+" record (no other line can hold it whole) goes in the same
    // pass, so that a large assign is rewritten once; its removal below
    // then finds nothing left to rewrite for. Both texts hold the domain's
    // directory without its closing "/", which is searched for once.
    const std::string home_prefix = domain_home_prefix(domain);
    const std::string domain_record = domain_assign_record(domain, ids);
    crelm::util::FileStamp left;
    if (!remove_lines_containing(kUsersAssign, {home_prefix, domain_record}, &left,
                                 home_prefix.substr(0, home_prefix.size() - 1))) {
        report_fatal("error while deleting from file assign");
    }
    removed = remove_tree(home_prefix) == 0 && removed;
    // While assign is the file that pass left, it holds no such record and
    // is not read again; only another editor's rename or append since can
    // have brought one back.
    if (!crelm::util::same_stamp(left, crelm::util::stamp_of(kUsersAssign)) &&
        !remove_line_if_present(kUsersAssign, domain_record)) {
        report_fatal("Unable to remove domain mailbox record from assign file");
    }
    set_assign_mode();
    return removed ? 0 : -1;
}

int qmail_remove_from_locals(const std::string& domain_name) {
    if (!remove_line(kLocals, control_domain_name(domain_name))) {
        report_failure("Unable to remove domain record from locals.");
        return -1;
    }
    return 0;
}
