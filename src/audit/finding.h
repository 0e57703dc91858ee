// One thing the audit found out of step: what kind (a stable code), how bad,
// which object it concerns, and the sorvane command that repairs it, if one
// does.
#pragma once

#include <string>
#include <vector>

namespace crelm::audit {

// error: mail is lost, refused or readable by the wrong user, or a command
// would fail; warning: the server works but is not what sorvane leaves;
// notice: left-overs that do no harm.
enum class Severity { error, warning, notice };

const char* severity_name(Severity severity);

// When repairs run: lower phases first. A domain must be back before its
// mail names, mail names before their mailboxes and aliases, and the
// rebuild of the compiled table comes last.
enum class RepairPhase { domains = 0, domain_aliases = 1, mail_names = 2, mailboxes = 3, mail_aliases = 4, quotas = 5, rebuild = 6 };

struct Finding {
    Severity severity = Severity::error;
    std::string code;    // stable: "<area>-<what>", e.g. "domain-missing-rcpthosts"
    std::string object;  // a domain, an address, a file or a store
    std::string detail;  // one line, no newline
    // The sorvane commands that repair it, in order, each as its arguments
    // without the program name; none when a person has to look at it.
    std::vector<std::vector<std::string>> repairs;
    RepairPhase phase = RepairPhase::rebuild;
    // When no sorvane command repairs it but a person can: the exact thing
    // to run or do (e.g. "groupadd -r popuser"), shown with the plan.
    std::string person_fix;
};

// Findings print sorted by severity, code, object and detail.
bool finding_before(const Finding& a, const Finding& b);

// The text line "<severity> <code> <object>: <detail>", object and detail
// as shown_text shows them (one line, printable ASCII).
std::string finding_line(const Finding& finding);

}  // namespace crelm::audit
