// Printing a run's findings: one line each and a summary, or one JSON
// document; with the repair plan when asked.
#pragma once

#include <ostream>
#include <vector>

#include "audit/findings.h"

namespace crelm::audit {

struct ReportOptions {
    bool json = false;
    bool repair_plan = false;
};

void print_report(std::ostream& out, const std::vector<Finding>& findings, const ReadCounts& counts,
                  const ReportOptions& options);

// The summary line, e.g. "2 findings (1 error, 1 warning, 0 notices) in 3
// domains, 12 mail names and 40 store rows".
std::string summary_line(const std::vector<Finding>& findings, const ReadCounts& counts);

// The plan's line for a finding that needs a person: "needs a person: <code>
// <object>", with what the person runs where the audit knows it and the value
// no paste carries where that is what stops the repair; one line of printable
// ASCII whatever the server's names hold.
std::string person_line(const Finding& finding);

}  // namespace crelm::audit
