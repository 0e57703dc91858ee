// What a mail user or a panel customer can put into names and files cannot
// reach the operator as a command or a terminal control: a folder or a
// quota row whose name holds a newline and a sorvane command, a
// .qmail-default whose catch-all address or bounce phrase holds a carriage
// return and a brace list, folders named with terminal escapes and with
// bytes that are not UTF-8. Each is planted as the attacker would (the mail
// user owns its domain's directory), then the real sorvane-audit's report
// and plan are read, pasted into bash and run line by line as the demo's
// runner does, and the server must be unchanged.
#include <sys/stat.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <sstream>

#include "audit/mail_audit_support.h"
#include "audit/store_audit_steps.h"

namespace sorvane::test {
namespace {

const std::string kRemoveNeighbour =
    "sorvane --remove-domain --domain-name=" + kNeighbour + " --mail-addresses=boss #";

// mkdir as the mail user, as a POP or IMAP client of its own would.
void mkdir_as_popuser(const std::string& path) {
    const ProcessResult made =
        run_process({"/usr/bin/setpriv", "--reuid=" + std::to_string(popuser_uid()),
                     "--regid=" + std::to_string(popuser_gid()), "--clear-groups", "/bin/mkdir", path});
    ASSERT_EQ(made.status, 0) << made.err;
}

// A directory holding "sorvane", the real program, for PATH.
std::string sorvane_bin_dir() {
    const std::string dir = "/tmp/hostile-text-bin";
    std::filesystem::create_directories(dir);
    std::filesystem::remove(dir + "/sorvane");
    std::filesystem::create_symlink(sorvane_path(), dir + "/sorvane");
    return dir;
}

// One pasted line run by bash in /tmp, its standard input empty (a command
// that reads it must not take the next pasted line for its input).
void run_in_bash(const std::string& typed) {
    RunOptions options;
    options.stdin_mode = RunOptions::Stdin::Null;
    options.env = {"PATH=" + sorvane_bin_dir() + ":/usr/sbin:/usr/bin:/sbin:/bin"};
    run_process({"/bin/bash", "--norc", "--noprofile", "-c", "cd /tmp\n" + typed}, options);
}

// The plan's commands pasted into bash one by one: the terminal ends a
// line at each carriage return.
void paste_plan(const std::string& report) {
    std::string plan;
    const std::size_t start = report.find("\nrepair plan:\n");
    if (start != std::string::npos)
        plan = report.substr(start + std::string("\nrepair plan:\n").size());
    std::istringstream lines(plan);
    for (std::string line; std::getline(lines, line);) {
        if (line.rfind("needs a person: ", 0) == 0)
            continue;
        std::replace(line.begin(), line.end(), '\r', '\n');
        run_in_bash(line);
    }
}

// The demo's runner: every line of the report that starts with "sorvane "
// has its arguments evaluated by the shell and run.
void run_line_by_line(const std::string& report) {
    std::istringstream lines(report);
    for (std::string line; std::getline(lines, line);)
        if (line.rfind("sorvane ", 0) == 0)
            run_in_bash(line);
}

bool only_printable_lines(const std::string& text) {
    return std::all_of(text.begin(), text.end(), [](char c) {
        return c == '\n' || (static_cast<unsigned char>(c) >= 0x20 && static_cast<unsigned char>(c) < 0x7f);
    });
}

std::vector<std::string> lines_starting(const std::string& report, const std::string& start) {
    std::vector<std::string> found;
    std::istringstream lines(report);
    for (std::string line; std::getline(lines, line);)
        if (line.rfind(start, 0) == 0)
            found.push_back(line);
    return found;
}

class HostileTextTest : public AuditTest {
protected:
    void SetUp() override {
        AuditTest::SetUp();
        mailnames_before_ = list_tree(kMailnamesDir);
        rcpthosts_before_ = read_file("/var/qmail/control/rcpthosts");
    }

