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

}  // namespace crelm::audit
