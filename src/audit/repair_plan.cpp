#include "audit/repair_plan.h"

#include <algorithm>
#include <map>
#include <utility>

#include "runtime/shown_text.h"
#include "runtime/command_line_quote.h"

namespace crelm::audit {

std::string shell_command_line(const std::vector<std::string>& arguments) {
    return command_line("sorvane", arguments);
}

std::string uncarried_argument(const Finding& finding) {
    for (const std::vector<std::string>& repair : finding.repairs)
        for (const std::string& argument : repair)
            if (!command_line_carries(argument))
                return shown_text(argument);
    return std::string();
}

bool repairs_carried(const Finding& finding) {
    for (const std::vector<std::string>& repair : finding.repairs)
        for (const std::string& argument : repair)
            if (!command_line_carries(argument))
                return false;
    return true;
}

namespace {

// A removal takes away what nothing should have; run first, it cannot
// take away what an addition of the same plan has just made (an alias
// moved from one mail name to another keeps its login rows only so).
bool removes(const Finding& finding) {
    if (finding.repairs.empty() || finding.repairs.front().empty())
        return false;
    const std::string& command = finding.repairs.front().front();
    return command.rfind("--remove-", 0) == 0 || command.rfind("--del-", 0) == 0;
}

}  // namespace

RepairPlan plan_repairs(const std::vector<Finding>& findings) {
    // Findings come sorted by severity; the plan runs removals first, then
    // the rest, each by phase, keeping the findings' order within a phase.
    std::vector<const Finding*> ordered;
    for (const Finding& finding : findings)
        ordered.push_back(&finding);
    std::stable_sort(ordered.begin(), ordered.end(), [](const Finding* a, const Finding* b) {
        return std::make_pair(!removes(*a), a->phase) < std::make_pair(!removes(*b), b->phase);
    });
    RepairPlan plan;
    std::map<std::string, std::size_t> planned;
    for (const Finding* finding : ordered) {
        if (finding->repairs.empty() || !repairs_carried(*finding)) {
            plan.for_a_person.push_back(finding);
            continue;
        }
        for (const std::vector<std::string>& repair : finding->repairs) {
            const std::string line = shell_command_line(repair);
            auto [at, added] = planned.emplace(line, plan.commands.size());
            if (added)
                plan.commands.push_back({line, {}, repair});
            plan.commands[at->second].fixes.push_back(finding->code + " " + finding->object);
        }
    }
    return plan;
}

}  // namespace crelm::audit
