// The "=" record of a mail name in assign.
#include "qmail/mailname_record.h"

#include "qmail/control_files.h"
#include "qmail/control_lines.h"
#include "qmail/control_names.h"
#include "qmail/paths.h"
#include "qmail/qmail_report.h"

using namespace crelm::qmail;

namespace crelm::qmail {

std::string mailname_record_line(const std::string& mailname, const std::string& domain) {
    if (mailname.empty() || domain.empty()) {
        report_fatal("empty mailname, maildomain or mailalias");
    }
    const std::string ascii_domain = control_domain_name(domain);
    const std::string name = lower_ascii(mailname);
    const PopuserIds ids = popuser_ids_or_die("Unable to define UID or GID for user popuser");
    return mailname_assign_record(name, ascii_domain, name, ids);
}

bool assign_holds_record(const std::string& record) {
    return file_holds_line(kUsersAssign, record).value_or(true);
}

}  // namespace crelm::qmail

int qmail_add_mailname_record(const std::string& mailname, const std::string& domain) {
    const std::string record = mailname_record_line(mailname, domain);
    const std::string address = lower_ascii(mailname) + "@" + control_domain_name(domain);
    const bool held_before = assign_holds_record(record);

    // Taking the record out first and putting it back at the top leaves it
    // there exactly once, and above the closing "." line.
    if (!remove_line_if_present(kUsersAssign, record)) {
        report_failure("Unable to remove record for %s from assign file", address.c_str());
    }
    if (!insert_line_at_top(kUsersAssign, record)) {
        // Nothing else of the mail name has been made yet; a record that was
        // there before this run is tried once more, so that mail for an
        // existing mail name keeps its way home.
        if (held_before) {
            insert_line_at_top(kUsersAssign, record);
        }
        report_fatal("Unable to add record for %s to assign file", address.c_str());
    }
    set_assign_mode();
    return 0;
}
