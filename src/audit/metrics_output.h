// The audit's findings as Prometheus text exposition, for node_exporter's
// textfile collector: counts by severity and by code, what was read, how
// long the audit took, when it ran and whether it could run at all.
#pragma once

#include <string>
#include <vector>

#include "audit/findings.h"

namespace crelm::audit {

struct RunFacts {
    bool could_run = false;       // false: the audit ended with status 2
    double duration_seconds = 0;  // from the start of the run to its report
    double started_at = 0;        // seconds since the epoch
};

// The whole exposition, each metric with its HELP and TYPE lines. Without
// could_run, the counts are left out (nothing was read).
std::string metrics_text(const std::vector<Finding>& findings, const ReadCounts& counts, const RunFacts& facts);

// Writes content to path so that a reader sees the old file or the new one,
// never a part: a temporary file in the same directory
// ("<path>.tmp.XXXXXX", mode 0644), flushed to disk, renamed over path, then
// the directory flushed. Nothing else is made or changed; a failure removes
// the temporary file. Returns false with why set on failure.
bool replace_file_atomically(const std::string& path, const std::string& content, std::string& why);

}  // namespace crelm::audit
