// The "=" records of a mail name's aliases: "<domain>-<alias>" delivered to
// the mail name's home.
#include "qmail/control_files.h"
#include "qmail/control_lines.h"
#include "qmail/control_names.h"
#include "qmail/mailname_record.h"
#include "qmail/paths.h"
#include "qmail/qmail_report.h"

using namespace crelm::qmail;

std::string crelm::qmail::alias_record(const std::string& mailname, const std::string& domain, const std::string& alias,
                                       const char* unknown_owner_text) {
    if (mailname.empty() || domain.empty() || alias.empty()) {
        report_fatal("empty mailname, maildomain or mailalias");
    }
    const std::string ascii_domain = control_domain_name(domain);
    const PopuserIds ids = popuser_ids_or_die(unknown_owner_text);
    return mailname_assign_record(lower_ascii(alias), ascii_domain, lower_ascii(mailname), ids);
}

int qmail_add_mail_alias(const std::string& mailname, const std::string& domain, const std::string& alias) {
    const std::string record = alias_record(mailname, domain, alias, "Unable to define UID or GID for user popuser");
    // One rewrite takes the record's old copies out and puts it at the top;
    // without assign, the removal finds no file and is reported.
    const LineOnTop placed = put_line_on_top_once(kUsersAssign, record);
    if (placed == LineOnTop::no_file) {
        report_failure("Unable to remove record from assign file");
    }
    if (placed == LineOnTop::failed || (placed == LineOnTop::no_file && !insert_line_at_top(kUsersAssign, record))) {
        report_fatal("Unable to add record to assign file");
    }
    set_assign_mode();
    return 0;
}

int qmail_remove_mail_alias(const std::string& mailname, const std::string& domain, const std::string& alias) {
    const std::string record = alias_record(mailname, domain, alias, "Unable to get popuser uid or gid\n");
    if (!remove_line(kUsersAssign, record)) {
        report_fatal("Unable to remove record from assign file");
    }
    set_assign_mode();
    return 0;
}
