#include "audit/checks.h"

#include <sys/stat.h>

#include <map>
#include <set>

#include "audit/leftover_temporaries.h"
#include "audit/repair_commands.h"
#include "audit/store_checks.h"

namespace crelm::audit {

namespace {

constexpr const char* kCdbPath = "/var/qmail/users/cdb";

// What a line of a control file is about: the domain before any ':'.
std::string line_domain(const std::string& line) { return line.substr(0, line.find(':')); }

bool plain_name(const std::string& name) {
    if (name.empty())
        return false;
    for (char c : name)
        if (!((c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '.' || c == '-' || c == '_'))
            return false;
    return true;
}

void check_file_read(const AuditContext& context, const LineFile& file) {
    if (file.file.state == FileState::present || file.file.state == FileState::missing)
        return;
    context.findings.add(Severity::error, "control-file-unreadable", file.path, file_state_text(file.file));
}

// A line that qmail would not take as sorvane means it.
std::string line_problem(const LineFile& file, const std::string& line) {
    const bool mapping = file.path.find("virtualdomains") != std::string::npos;
    if (!mapping)
        return plain_name(line) ? std::string() : "not a lower-case domain name";
    const std::size_t colon = line.find(':');
    if (colon == std::string::npos)
        return "no ':' between domain and prefix";
    if (!plain_name(line.substr(0, colon)) || !plain_name(line.substr(colon + 1)))
        return "not <domain>:<prefix> in lower-case domain names";
    return {};
}

// The command that takes a domain's or domain alias's lines out and writes
// them once again; none for a line sorvane does not write.
std::vector<CommandLine> rewrite_of(const AuditContext& context, const std::string& name) {
    const std::string domain = domain_of(context.model, name);
    if (domain.empty())
        return {};
    const DomainFacts& facts = context.model.domains.at(domain);
    return {facts.enabled() ? turn_on_domain(context.server, context.model, domain)
                            : turn_off_domain(context.model, domain)};
}

void check_lines(const AuditContext& context, const LineFile& file) {
    check_file_read(context, file);
    std::map<std::string, int> seen;
    for (const std::string& line : file.lines) {
        if (!context.scope.covers(line_domain(line)) && !(line.empty() && context.scope.whole_server()))
            continue;
        if (++seen[line] == 2)
            context.findings.add(Severity::warning, "control-line-duplicated", file.path,
                                 "the line \"" + line + "\" is there more than once",
                                 rewrite_of(context, line_domain(line)), RepairPhase::domains);
        if (seen[line] == 1) {
            const std::string problem = line_problem(file, line);
            if (!problem.empty())
                context.findings.add(Severity::error, "control-line-unparsable", file.path,
                                     "\"" + line + "\": " + problem);
        }
    }
}

void check_enabled_domain(const AuditContext& context, const std::string& domain, const DomainFacts& facts) {
    // Repairs are built only for a finding: they read the domain's files.
    const auto turn_on = [&] { return std::vector<CommandLine>{turn_on_domain(context.server, context.model, domain)}; };
    if (!facts.in_rcpthosts)
        context.findings.add(Severity::error, "domain-missing-rcpthosts", domain,
                             "the domain is enabled but qmail does not accept its mail (not in rcpthosts)", turn_on(),
                             RepairPhase::domains);
    if (!facts.in_virtualdomains)
        context.findings.add(Severity::error, "domain-missing-virtualdomains", domain,
                             "the domain is enabled but has no line " + domain + ":" + domain + " in virtualdomains",
                             turn_on(), RepairPhase::domains);
}

void check_disabled_domain(const AuditContext& context, const std::string& domain, const DomainFacts& facts) {
    const auto turn_off = [&] { return std::vector<CommandLine>{turn_off_domain(context.model, domain)}; };
    if (facts.in_rcpthosts)
        context.findings.add(Severity::warning, "domain-disabled-in-rcpthosts", domain,
                             "the domain is disabled but qmail still accepts its mail (rcpthosts)", turn_off(),
                             RepairPhase::domains);
    if (facts.in_virtualdomains)
        context.findings.add(Severity::warning, "domain-disabled-in-virtualdomains", domain,
                             "the domain is disabled but still delivered (virtualdomains)", turn_off(),
                             RepairPhase::domains);
    if (!facts.in_rejectnonexist)
        context.findings.add(Severity::warning, "domain-disabled-not-rejecting", domain,
                             "the domain is disabled but not in rejectnonexist", turn_off(), RepairPhase::domains);
}

void check_domain(const AuditContext& context, const std::string& domain, const DomainFacts& facts) {
    // A domain that only the stores name is the store check's leftover.
    if (known_only_to_store(context.model, domain))
        return;
    const bool hosted = facts.plus_record != nullptr || facts.has_dir || facts.auth != nullptr;
    if (!hosted) {
        // Only control lines are left: a removal that did not finish.
        context.findings.add(Severity::warning, "domain-leftover-lines", domain,
                             "control lines of a domain that has no record, directory or store row",
                             {remove_domain(context.model, domain)}, RepairPhase::domains);
        return;
    }
    // Adding the domain again makes its record, directory and default, and
    // takes it out of locals; switching it on or off again restores its
    // state and action.
    const auto complete = [&] {
        return std::vector<CommandLine>{add_domain(domain), facts.enabled()
                                                                ? turn_on_domain(context.server, context.model, domain)
                                                                : turn_off_domain(context.model, domain)};
    };
    if (facts.plus_record == nullptr)
        context.findings.add(Severity::error, "domain-missing-assign-record", domain,
                             "no \"+" + domain + ":\" record in assign", complete(), RepairPhase::domains);
    // Behind a link at the mail names directory that the audit does not
    // follow, the domains' directories are unread, not missing: the link
    // is the finding (root-link-unsafe).
    if (!facts.has_dir && context.server.mailnames_dir_state.state != FileState::link)
        context.findings.add(Severity::error, "domain-missing-directory", domain,
                             "no directory " + context.server.mailnames_dir + "/" + domain, complete(),
                             RepairPhase::domains);
    if (facts.in_locals)
        context.findings.add(Severity::error, "locals-lists-virtual-domain", domain,
                             "locals lists the domain, so qmail delivers it to system users", complete(),
                             RepairPhase::domains);
    if (facts.enabled())
        check_enabled_domain(context, domain, facts);
    else
        check_disabled_domain(context, domain, facts);
}

struct LineSets {
    std::set<std::string> rcpthosts;
    std::set<std::string> locals;
};

void check_domain_alias(const AuditContext& context, const LineSets& lines, const std::string& alias,
                        const std::string& domain) {
    const auto target = context.model.domains.find(domain);
    if (target == context.model.domains.end()) {
        context.findings.add(Severity::error, "domain-alias-unknown-domain", alias,
                             "virtualdomains maps it to " + domain + ", which is not hosted here");
        return;
    }
    if (target->second.enabled() && lines.rcpthosts.count(alias) == 0)
        context.findings.add(Severity::error, "domain-alias-missing-rcpthosts", alias,
                             "qmail does not accept mail for the alias of " + domain + " (not in rcpthosts)",
                             {turn_on_domain(context.server, context.model, domain)}, RepairPhase::domain_aliases);
    if (lines.locals.count(alias) != 0)
        context.findings.add(Severity::error, "locals-lists-virtual-domain", alias,
                             "locals lists the domain alias, so qmail delivers it to system users",
                             {add_domain_alias(context.server, context.model, domain, alias)},
                             RepairPhase::domain_aliases);
}

void check_rcpthosts_names(const AuditContext& context, const LineSets& lines) {
    for (const std::string& line : context.server.rcpthosts.lines) {
        if (line.empty() || !context.scope.covers(line) || context.model.domains.count(line) != 0 ||
            context.model.domain_aliases.count(line) != 0)
            continue;
        if (lines.locals.count(line) == 0)
            context.findings.add(Severity::notice, "rcpthosts-unknown-domain", line,
                                 "rcpthosts accepts mail for it, but it is neither hosted, a domain alias nor local");
    }
}

void check_assign(const AuditContext& context) {
    const ServerSnapshot& server = context.server;
    if (server.assign_file.state != FileState::present) {
        context.findings.add(Severity::error, "assign-unreadable", "/var/qmail/users/assign",
                             file_state_text(server.assign_file));
        return;
    }
    if (!context.scope.whole_server())
        return;
    for (const AssignDefect& defect : server.assign.defects)
        context.findings.add(Severity::error, "assign-line-unparsable", "/var/qmail/users/assign",
                             "line " + std::to_string(defect.line) + ": " + defect.why);
    if (!server.assign.ends_with_dot)
        context.findings.add(Severity::error, "assign-missing-end", "/var/qmail/users/assign",
                             "no \".\" line ends the table: qmail-newu refuses it");
    if (!server.cdb_exists)
        context.findings.add(Severity::error, "assign-not-compiled", kCdbPath,
                             "the compiled table is missing: run /var/qmail/bin/qmail-newu");
    else if (server.cdb_info.st_mtim.tv_sec < server.assign_file.info.st_mtim.tv_sec ||
             (server.cdb_info.st_mtim.tv_sec == server.assign_file.info.st_mtim.tv_sec &&
              server.cdb_info.st_mtim.tv_nsec < server.assign_file.info.st_mtim.tv_nsec))
        context.findings.add(Severity::warning, "assign-not-compiled", kCdbPath,
                             "older than assign, a rebuild is pending: run /var/qmail/bin/qmail-newu");
}

void check_records(const AuditContext& context) {
    const ServerSnapshot& server = context.server;
    std::map<std::string, std::size_t> keys;
    const std::string uid = std::to_string(server.popuser_uid);
    const std::string gid = std::to_string(server.popuser_gid);
    for (const AssignRecord& record : server.assign.records) {
        if (++keys[std::string(1, record.kind) + record.key] == 2 && context.scope.whole_server())
            context.findings.add(Severity::error, "assign-record-duplicated", "/var/qmail/users/assign",
                                 "the key " + std::string(1, record.kind) + record.key + " is there more than once");
        if (record.user != "popuser" || record.uid != uid || record.gid != gid) {
            if (context.scope.whole_server())
                context.findings.add(Severity::error, "assign-record-owner", "/var/qmail/users/assign",
                                     "line " + std::to_string(record.line) + " (" + std::string(1, record.kind) +
                                         record.key + ") does not deliver as popuser");
        }
    }
    if (!context.scope.whole_server())
        return;
    for (const AssignRecord* record : context.model.odd_records)
        context.findings.add(Severity::warning, "assign-record-foreign", "/var/qmail/users/assign",
                             "line " + std::to_string(record->line) + " (" + std::string(1, record->kind) +
                                 record->key + "): its home " + record->home + " is not where sorvane puts it");
}

}  // namespace

void check_control_files(const AuditContext& context) {
    const ServerSnapshot& server = context.server;
    check_lines(context, server.rcpthosts);
    check_lines(context, server.virtualdomains);
    check_lines(context, server.locals);
    check_lines(context, server.rejectnonexist);
    check_assign(context);
    check_records(context);
    for (const auto& [domain, facts] : context.model.domains)
        if (context.scope.covers(domain))
            check_domain(context, domain, facts);
    const LineSets lines{{server.rcpthosts.lines.begin(), server.rcpthosts.lines.end()},
                         {server.locals.lines.begin(), server.locals.lines.end()}};
    for (const auto& [alias, domain] : context.model.domain_aliases)
        if (context.scope.covers(domain) || context.scope.covers(alias))
            check_domain_alias(context, lines, alias, domain);
    check_rcpthosts_names(context, lines);
    check_control_temporaries(context);
    for (const std::string& alias : context.model.aliases_hosted_too)
        if (context.scope.covers(alias) || context.scope.covers(domain_of(context.model, alias)))
            context.findings.add(Severity::error, "domain-alias-hosted-too", alias,
                                 "a domain alias of " + domain_of(context.model, alias) +
                                     " that has a record or directory of a domain of its own");
}

}  // namespace crelm::audit
