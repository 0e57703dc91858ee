#include "audit/report_output.h"

#include "audit/repair_plan.h"
#include "runtime/shown_text.h"

namespace crelm::audit {

namespace {

std::size_t count_of(const std::vector<Finding>& findings, Severity severity) {
    std::size_t count = 0;
    for (const Finding& finding : findings)
        count += finding.severity == severity ? 1 : 0;
    return count;
}

std::string counted(std::size_t count, const char* one, const char* many) {
    return std::to_string(count) + " " + (count == 1 ? one : many);
}

// "<code> <object>", and what the person runs when the finding says; one
// line of printable ASCII whatever the server's names hold.
std::string person_entry(const Finding& finding) {
    std::string entry = finding.code + " " + shown_text(finding.object);
    if (!finding.person_fix.empty())
        entry += ": " + shown_text(finding.person_fix);
    return entry;
}

void print_text(std::ostream& out, const std::vector<Finding>& findings, const ReadCounts& counts,
                const ReportOptions& options) {
    for (const Finding& finding : findings)
        out << finding_line(finding) << '\n';
    out << summary_line(findings, counts) << '\n';
    if (!options.repair_plan)
        return;
    const RepairPlan plan = plan_repairs(findings);
    out << "repair plan:\n";
    for (const PlannedCommand& command : plan.commands)
        out << command.command_line << '\n';
    for (const Finding* finding : plan.for_a_person)
        out << person_line(*finding) << '\n';
}

void print_json(std::ostream& out, const std::vector<Finding>& findings, const ReadCounts& counts,
                const ReportOptions& options) {
    out << "{\"findings\":[";
    const char* separator = "";
    for (const Finding& finding : findings) {
        out << separator << "{\"code\":" << json_plain_string(finding.code)
            << ",\"severity\":" << json_plain_string(severity_name(finding.severity))
            << ",\"object\":" << json_shown_string(finding.object)
            << ",\"detail\":" << json_shown_string(finding.detail) << ",\"repair\":[";
        const char* inner = "";
        // A repair that cannot be pasted is left to a person here too.
        for (const std::vector<std::string>& repair : repairs_carried(finding) ? finding.repairs
                                                                               : decltype(finding.repairs){}) {
            out << inner << json_plain_string(shell_command_line(repair));
            inner = ",";
        }
        out << "]}";
        separator = ",";
    }
    out << "],\"summary\":{\"findings\":" << findings.size() << ",\"error\":" << count_of(findings, Severity::error)
        << ",\"warning\":" << count_of(findings, Severity::warning)
        << ",\"notice\":" << count_of(findings, Severity::notice) << ",\"domains\":" << counts.domains
        << ",\"mail_names\":" << counts.mail_names << ",\"rows\":" << counts.rows << "}";
    if (options.repair_plan) {
        const RepairPlan plan = plan_repairs(findings);
        out << ",\"repair_plan\":{\"commands\":[";
        separator = "";
        for (const PlannedCommand& command : plan.commands) {
            out << separator << "{\"command\":" << json_plain_string(command.command_line) << ",\"fixes\":[";
            const char* inner = "";
            for (const std::string& fix : command.fixes) {
                out << inner << json_shown_string(fix);
                inner = ",";
            }
            out << "]}";
            separator = ",";
        }
        out << "],\"needs_a_person\":[";
        separator = "";
        for (const Finding* finding : plan.for_a_person) {
            out << separator << json_shown_string(person_entry(*finding));
            separator = ",";
        }
        out << "]}";
    }
    out << "}\n";
}

}  // namespace

std::string person_line(const Finding& finding) {
    std::string line = "needs a person: " + person_entry(finding);
    const std::string uncarried = uncarried_argument(finding);
    if (!uncarried.empty())
        line += " (its repair needs a value no paste carries: " + uncarried + ")";
    return line;
}

std::string summary_line(const std::vector<Finding>& findings, const ReadCounts& counts) {
    return counted(findings.size(), "finding", "findings") + " (" +
           counted(count_of(findings, Severity::error), "error", "errors") + ", " +
           counted(count_of(findings, Severity::warning), "warning", "warnings") + ", " +
           counted(count_of(findings, Severity::notice), "notice", "notices") + ") in " +
           counted(counts.domains, "domain", "domains") + ", " +
           counted(counts.mail_names, "mail name", "mail names") + " and " +
           counted(counts.rows, "store row", "store rows");
}

void print_report(std::ostream& out, const std::vector<Finding>& findings, const ReadCounts& counts,
                  const ReportOptions& options) {
    if (options.json)
        print_json(out, findings, counts, options);
    else
        print_text(out, findings, counts, options);
}

}  // namespace crelm::audit
