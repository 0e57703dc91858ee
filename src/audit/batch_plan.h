// The repair plan as a batch document that "sorvane --batch" runs as it
// stands: one JSON object per line on standard output, nothing else there,
// and everything meant for a person's eyes on standard error.
#pragma once

#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "audit/findings.h"

namespace crelm::audit {

// The batch line of one command, {"args":["--add-domain","--domain-name=x.test"]}:
// its arguments exactly as the text plan gives them on the command line, the
// session lists among them (so that the command reads no standard input).
// nullopt when an argument is not UTF-8 text, which a JSON string cannot
// carry byte for byte.
std::optional<std::string> batch_line(const std::vector<std::string>& arguments);

// The plan of findings: on out, the batch line of each planned command, in
// the plan's order; on err, the text report (each finding and the summary
// line) and "needs a person: <code> <object>" for each finding that no
// command repairs, and for each finding repaired by a command that has no
// batch line. No plan command takes a password: the repairs that need one
// are findings for a person.
void print_batch_plan(std::ostream& out, std::ostream& err, const std::vector<Finding>& findings,
                      const ReadCounts& counts);

}  // namespace crelm::audit