    // The neighbour's domain and every mail tree are as before.
    void expect_server_untouched() {
        EXPECT_EQ(list_tree(kMailnamesDir), mailnames_before_);
        EXPECT_NE(read_file("/var/qmail/control/rcpthosts").find(kNeighbour + "\n"), std::string::npos);
        EXPECT_FALSE(path_exists("/tmp/pwned"));
    }

    ProcessResult audit_plan() {
        const ProcessResult result = run_sorvane_audit({"--repair-plan"});
        EXPECT_EQ(result.status, 1) << result.out;
        EXPECT_EQ(result.err, "");
        EXPECT_TRUE(only_printable_lines(result.out)) << result.out;
        EXPECT_EQ(lines_starting(result.out, "sorvane --remove-domain"), std::vector<std::string>{}) << result.out;
        return result;
    }

    std::vector<std::string> mailnames_before_;
    std::string rcpthosts_before_;
};

TEST_F(HostileTextTest, AFolderNamedWithANewlineAndACommandStaysOneLineAndIsNeverRun) {
    const std::string name = "x\n" + kRemoveNeighbour;
    mkdir_as_popuser(home_of(name));
    mailnames_before_ = list_tree(kMailnamesDir);
    const std::string shown = "x\\n" + kRemoveNeighbour;
    const ProcessResult audit = audit_plan();
    EXPECT_EQ(finding_lines(audit.out),
              std::vector<std::string>{"error mailname-record-missing " + shown + "@" + kDomain + ": the home " +
                                       home_of(shown) +
                                       " has no \"=\" record in assign: its mail goes to the domain's default"})
        << audit.out;
    EXPECT_EQ(repair_lines(audit.out), std::vector<std::string>{}) << audit.out;
    EXPECT_EQ(person_lines(audit.out),
              std::vector<std::string>{"needs a person: mailname-record-missing " + shown + "@" + kDomain +
                                       " (its repair needs a value no paste carries: --mailname=" + shown + ")"})
        << audit.out;
    run_line_by_line(audit.out);
    paste_plan(audit.out);
    expect_server_untouched();
}

TEST_F(HostileTextTest, AQuotaRowNamedWithANewlineAndACommandIsNeverRun) {
    run_sqlite(kAuditQuotaDb, "INSERT INTO mailbox_quota VALUES ('" + kDomain + "', 'q\n" + kRemoveNeighbour +
                                  "', '0B');\n");
    const std::string shown = "q\\n" + kRemoveNeighbour;
    const ProcessResult audit = audit_plan();
    EXPECT_EQ(finding_lines(audit.out),
              std::vector<std::string>{"notice quota-row-unknown " + shown + "@" + kDomain +
                                       ": a quota row, but assign has no mail name " + shown + " at " + kDomain})
        << audit.out;
    EXPECT_EQ(repair_lines(audit.out), std::vector<std::string>{}) << audit.out;
    EXPECT_EQ(person_lines(audit.out),
              std::vector<std::string>{"needs a person: quota-row-unknown " + shown + "@" + kDomain +
                                       " (its repair needs a value no paste carries: --mailname=" + shown + ")"})
        << audit.out;
    run_line_by_line(audit.out);
    paste_plan(audit.out);
    expect_server_untouched();
}

// Drift that the plan repairs by switching the domain on again, which
// passes its catch-all address or bounce phrase back to sorvane.
void drop_rcpthosts_line(const std::string& domain) {
    std::string rcpthosts = read_file("/var/qmail/control/rcpthosts");
    const std::size_t at = rcpthosts.find(domain + "\n");
    ASSERT_NE(at, std::string::npos);
    rcpthosts.erase(at, domain.size() + 1);
    write_file("/var/qmail/control/rcpthosts", rcpthosts, 0644);
}

TEST_F(HostileTextTest, ACatchAllWithACarriageReturnAndABraceListIsNeverPasted) {
    write_popuser_file(kMailnamesDir + "/" + kDomain + "/.qmail-default",
                       "&x@y.test\r{rm,-rf,--," + kMailnamesDir + "}\n", 0644);
    drop_rcpthosts_line(kDomain);
    mailnames_before_ = list_tree(kMailnamesDir);
    const ProcessResult audit = audit_plan();
    EXPECT_EQ(person_lines(audit.out),
              std::vector<std::string>{"needs a person: domain-missing-rcpthosts " + kDomain +
                                       " (its repair needs a value no paste carries: --email=x@y.test\\r{rm,-rf,--," +
                                       kMailnamesDir + "})"})
        << audit.out;
    paste_plan(audit.out);
    run_line_by_line(audit.out);
    expect_server_untouched();
}

TEST_F(HostileTextTest, ABouncePhraseWithACarriageReturnAndABraceListIsNeverPasted) {
    write_popuser_file(kMailnamesDir + "/" + kDomain + "/.qmail-default",
                       "|bouncesaying x\r{touch,--,/tmp/pwned}\n", 0644);
    drop_rcpthosts_line(kDomain);
    mailnames_before_ = list_tree(kMailnamesDir);
    const ProcessResult audit = audit_plan();
    EXPECT_EQ(person_lines(audit.out),
              std::vector<std::string>{"needs a person: domain-missing-rcpthosts " + kDomain +
                                       " (its repair needs a value no paste carries: --phrase=x\\r{touch,--,/tmp/pwned})"})
        << audit.out;
    paste_plan(audit.out);
    run_line_by_line(audit.out);
    expect_server_untouched();
}

// The objects of a --json report, decoded by Python's strict parser (the
// document must be valid UTF-8 JSON), one per line with each code point
// below U+0020 or above U+007E written as \u{XXXX}.
std::string json_objects(const std::string& document) {
    RunOptions options;
    options.stdin_mode = RunOptions::Stdin::Pipe;
    options.input = document;
    const ProcessResult parsed = run_process(
        {"/usr/bin/python3", "-c",
         "import json, sys\n"
         "d = json.loads(sys.stdin.buffer.read().decode('utf-8', 'strict'))\n"
         "for f in d['findings']:\n"
         "    print(''.join(c if ' ' <= c <= '~' else '\\\\u{%04x}' % ord(c) for c in f['object']))\n"},
        options);
    EXPECT_EQ(parsed.status, 0) << parsed.err;
    return parsed.out;
}

TEST_F(HostileTextTest, TerminalEscapesAndBytesThatAreNotUtf8AreShownEscaped) {
    mkdir_as_popuser(home_of("z\x1b[8mHIDDEN\x1b[0m\x1b]0;title\a"));
    mkdir_as_popuser(home_of("w\xff\xfe"));
    const ProcessResult text = run_sorvane_audit({});
    EXPECT_EQ(text.status, 1);
    EXPECT_TRUE(only_printable_lines(text.out)) << text.out;
    const std::vector<std::string> findings = finding_lines(text.out);
    ASSERT_EQ(findings.size(), 2u) << text.out;
    EXPECT_EQ(findings[0].substr(0, findings[0].find(':')), "error mailname-record-missing w\\xff\\xfe@" + kDomain);
    EXPECT_EQ(findings[1].substr(0, findings[1].find(':')),
              "error mailname-record-missing z\\x1b[8mHIDDEN\\x1b[0m\\x1b]0;title\\x07@" + kDomain);

    const ProcessResult json = run_sorvane_audit({"--json", "--repair-plan"});
    EXPECT_EQ(json.status, 1);
    EXPECT_EQ(json.err, "");
    // No raw control byte anywhere in the document (its final newline aside).
    EXPECT_TRUE(std::none_of(json.out.begin(), json.out.end() - 1,
                             [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; }))
        << json.out;
    EXPECT_EQ(json_objects(json.out), "w\\xff\\xfe@" + kDomain + "\nz\\u{001b}[8mHIDDEN\\u{001b}[0m\\u{001b}]0;title\\u{0007}@" +
                                          kDomain + "\n");
}

}  // namespace
}  // namespace sorvane::test
