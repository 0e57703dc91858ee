// A domain alias in the control files: accepted in rcpthosts and delivered
// as its domain through virtualdomains.
#include "qmail/control_files.h"
#include "qmail/control_lines.h"
#include "qmail/control_names.h"
#include "qmail/mailname_files.h"
#include "qmail/paths.h"
#include "qmail/qmail_report.h"

using namespace crelm::qmail;

namespace {

void require_names(const std::string& domain, const std::string& alias) {
    if (domain.empty() || alias.empty()) {
        report_fatal("empty domain or domain alias");
    }
}

// Both return whether the old line could be taken out first: a failure there
// is reported and the line appended anyway, as it must be there in any case.
bool put_alias_in_rcpthosts(const std::string& alias) {
    const LineRemoval removal = take_line_out(kRcptHosts, alias);
    if (removal != LineRemoval::taken_out) {
        report_failure("Unable to remove domain record alias from rcpthosts file");
    }
    if (!append_line(kRcptHosts, alias)) {
        remove_line(kRcptHosts, alias);
        report_fatal("Unable to add domain record alias to rcpthosts.");
    }
    return removal != LineRemoval::failed;
}

bool put_alias_in_virtualdomains(const std::string& alias_line, const std::string& alias) {
    const LineRemoval removal = take_line_out(kVirtualDomains, alias_line);
    if (removal != LineRemoval::taken_out) {
        report_failure("Unable to remove domain record alias from virtualdomains.");
    }
    if (!append_line(kVirtualDomains, alias_line)) {
        // Without its virtualdomains line the alias is not to be accepted
        // either.
        remove_line(kVirtualDomains, alias_line);
        remove_line(kRcptHosts, alias);
        report_fatal("Unable to add domain record alias to virtualdomains.");
    }
    return removal != LineRemoval::failed;
}

}  // namespace

int qmail_add_domain_alias(const std::string& domain_name, const std::string& alias_name) {
    require_names(domain_name, alias_name);
    const std::string domain = control_domain_name(domain_name);
    const std::string alias = control_domain_name(alias_name);
    const bool rcpthosts_once = put_alias_in_rcpthosts(alias);
    const bool virtualdomains_once = put_alias_in_virtualdomains(alias + ":" + domain, alias);
    if (!remove_line(kLocals, alias)) {
        report_failure("Unable to remove domain record from locals.");
    }
    return rcpthosts_once && virtualdomains_once ? 0 : -1;
}

int qmail_remove_domain_alias(const std::string& domain_name, const std::string& alias_name) {
    require_names(domain_name, alias_name);
    const std::string domain = control_domain_name(domain_name);
    const std::string alias = control_domain_name(alias_name);
    const LineRemoval removal = take_line_out(kRcptHosts, alias, true);
    if (removal != LineRemoval::taken_out) {
        report_failure("Unable to remove domain alias from rcpthosts file");
    }
    if (!remove_line(kVirtualDomains, alias + ":" + domain)) {
        report_fatal("Unable to remove domain alias from virtualdomains file");
    }
    remove_qmail_default(alias);
    return removal == LineRemoval::failed ? -1 : 0;
}
