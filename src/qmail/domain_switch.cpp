// Switching a domain's mail service off and on: its rcpthosts and
// virtualdomains lines and its status in the authentication store.
#include "qmail/control_files.h"
#include "qmail/control_lines.h"
#include "qmail/control_names.h"
#include "qmail/paths.h"
#include "qmail/qmail_report.h"
#include "stores/mail_auth_store.h"

using namespace crelm::qmail;

namespace {

// The domain's lines out of rcpthosts and virtualdomains: 0, or -1 after
// reporting (virtualdomains is left alone when rcpthosts failed).
int take_domain_lines_out(const std::string& domain) {
    if (!remove_line(kRcptHosts, domain)) {
        // This step has always reported in these words, though the line is
        // rcpthosts', not assign's.
        report_failure("Unable to remove domain mailbox record from assign file");
        return -1;
    }
    if (!remove_line(kVirtualDomains, domain + ":" + domain)) {
        report_failure("ERROR: Unable to remove record from virtualdomains file");
        return -1;
    }
    return 0;
}

// The domain's lines into rcpthosts and virtualdomains, each once: 0, or -1
// after reporting (virtualdomains is left alone when rcpthosts failed).
int put_domain_lines_in(const std::string& domain) {
    // A failed removal is no reason to stop, since the append that follows
    // makes the line present in any case; but the line may now be there
    // twice, so the result says that a step failed.
    bool once = take_line_out(kRcptHosts, domain) != LineRemoval::failed;
    if (!append_line(kRcptHosts, domain)) {
        report_failure("Unable to add record to rcpthosts.");
        return -1;
    }
    const std::string line = domain + ":" + domain;
    const LineRemoval removal = take_line_out(kVirtualDomains, line);
    if (removal != LineRemoval::taken_out) {
        // reported even for a missing file, as this step always was
        report_failure("Unable to remove record from virtualdomains.");
    }
    once = once && removal != LineRemoval::failed;
    if (!append_line(kVirtualDomains, line)) {
        report_failure("Unable to add record to virtualdomains.");
        return -1;
    }
    return once ? 0 : -1;
}

}  // namespace

// The status in the authentication store is set whatever the control files
// gave: a domain whose lines could not be changed is still switched there,
// and the result tells that a step failed.
int qmail_domain_off(const std::string& domain_name) {
    const std::string domain = control_domain_name(domain_name);
    const int lines = take_domain_lines_out(domain);
    const int status = set_mail_auth_domain_status(domain, kMailAuthDomainStatusDisabled);
    return lines == 0 && status == 0 ? 0 : -1;
}

int qmail_domain_on(const std::string& domain_name) {
    const std::string domain = control_domain_name(domain_name);
    const int lines = put_domain_lines_in(domain);
    const int status = set_mail_auth_domain_status(domain, kMailAuthDomainStatusEnabled);
    return lines == 0 && status == 0 ? 0 : -1;
}
