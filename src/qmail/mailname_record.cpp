// The "=" record of a mail name in assign.
#include "qmail/control_files.h"
#include "qmail/control_lines.h"
#include "qmail/control_names.h"
#include "qmail/mailname_files.h"
#include "qmail/paths.h"
#include "qmail/qmail_report.h"

using namespace crelm::qmail;

int qmail_add_mailname_record(const std::string& mailname, const std::string& domain) {
    if (mailname.empty() || domain.empty()) {
        report_fatal("empty mailname, maildomain or mailalias");
    }
    const std::string ascii_domain = control_domain_name(domain);
    const std::string name = lower_ascii(mailname);
    const std::string address = name + "@" + ascii_domain;
    const PopuserIds ids = popuser_ids_or_die("Unable to define UID or GID for user popuser");
    const std::string record = mailname_assign_record(name, ascii_domain, name, ids);

    // Taking the record out first and putting it back at the top leaves it
    // there exactly once, and above the closing "." line.
    if (!remove_line_if_present(kUsersAssign, record)) {
        report_failure("Unable to remove record for %s from assign file", address.c_str());
    }
    if (!insert_line_at_top(kUsersAssign, record)) {
        remove_mailname_files(mailname, domain);
        report_fatal("Unable to add record for %s to assign file", address.c_str());
    }
    set_assign_mode();
    return 0;
}
