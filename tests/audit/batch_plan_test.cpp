// The repair plan as a batch document: one JSON object per line on standard
// output, each command's arguments exactly as the text plan's command line
// has them, and the report and what needs a person on standard error.
#include "audit/batch_plan.h"

#include <gtest/gtest.h>

#include <sstream>

#include "audit/audit_fixture.h"
#include "audit/json_text.h"
#include "audit/report_output.h"

namespace crelm::audit {
namespace {

TEST(BatchPlanTest, ALineHoldsTheArgumentsAsJsonStrings) {
    EXPECT_EQ(batch_line({"--add-domain", "--domain-name=x.test"}),
              std::optional<std::string>("{\"args\":[\"--add-domain\",\"--domain-name=x.test\"]}"));
    EXPECT_EQ(batch_line({"--remove-domain", "--domain-name=x.test", "--mail-addresses", ""}),
              std::optional<std::string>(
                  "{\"args\":[\"--remove-domain\",\"--domain-name=x.test\",\"--mail-addresses\",\"\"]}"));
}

TEST(BatchPlanTest, QuotesBackslashesAndControlCharactersAreEscaped) {
    EXPECT_EQ(json_quoted("a\"b\\c\nd\te\x01\x1f\x7f"), "\"a\\\"b\\\\c\\nd\\te\\u0001\\u001f\\u007f\"");
    EXPECT_EQ(json_quoted("Gone away; don't write"), "\"Gone away; don't write\"");
    EXPECT_EQ(json_quoted("B\xC3\xBC" "cher"), "\"B\xC3\xBC" "cher\"");
}

TEST(BatchPlanTest, OnlyWellFormedUtf8IsText) {
    EXPECT_TRUE(is_utf8_text(""));
    EXPECT_TRUE(is_utf8_text("plain"));
    EXPECT_TRUE(is_utf8_text("B\xC3\xBC" "cher \xE2\x82\xAC \xF0\x9F\x98\x80"));
    EXPECT_FALSE(is_utf8_text("\xFC"));                // Latin-1
    EXPECT_FALSE(is_utf8_text("\xC3"));                // cut short
    EXPECT_FALSE(is_utf8_text("\xE2\x82"));            // cut short
    EXPECT_FALSE(is_utf8_text("\xC0\xAF"));            // overlong
    EXPECT_FALSE(is_utf8_text("\xED\xA0\x80"));        // surrogate
    EXPECT_FALSE(is_utf8_text("\xF4\x90\x80\x80"));    // above U+10FFFF
    EXPECT_FALSE(is_utf8_text("\xF8\x88\x80\x80\x80"));  // no such lead byte
    EXPECT_FALSE(is_utf8_text("a\x80" "b"));           // a lone continuation byte
}

TEST(BatchPlanTest, ACommandThatIsNotTextIsLeftToAPerson) {
    EXPECT_EQ(batch_line({"--set-bounce", "--phrase=caf\xE9"}), std::nullopt);
}

TEST(BatchPlanTest, StandardOutputGetsTheCommandsAloneInPlanOrder) {
    Findings findings;
    findings.add(Severity::error, "b-mail", "x@a.test", "d", {{"--add-mailname", "--domain-name=a.test", "--mailname=x"}},
                 RepairPhase::mail_names);
    findings.add(Severity::warning, "a-domain", "a.test", "d", {{"--add-domain", "--domain-name=a.test"}},
                 RepairPhase::domains);
    findings.add(Severity::notice, "c-bounce", "b.test", "d",
                 {{"--turn-on-domain", "--domain-name=b.test", "--set-bounce", "--phrase=\xE9t\xE9"}},
                 RepairPhase::domains);
    findings.add(Severity::error, "d-person", "/x", "d");
    std::ostringstream out;
    std::ostringstream err;
    print_batch_plan(out, err, findings.sorted(), ReadCounts{2, 1, 0});
    EXPECT_EQ(out.str(),
              "{\"args\":[\"--add-domain\",\"--domain-name=a.test\"]}\n"
              "{\"args\":[\"--add-mailname\",\"--domain-name=a.test\",\"--mailname=x\"]}\n");
    // Standard error is the text report with its plan, less the plan's
    // command lines: the findings, the summary and the lines for a person
    // (the bounce phrase, which no paste carries, among them).
    std::ostringstream text;
    print_report(text, findings.sorted(), ReadCounts{2, 1, 0}, ReportOptions{false, true});
    std::string expected;
    std::istringstream lines(text.str());
    for (std::string line; std::getline(lines, line);)
        if (line != "repair plan:" && line.rfind("sorvane ", 0) != 0)
            expected += line + "\n";
    EXPECT_EQ(err.str(), expected);
    EXPECT_NE(err.str().find("needs a person: c-bounce b.test (its repair needs a value no paste carries: "),
              std::string::npos)
        << err.str();
}

TEST(BatchPlanTest, NoFindingsMakeAnEmptyBatch) {
    std::ostringstream out;
    std::ostringstream err;
    print_batch_plan(out, err, {}, ReadCounts{1, 1, 1});
    EXPECT_EQ(out.str(), "");
    EXPECT_EQ(err.str(), "0 findings (0 errors, 0 warnings, 0 notices) in 1 domain, 1 mail name and 1 store row\n");
}

}  // namespace
}  // namespace crelm::audit

