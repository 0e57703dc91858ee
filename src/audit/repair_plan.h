// The repairs of a run's findings as one plan: each distinct sorvane command
// once, in a safe order (removals first; then domains before their mail
// names, mail names before their mailboxes and aliases), and the findings no
// command repairs. Each command is one line that a person can paste or a
// script run as it is printed: a repair whose arguments hold a byte no
// paste carries (see runtime/command_line_quote.h) is left to a person.
#pragma once

#include <string>
#include <vector>

#include "audit/finding.h"

namespace crelm::audit {

struct PlannedCommand {
    std::string command_line;        // "sorvane <arguments>", quoted where needed; printable ASCII
    std::vector<std::string> fixes;  // "<code> <object>" of each finding it repairs
    std::vector<std::string> arguments;  // the command's arguments, unquoted, without the program name
};

struct RepairPlan {
    std::vector<PlannedCommand> commands;
    std::vector<const Finding*> for_a_person;
};

// One command line as the shell takes it back (each argument bare or in
// single quotes).
std::string shell_command_line(const std::vector<std::string>& arguments);

// True when every argument of every repair of the finding survives a paste.
bool repairs_carried(const Finding& finding);

// The first argument of the finding's repairs that no paste carries, as
// shown_text shows it; empty when there is none.
std::string uncarried_argument(const Finding& finding);

RepairPlan plan_repairs(const std::vector<Finding>& findings);

}  // namespace crelm::audit
