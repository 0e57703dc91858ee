// The host's own names (audit/host_names.h) against what is hosted and what
// locals lists. A customer that hosts one of them takes mail that is the
// host's (postmaster, root), and adding it took it out of locals, where
// removing the domain does not put it back. Neither is for a command to
// undo: a person decides whose the name is.
#include "audit/checks.h"

#include <algorithm>

#include "audit/host_names.h"
#include "qmail/control_names.h"
#include "qmail/paths.h"

namespace crelm::audit {

namespace {

bool hosted(const DomainFacts& facts) {
    return facts.plus_record != nullptr || facts.has_dir || facts.auth != nullptr || facts.in_virtualdomains;
}

void check_hosted_names(const AuditContext& context) {
    for (const auto& [domain, facts] : context.model.domains) {
        if (!context.scope.covers(domain) || !hosted(facts))
            continue;
        const std::string reason = host_name_reason(context.server, domain);
        if (!reason.empty())
            context.findings.add(Severity::error, "domain-is-host-name", domain,
                                 "a hosted domain that is " + reason +
                                     ": its mail (postmaster, root) is the host's, not a customer's");
    }
    for (const auto& [alias, domain] : context.model.domain_aliases) {
        if (!context.scope.covers(domain) && !context.scope.covers(alias))
            continue;
        const std::string reason = host_name_reason(context.server, alias);
        if (!reason.empty())
            context.findings.add(Severity::error, "domain-alias-is-host-name", alias,
                                 "a domain alias of " + domain + " that is " + reason +
                                     ": its mail (postmaster, root) is the host's, not a customer's");
    }
}

// qmail's own set-up lists localhost and control/me's name in locals;
// without its line, mail to postmaster@ and root@ that name is no longer
// delivered to the host.
void check_locals_lines(const AuditContext& context) {
    const LineFile& locals = context.server.locals;
    if (locals.file.state != FileState::present)
        return;
    std::vector<std::string> names{"localhost"};
    if (!context.server.me.empty() && context.server.me != "localhost")
        names.push_back(context.server.me);
    for (const std::string& name : names) {
        const bool listed = std::any_of(locals.lines.begin(), locals.lines.end(),
                                        [&](const std::string& line) { return qmail::lower_ascii(line) == name; });
        if (!listed)
            context.findings.add(Severity::warning, "locals-missing-host-name", qmail::kLocals,
                                 "locals does not list " + name + ", " + host_name_reason(context.server, name) +
                                     ": its mail (postmaster, root) is not delivered to the host");
    }
}

}  // namespace

void check_host_names(const AuditContext& context) {
    check_hosted_names(context);
    if (context.scope.whole_server())
        check_locals_lines(context);
}

}  // namespace crelm::audit
