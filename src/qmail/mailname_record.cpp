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

namespace {

// Without assign, step by step: the removal is reported as failed, as there
// is no file to take the record out of, and the record makes a new assign.
bool add_record_in_steps(const std::string& record, const std::string& address) {
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
    return held_before;
}

}  // namespace

namespace crelm::qmail {

int add_mailname_record(const std::string& mailname, const std::string& domain, bool& held_before) {
    const std::string record = mailname_record_line(mailname, domain);
    const std::string address = lower_ascii(mailname) + "@" + control_domain_name(domain);
    // The record's old copies go and it is put at the top in one rewrite,
    // which leaves it there once, above the closing "." line, and tells
    // whether it was there; a failed rewrite leaves assign as it was, a
    // record that was there included.
    switch (put_line_on_top_once(kUsersAssign, record, &held_before)) {
        case LineOnTop::placed:
            break;
        case LineOnTop::no_file:
            held_before = add_record_in_steps(record, address);
            break;
        case LineOnTop::failed:
            // Nothing else of the mail name has been made yet; a record that
            // was there before this run is tried once more, so that mail for
            // an existing mail name keeps its way home.
            if (assign_holds_record(record)) {
                put_line_on_top_once(kUsersAssign, record);
            }
            report_fatal("Unable to add record for %s to assign file", address.c_str());
    }
    set_assign_mode();
    return 0;
}

}  // namespace crelm::qmail

int qmail_add_mailname_record(const std::string& mailname, const std::string& domain) {
    bool held_before = false;
    return crelm::qmail::add_mailname_record(mailname, domain, held_before);
}
