// The repairs of a run's findings as one plan: each distinct sorvane command
// once, in a safe order (removals first; then domains before their mail
// names, mail names before their mailboxes and aliases), and the findings no
// command repairs.
#pragma once

#include <string>
#include <vector>

#include "audit/finding.h"

namespace crelm::audit {

struct PlannedCommand {
    std::string command_line;        // "sorvane <arguments>", shell-quoted where needed
    std::vector<std::string> fixes;  // "<code> <object>" of each finding it repairs
};

struct RepairPlan {
    std::vector<PlannedCommand> commands;
    std::vector<const Finding*> for_a_person;
};

// One command line as the shell takes it back.
std::string shell_command_line(const std::vector<std::string>& arguments);

RepairPlan plan_repairs(const std::vector<Finding>& findings);

}  // namespace crelm::audit
