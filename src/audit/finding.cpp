#include "audit/finding.h"

#include <tuple>

#include "runtime/shown_text.h"

namespace crelm::audit {

const char* severity_name(Severity severity) {
    switch (severity) {
    case Severity::error:
        return "error";
    case Severity::warning:
        return "warning";
    case Severity::notice:
        return "notice";
    }
    return "error";
}

bool finding_before(const Finding& a, const Finding& b) {
    return std::tie(a.severity, a.code, a.object, a.detail) < std::tie(b.severity, b.code, b.object, b.detail);
}

std::string finding_line(const Finding& finding) {
    std::string line = severity_name(finding.severity);
    line += ' ';
    line += finding.code;
    line += ' ';
    line += shown_text(finding.object);
    line += ": ";
    line += shown_text(finding.detail);
    return line;
}

}  // namespace crelm::audit
