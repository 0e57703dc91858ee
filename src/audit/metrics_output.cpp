#include "audit/metrics_output.h"

#include <cstdio>
#include <map>
#include <sstream>

namespace crelm::audit {

namespace {

// A label value as the exposition format wants it: backslash, double quote
// and newline escaped.
std::string label_value(const std::string& text) {
    std::string out;
    for (char c : text) {
        if (c == '\\' || c == '"')
            out += '\\';
        if (c == '\n') {
            out += "\\n";
            continue;
        }
        out += c;
    }
    return out;
}

std::string number(double value) {
    char text[64];
    std::snprintf(text, sizeof text, "%.6f", value);
    return text;
}

void metric_header(std::ostream& out, const char* name, const char* help) {
    out << "# HELP " << name << ' ' << help << '\n' << "# TYPE " << name << " gauge\n";
}

void counts_by_severity(std::ostream& out, const std::vector<Finding>& findings) {
    std::map<Severity, std::size_t> counts{{Severity::error, 0}, {Severity::warning, 0}, {Severity::notice, 0}};
    for (const Finding& finding : findings)
        ++counts[finding.severity];
    metric_header(out, "sorvane_audit_findings", "Findings of the last audit by severity.");
    for (const auto& [severity, count] : counts)
        out << "sorvane_audit_findings{severity=\"" << severity_name(severity) << "\"} " << count << '\n';
}

void counts_by_code(std::ostream& out, const std::vector<Finding>& findings) {
    std::map<std::pair<std::string, std::string>, std::size_t> counts;
    for (const Finding& finding : findings)
        ++counts[{finding.code, severity_name(finding.severity)}];
    metric_header(out, "sorvane_audit_findings_by_code", "Findings of the last audit by code.");
    for (const auto& [key, count] : counts)
        out << "sorvane_audit_findings_by_code{code=\"" << label_value(key.first) << "\",severity=\""
            << key.second << "\"} " << count << '\n';
}

}  // namespace

std::string metrics_text(const std::vector<Finding>& findings, const ReadCounts& counts, const RunFacts& facts) {
    std::ostringstream out;
    metric_header(out, "sorvane_audit_up", "Whether the last audit could run (1) or ended with status 2 (0).");
    out << "sorvane_audit_up " << (facts.could_run ? 1 : 0) << '\n';
    metric_header(out, "sorvane_audit_last_run_timestamp_seconds", "When the last audit started, in seconds since the epoch.");
    out << "sorvane_audit_last_run_timestamp_seconds " << number(facts.started_at) << '\n';
    metric_header(out, "sorvane_audit_duration_seconds", "How long the last audit took, in seconds.");
    out << "sorvane_audit_duration_seconds " << number(facts.duration_seconds) << '\n';
    if (!facts.could_run)
        return out.str();
    counts_by_severity(out, findings);
    counts_by_code(out, findings);
    metric_header(out, "sorvane_audit_domains", "Domains the last audit read.");
    out << "sorvane_audit_domains " << counts.domains << '\n';
    metric_header(out, "sorvane_audit_mail_names", "Mail names the last audit read.");
    out << "sorvane_audit_mail_names " << counts.mail_names << '\n';
    metric_header(out, "sorvane_audit_store_rows", "Store rows the last audit read.");
    out << "sorvane_audit_store_rows " << counts.rows << '\n';
    return out.str();
}

}  // namespace crelm::audit
