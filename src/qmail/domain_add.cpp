// Adding a mail domain: its directory, its "+" record in assign and its
// lines in rcpthosts and virtualdomains.
#include <cerrno>
#include <cstring>

#include "qmail/control_files.h"
#include "qmail/control_lines.h"
#include "qmail/control_names.h"
#include "qmail/mail_owner.h"
#include "qmail/mailname_files.h"
#include "qmail/paths.h"
#include "qmail/qmail_report.h"
#include "runtime/system_users.h"

using namespace crelm::qmail;

namespace {

// Taking a line out and adding it again makes sure it is there exactly once.
void put_domain_record(const std::string& domain, const PopuserIds& ids) {
    const std::string record = domain_assign_record(domain, ids);
    // One rewrite takes the record's old copies out and puts it at the top;
    // without assign, the removal finds no file and is reported.
    const LineOnTop placed = put_line_on_top_once(kUsersAssign, record);
    if (placed == LineOnTop::no_file) {
        report_failure("Unable to remove domain record from assign file");
    }
    if (placed == LineOnTop::failed || (placed == LineOnTop::no_file && !insert_line_at_top(kUsersAssign, record))) {
        report_fatal("Unable to add default string to assign file for mail domain");
    }
    set_assign_mode();
}

void put_rcpthosts_line(const std::string& domain) {
    if (!append_line(kRcptHosts, domain)) {
        qmail_remove_domain(domain);
        report_fatal("Unable to add domain record to rcpthosts.");
    }
}

void put_virtualdomains_line(const std::string& domain) {
    const std::string line = domain + ":" + domain;
    if (!remove_line_if_present(kVirtualDomains, line)) {
        report_failure("Unable to remove record from virtualdomains.");
    }
    if (!append_line(kVirtualDomains, line)) {
        qmail_remove_domain(domain);
        report_fatal("Unable to add record to virtualdomains.");
    }
}

}  // namespace

int qmail_add_domain(const std::string& domain_name, bool off) {
    if (domain_name.empty()) {
        report_fatal("empty domain");
    }
    const std::string domain = control_domain_name(domain_name);
    errno = 0;
    const MailOwnerIds owner = mail_owner_ids();
    if (!owner.known()) {
        report_failure("Unable to get %s user info: %s\n", kMailOwner,
                       errno != 0 ? std::strerror(errno) : "User not found");
        return -1;
    }
    if (create_domain_dir(domain) != 0) {
        qmail_remove_domain(domain);
        return -1;
    }
    put_domain_record(domain, PopuserIds{owner.uid, owner.gid});
    if (!remove_line(kRcptHosts, domain)) {
        report_failure("Unable to remove domain record from rcpthosts file");
    }
    if (off) {
        if (!remove_line(kVirtualDomains, domain + ":" + domain)) {
            report_failure("Unable to remove record from virtualdomains.");
        }
        return 0;
    }
    put_rcpthosts_line(domain);
    put_virtualdomains_line(domain);
    return 0;
}
