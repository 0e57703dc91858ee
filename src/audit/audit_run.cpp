#include "audit/audit_run.h"

#include <unistd.h>

#include <boost/program_options.hpp>
#include <chrono>
#include <iostream>

#include "audit/batch_plan.h"
#include "audit/checks.h"
#include "audit/metrics_output.h"
#include "audit/picture.h"
#include "audit/report_output.h"
#include "runtime/idn.h"
#include "runtime/name_rules.h"
#include "qmail/control_names.h"

namespace crelm::audit {

namespace {

namespace po = boost::program_options;

constexpr const char* kUsage =
    "Usage: sorvane-audit [--domain=<domain>]... [--expect=<file>|--expect=-] [--json] [--repair-plan [--batch]]"
    " [--metrics=<file>]\n";

struct AuditOptions {
    std::vector<std::string> domains;
    std::string expect;
    std::string metrics;
    ReportOptions report;
    bool batch = false;
    bool help = false;
};

po::options_description option_descriptions(AuditOptions& options) {
    po::options_description described("Options");
    described.add_options()                                                                         //
        ("domain", po::value(&options.domains), "audit this domain only (repeatable)")              //
        ("expect", po::value(&options.expect), "compare with the panel's picture (a file, or - for standard input)")  //
        ("json", po::bool_switch(&options.report.json), "print one JSON document")                  //
        ("repair-plan", po::bool_switch(&options.report.repair_plan), "add the commands that repair each finding")  //
        ("metrics", po::value(&options.metrics), "also write the counts to this file, for Prometheus")  //
        ("batch", po::bool_switch(&options.batch),
         "print the repair plan alone, as a batch document for sorvane --batch (the report on standard error)")  //
        ("help,h", po::bool_switch(&options.help), "print this help");
    return described;
}

int fail(const std::string& message) {
    std::cerr << "sorvane-audit: " << message << '\n';
    return kAuditFailed;
}

std::size_t rows_read(const StoreRows& rows) {
    return rows.auth_domains.size() + rows.auth_users.size() + rows.quotas.size() + rows.handler_rows.size();
}

ReadCounts counts_of(const ServerSnapshot& server, const ServerModel& model, const AuditScope& scope) {
    ReadCounts counts;
    for (const auto& [domain, facts] : model.domains)
        counts.domains += scope.covers(domain) ? 1 : 0;
    for (const auto& [key, facts] : model.mail_names)
        counts.mail_names += scope.covers(key.first) ? 1 : 0;
    counts.rows = rows_read(server.stores);
    return counts;
}

// What a run found and read, for the metrics.
struct AuditOutcome {
    std::vector<Finding> findings;
    ReadCounts counts;
};

// The audit itself, after the options: reads, checks, prints the report.
int audit_and_report(const AuditOptions& options, AuditOutcome& outcome) {
    if (::geteuid() != 0)
        return fail("must be run as root: it reads the stores and the mail trees");

    AuditScope scope;
    for (const std::string& domain : options.domains) {
        // Names are taken as sorvane takes them: the ASCII form, lower case.
        const std::optional<std::string> ascii = idn_toascii(domain);
        if (!ascii || !is_valid_domain_name(*ascii))
            return fail("invalid domain name '" + domain + "'");
        scope.domains.insert(qmail::lower_ascii(*ascii));
    }
    Picture picture;
    std::string message;
    if (!options.expect.empty() && !read_picture(options.expect, picture, message))
        return fail(message);

    const ServerSnapshot server = read_server();
    const ServerModel model = build_model(server);
    Findings findings;
    const AuditContext context{server, model, scope, findings};
    check_control_files(context);
    check_mail_names(context);
    check_stores(context);
    check_domain_keys(context);
    check_host_names(context);
    check_root_links(context);
    check_readiness(context);
    if (!options.expect.empty())
        compare_picture(context, picture);

    outcome.findings = findings.sorted();
    outcome.counts = counts_of(server, model, scope);
    if (options.batch)
        print_batch_plan(std::cout, std::cerr, outcome.findings, outcome.counts);
    else
        print_report(std::cout, outcome.findings, outcome.counts, options.report);
    std::cout.flush();
    if (!std::cout)
        return fail("cannot write the report");
    return outcome.findings.empty() ? kAuditClean : kAuditFound;
}

}  // namespace

int run_audit(int argc, char** argv) {
    AuditOptions options;
    const po::options_description described = option_descriptions(options);
    try {
        po::variables_map values;
        // No positional argument is taken: a stray word is an error, not
        // something silently ignored.
        po::store(po::command_line_parser(argc, argv)
                      .options(described)
                      .positional(po::positional_options_description())
                      .style(po::command_line_style::unix_style & ~po::command_line_style::allow_guessing)
                      .run(),
                  values);
        po::notify(values);
    } catch (const po::error& error) {
        std::cerr << "sorvane-audit: " << error.what() << '\n' << kUsage;
        return kAuditFailed;
    }
    if (options.help) {
        std::cout << kUsage << described;
        return kAuditClean;
    }
    if (options.batch && (!options.report.repair_plan || options.report.json)) {
        std::cerr << "sorvane-audit: --batch goes with --repair-plan and without --json\n" << kUsage;
        return kAuditFailed;
    }
    const auto started = std::chrono::steady_clock::now();
    const auto started_at = std::chrono::system_clock::now();
    AuditOutcome outcome;
    const int status = audit_and_report(options, outcome);
    if (options.metrics.empty())
        return status;
    RunFacts facts;
    facts.could_run = status != kAuditFailed;
    facts.duration_seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    facts.started_at = std::chrono::duration<double>(started_at.time_since_epoch()).count();
    std::string why;
    if (!replace_file_atomically(options.metrics, metrics_text(outcome.findings, outcome.counts, facts), why))
        return fail("cannot write the metrics: " + why);
    return status;
}

}  // namespace crelm::audit