namespace sorvane::test {
namespace {

const std::string kRcptHosts = "/var/qmail/control/rcpthosts";
const std::string kVirtualDomains = "/var/qmail/control/virtualdomains";

void drop_line(const std::string& path, const std::string& line) {
    std::istringstream in(read_file(path));
    std::string kept;
    std::string current;
    while (std::getline(in, current))
        if (current != line)
            kept += current + "\n";
    write_file(path, kept, 0644);
}

std::vector<std::string> lines_of(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    std::string line;
    while (std::getline(in, line))
        lines.push_back(line);
    return lines;
}

// Each argument list printed as its arguments, each ended by a NUL, one
// list per line: the text plan's command lines as the shell takes them
// apart, the batch lines as a JSON reader (Python's) takes them.
std::string shell_arguments(const std::vector<std::string>& command_lines) {
    std::string lists;
    for (const std::string& line : command_lines) {
        const ProcessResult split = run_process(
            {"/bin/sh", "-c", "set -- " + line.substr(std::string("sorvane ").size()) + "; printf '%s\\0' \"$@\""});
        EXPECT_EQ(split.status, 0) << line;
        lists += split.out + "\n";
    }
    return lists;
}

RunOptions piped(const std::string& input) {
    RunOptions options;
    options.stdin_mode = RunOptions::Stdin::Pipe;
    options.input = input;
    return options;
}

std::string json_arguments(const std::string& batch) {
    const ProcessResult parsed = run_process(
        {"/usr/bin/python3", "-c",
         "import json, sys\n"
         "for line in sys.stdin.read().split('\\n')[:-1]:\n"
         "    command = json.loads(line)\n"
         "    assert isinstance(command, dict) and list(command) == ['args'], line\n"
         "    assert all(isinstance(a, str) for a in command['args']), line\n"
         "    sys.stdout.write(''.join(a + '\\0' for a in command['args']) + '\\n')\n"},
        piped(batch));
    EXPECT_EQ(parsed.status, 0) << parsed.err;
    return parsed.out;
}

class BatchPlanAuditTest : public AuditTest {};

TEST_F(BatchPlanAuditTest, TheBatchHoldsTheTextPlansCommandsAndRepairsTheServer) {
    drop_line(kRcptHosts, kDomain);
    drop_line(kVirtualDomains, kNeighbour + ":" + kNeighbour);
    const ProcessResult text = run_sorvane_audit({"--repair-plan"});
    const std::vector<std::string> commands = repair_lines(text.out);
    ASSERT_EQ(commands.size(), 2u) << text.out;

    const ProcessResult batch = run_sorvane_audit({"--repair-plan", "--batch"});
    EXPECT_EQ(batch.status, 1);
    // Standard error holds the text report less its plan's command lines.
    std::string report;
    for (const std::string& line : lines_of(text.out))
        if (line != "repair plan:" && line.rfind("sorvane ", 0) != 0)
            report += line + "\n";
    EXPECT_EQ(batch.err, report);
    EXPECT_EQ(lines_of(batch.out).size(), commands.size()) << batch.out;
    EXPECT_EQ(json_arguments(batch.out), shell_arguments(commands));

    // Each line's arguments, given to sorvane as they stand, repair it all.
    for (const std::string& line : lines_of(json_arguments(batch.out))) {
        std::vector<std::string> args;
        std::size_t start = 0;
        for (std::size_t end = line.find('\0'); end != std::string::npos; end = line.find('\0', start)) {
            args.push_back(line.substr(start, end - start));
            start = end + 1;
        }
        const ProcessResult run = run_sorvane(args);
        EXPECT_EQ(run.status, 0) << line << "\n" << run.err;
    }
    const ProcessResult after = run_sorvane_audit({"--repair-plan", "--batch"});
    EXPECT_EQ(after.status, 0) << after.err;
    EXPECT_EQ(after.out, "");
}

TEST_F(BatchPlanAuditTest, ACleanServerGivesAnEmptyBatch) {
    const ProcessResult batch = run_sorvane_audit({"--repair-plan", "--batch"});
    EXPECT_EQ(batch.status, 0);
    EXPECT_EQ(batch.out, "");
    EXPECT_EQ(lines_of(batch.err).size(), 1u) << batch.err;
}

TEST_F(BatchPlanAuditTest, BatchGoesWithTheRepairPlanAndWithoutJson) {
    for (const std::vector<std::string>& args :
         {std::vector<std::string>{"--batch"}, std::vector<std::string>{"--repair-plan", "--batch", "--json"}}) {
        const ProcessResult run = run_sorvane_audit(args);
        EXPECT_EQ(run.status, 2);
        EXPECT_EQ(run.out, "");
        EXPECT_EQ(run.err,
                  "sorvane-audit: --batch goes with --repair-plan and without --json\n"
                  "Usage: sorvane-audit [--domain=<domain>]... [--expect=<file>|--expect=-] [--json] "
                  "[--repair-plan [--batch]] [--metrics=<file>]\n");
    }
}

}  // namespace
}  // namespace sorvane::test
