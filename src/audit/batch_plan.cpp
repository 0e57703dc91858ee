#include "audit/batch_plan.h"

#include "audit/json_text.h"
#include "audit/repair_plan.h"
#include "audit/report_output.h"
#include "runtime/shown_text.h"

namespace crelm::audit {

std::optional<std::string> batch_line(const std::vector<std::string>& arguments) {
    std::string line = "{\"args\":[";
    const char* separator = "";
    for (const std::string& argument : arguments) {
        if (!is_utf8_text(argument))
            return std::nullopt;
        line += separator;
        line += json_quoted(argument);
        separator = ",";
    }
    return line + "]}";
}

void print_batch_plan(std::ostream& out, std::ostream& err, const std::vector<Finding>& findings,
                      const ReadCounts& counts) {
    print_report(err, findings, counts, ReportOptions{});
    const RepairPlan plan = plan_repairs(findings);
    std::vector<std::string> unwritten;
    for (const PlannedCommand& command : plan.commands) {
        const std::optional<std::string> line = batch_line(command.arguments);
        if (line)
            out << *line << '\n';
        else
            unwritten.insert(unwritten.end(), command.fixes.begin(), command.fixes.end());
    }
    for (const Finding* finding : plan.for_a_person)
        err << person_line(*finding) << '\n';
    for (const std::string& fix : unwritten)
        err << "needs a person: " << shown_text(fix) << '\n';
}

}  // namespace crelm::audit
