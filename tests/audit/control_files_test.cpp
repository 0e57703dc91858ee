// Control files and assign, each broken by hand on the seeded server: the
// audit reports exactly that finding, and its repair plan, run, makes the
// server clean again where a sorvane command can repair it.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "audit/audit_fixture.h"

namespace sorvane::test {
namespace {

const std::string kRcptHosts = "/var/qmail/control/rcpthosts";
const std::string kVirtualDomains = "/var/qmail/control/virtualdomains";
const std::string kLocals = "/var/qmail/control/locals";
const std::string kRejectNonExist = "/var/qmail/control/rejectnonexist";
const std::string kAssign = "/var/qmail/users/assign";

// The file without the line (every occurrence), or with it added at the end.
void drop_line(const std::string& path, const std::string& line) {
    const std::string text = read_file(path);
    std::string kept;
    std::size_t start = 0;
    while (start < text.size()) {
        const std::size_t end = text.find('\n', start);
        const std::string current = text.substr(start, end - start);
        if (current != line)
            kept += current + "\n";
        start = end == std::string::npos ? text.size() : end + 1;
    }
    write_file(path, kept, 0644);
}

void add_line(const std::string& path, const std::string& line) { write_file(path, read_file(path) + line + "\n", 0644); }

void insert_assign_line(const std::string& line) {
    write_file(kAssign, line + "\n" + read_file(kAssign), 0644);
    mark_assign_compiled();
}

std::string plus_record(const std::string& domain) {
    return "+" + domain + ":popuser:" + std::to_string(popuser_uid()) + ":" + std::to_string(popuser_gid()) + ":" +
           kMailnamesDir + "/" + domain + ":::";
}

// The repair that turns the seeded domain on again, with its lists.
const std::vector<std::string> kTurnOnSeededDomain{
    "sorvane --turn-on-domain --domain-name=example.test --set-bounce --domain-aliases=alias-one.test,alias-two.test "
    "'--mail-addresses=box,abuse;info,office,sales;john,j.doe'"};

class ControlFilesAuditTest : public AuditTest {
protected:
    // The audit's finding lines, with its status checked.
    std::vector<std::string> findings(const std::vector<std::string>& args = {}) {
        const ProcessResult result = run_sorvane_audit(args);
        EXPECT_EQ(result.err, "");
        EXPECT_EQ(result.status, finding_lines(result.out).empty() ? 0 : 1) << result.out;
        return finding_lines(result.out);
    }

    // Runs the repair plan and expects the audit clean afterwards.
    void expect_repaired() {
        const ProcessResult planned = run_sorvane_audit({"--repair-plan"});
        ASSERT_FALSE(repair_lines(planned.out).empty()) << planned.out;
        run_repair_plan(planned.out);
        const ProcessResult after = run_sorvane_audit({});
        EXPECT_EQ(finding_lines(after.out), std::vector<std::string>{}) << after.out;
        EXPECT_EQ(after.status, 0);
    }

    void expect_for_a_person(const std::string& code_and_object) {
        const ProcessResult planned = run_sorvane_audit({"--repair-plan"});
        EXPECT_EQ(repair_lines(planned.out), std::vector<std::string>{}) << planned.out;
        EXPECT_NE(planned.out.find("needs a person: " + code_and_object + "\n"), std::string::npos) << planned.out;
    }
};

TEST_F(ControlFilesAuditTest, AnEnabledDomainMissingFromRcpthosts) {
    drop_line(kRcptHosts, kDomain);
    EXPECT_EQ(findings(), std::vector<std::string>{"error domain-missing-rcpthosts example.test: the domain is "
                                                   "enabled but qmail does not accept its mail (not in rcpthosts)"});
    EXPECT_EQ(repair_lines(run_sorvane_audit({"--repair-plan"}).out), kTurnOnSeededDomain);
    expect_repaired();
}

TEST_F(ControlFilesAuditTest, AnEnabledDomainMissingFromVirtualdomains) {
    drop_line(kVirtualDomains, kNeighbour + ":" + kNeighbour);
    EXPECT_EQ(findings(), std::vector<std::string>{"error domain-missing-virtualdomains neighbour.test: the domain is "
                                                   "enabled but has no line neighbour.test:neighbour.test in "
                                                   "virtualdomains"});
    const ProcessResult planned = run_sorvane_audit({"--repair-plan"});
    EXPECT_EQ(repair_lines(planned.out),
              std::vector<std::string>{"sorvane --turn-on-domain --domain-name=neighbour.test --set-reject "
                                       "--mail-addresses=info"});
    expect_repaired();
}

TEST_F(ControlFilesAuditTest, ADomainWithoutItsWildcardRecord) {
    drop_line(kAssign, plus_record(kNeighbour));
    mark_assign_compiled();
    EXPECT_EQ(findings(), std::vector<std::string>{"error domain-missing-assign-record neighbour.test: no "
                                                   "\"+neighbour.test:\" record in assign"});
    expect_repaired();
}

TEST_F(ControlFilesAuditTest, ADomainWithoutItsDirectory) {
    ASSERT_EQ(run_sorvane({"--add-domain", "--domain-name=empty.test"}).status, 0);
    EXPECT_EQ(findings(), std::vector<std::string>{});
    ASSERT_EQ(::unlink((kMailnamesDir + "/empty.test/.qmail-default").c_str()), 0);
    ASSERT_EQ(::rmdir((kMailnamesDir + "/empty.test").c_str()), 0);
    EXPECT_EQ(findings(), std::vector<std::string>{"error domain-missing-directory empty.test: no directory "
                                                   "/var/qmail/mailnames/empty.test"});
    expect_repaired();
}

// A killed --add-domain can leave the domain's directory without its
// default: unknown names then get qmail's own bounce, not the domain's.
TEST_F(ControlFilesAuditTest, AnEnabledDomainWithoutItsDefault) {
    const std::string default_path = kMailnamesDir + "/" + kDomain + "/.qmail-default";
    const std::string bounce = read_file(default_path);
    ASSERT_EQ(::unlink(default_path.c_str()), 0);
    EXPECT_EQ(findings(), std::vector<std::string>{"warning domain-missing-default example.test: the domain is "
                                                   "enabled but /var/qmail/mailnames/example.test has no "
                                                   ".qmail-default, so mail to unknown names gets qmail's own "
                                                   "bounce"});
    EXPECT_EQ(repair_lines(run_sorvane_audit({"--repair-plan"}).out), kTurnOnSeededDomain);
    expect_repaired();
    EXPECT_EQ(read_file(default_path), bounce);
}

// A domain that rejects unknown names, and a disabled one, need no default.
TEST_F(ControlFilesAuditTest, ARejectingOrDisabledDomainWithoutADefaultAuditsClean) {
    ::unlink((kMailnamesDir + "/" + kNeighbour + "/.qmail-default").c_str());
    EXPECT_EQ(findings(), std::vector<std::string>{});
    ASSERT_EQ(run_sorvane({"--turn-off-domain", "--domain-name=" + kDomain, "--mail-addresses=" + seeded_mail_addresses(),
                           "--domain-aliases=" + kAliasOne + "," + kAliasTwo})
                  .status,
              0);
    ::unlink((kMailnamesDir + "/" + kDomain + "/.qmail-default").c_str());
    EXPECT_EQ(findings(), std::vector<std::string>{});
}

TEST_F(ControlFilesAuditTest, LocalsListingADomainOrADomainAlias) {
    add_line(kLocals, kDomain);
    add_line(kLocals, kAliasOne);
    EXPECT_EQ(findings(),
              (std::vector<std::string>{
                  "error locals-lists-virtual-domain alias-one.test: locals lists the domain alias, so qmail "
                  "delivers it to system users",
                  "error locals-lists-virtual-domain example.test: locals lists the domain, so qmail delivers it to "
                  "system users"}));
    expect_repaired();
}

TEST_F(ControlFilesAuditTest, ADisabledDomainAuditsClean) {
    ASSERT_EQ(run_sorvane({"--turn-off-domain", "--domain-name=" + kDomain, "--mail-addresses=" + seeded_mail_addresses(),
                           "--domain-aliases=" + kAliasOne + "," + kAliasTwo})
                  .status,
              0);
    EXPECT_EQ(findings(), std::vector<std::string>{});
}

TEST_F(ControlFilesAuditTest, ADisabledDomainThatQmailStillServes) {
    ASSERT_EQ(run_sorvane({"--turn-off-domain", "--domain-name=" + kNeighbour, "--mail-addresses=info"}).status, 0);
    add_line(kRcptHosts, kNeighbour);
    add_line(kVirtualDomains, kNeighbour + ":" + kNeighbour);
    drop_line(kRejectNonExist, kNeighbour);
    EXPECT_EQ(findings(),
              (std::vector<std::string>{
                  "warning domain-disabled-in-rcpthosts neighbour.test: the domain is disabled but qmail still "
                  "accepts its mail (rcpthosts)",
                  "warning domain-disabled-in-virtualdomains neighbour.test: the domain is disabled but still "
                  "delivered (virtualdomains)",
                  "warning domain-disabled-not-rejecting neighbour.test: the domain is disabled but not in "
                  "rejectnonexist"}));
    expect_repaired();
}

TEST_F(ControlFilesAuditTest, ControlLinesOfARemovedDomain) {
    add_line(kRcptHosts, "gone.test");
    add_line(kVirtualDomains, "gone.test:gone.test");
    EXPECT_EQ(findings(), std::vector<std::string>{"warning domain-leftover-lines gone.test: control lines of a "
                                                   "domain that has no record, directory or store row"});
    expect_repaired();
}

TEST_F(ControlFilesAuditTest, ADomainAliasOfADomainNotHostedHere) {
    add_line(kVirtualDomains, "stray.test:nowhere.test");
    EXPECT_EQ(findings(), std::vector<std::string>{"error domain-alias-unknown-domain stray.test: virtualdomains maps "
                                                   "it to nowhere.test, which is not hosted here"});
    expect_for_a_person("domain-alias-unknown-domain stray.test");
}

TEST_F(ControlFilesAuditTest, ADomainAliasThatIsADomainOfItsOwn) {
    insert_assign_line(plus_record(kAliasOne));
    EXPECT_EQ(findings(), std::vector<std::string>{"error domain-alias-hosted-too alias-one.test: a domain alias of "
                                                   "example.test that has a record or directory of a domain of its "
                                                   "own"});
    expect_for_a_person("domain-alias-hosted-too alias-one.test");
}

TEST_F(ControlFilesAuditTest, ADomainAliasMissingFromRcpthosts) {
    drop_line(kRcptHosts, kAliasTwo);
    EXPECT_EQ(findings(), std::vector<std::string>{"error domain-alias-missing-rcpthosts alias-two.test: qmail does "
                                                   "not accept mail for the alias of example.test (not in rcpthosts)"});
    expect_repaired();
}

TEST_F(ControlFilesAuditTest, RcpthostsAcceptingMailForANameNobodyHosts) {
    add_line(kRcptHosts, "other.test");
    add_line(kRcptHosts, "localhost");
    EXPECT_EQ(findings(), std::vector<std::string>{"notice rcpthosts-unknown-domain other.test: rcpthosts accepts "
                                                   "mail for it, but it is neither hosted, a domain alias nor local"});
    expect_for_a_person("rcpthosts-unknown-domain other.test");
}

TEST_F(ControlFilesAuditTest, ALineThereTwice) {
    add_line(kRcptHosts, kDomain);
    EXPECT_EQ(findings(), std::vector<std::string>{"warning control-line-duplicated /var/qmail/control/rcpthosts: the "
                                                   "line \"example.test\" is there more than once"});
    expect_repaired();
}

TEST_F(ControlFilesAuditTest, ALineQmailWouldNotTake) {
    add_line(kVirtualDomains, "Bad Line");
    EXPECT_EQ(findings(), std::vector<std::string>{"error control-line-unparsable /var/qmail/control/virtualdomains: "
                                                   "\"Bad Line\": no ':' between domain and prefix"});
    expect_for_a_person("control-line-unparsable /var/qmail/control/virtualdomains");
}

TEST_F(ControlFilesAuditTest, AControlFileThatIsALink) {
    ASSERT_EQ(::rename(kLocals.c_str(), "/var/qmail/control/locals.real"), 0);
    ASSERT_EQ(::symlink("locals.real", kLocals.c_str()), 0);
    EXPECT_EQ(findings(), std::vector<std::string>{"error control-file-unreadable /var/qmail/control/locals: a "
                                                   "symbolic link"});
    expect_for_a_person("control-file-unreadable /var/qmail/control/locals");
}

TEST_F(ControlFilesAuditTest, AssignLinesQmailNewuRefuses) {
    insert_assign_line("=broken");
    EXPECT_EQ(findings(), std::vector<std::string>{"error assign-line-unparsable /var/qmail/users/assign: line 1: it "
                                                   "has no ':'"});
    expect_for_a_person("assign-line-unparsable /var/qmail/users/assign");
}

TEST_F(ControlFilesAuditTest, AssignWithoutItsEnd) {
    const std::string text = read_file(kAssign);
    write_file(kAssign, text.substr(0, text.size() - 2), 0644);
    mark_assign_compiled();
    EXPECT_EQ(findings(), std::vector<std::string>{"error assign-missing-end /var/qmail/users/assign: no \".\" line "
                                                   "ends the table: qmail-newu refuses it"});
    expect_for_a_person("assign-missing-end /var/qmail/users/assign");
}

TEST_F(ControlFilesAuditTest, ARebuildThatIsPendingOrMissing) {
    write_file(kAssign, read_file(kAssign), 0644);
    struct timespec later[2] = {{0, UTIME_NOW}, {0, UTIME_NOW}};
    struct stat cdb {};
    ASSERT_EQ(stat("/var/qmail/users/cdb", &cdb), 0);
    later[1] = {cdb.st_mtim.tv_sec + 5, 0};
    ASSERT_EQ(utimensat(AT_FDCWD, kAssign.c_str(), later, 0), 0);
    EXPECT_EQ(findings(), std::vector<std::string>{"warning assign-not-compiled /var/qmail/users/cdb: older than "
                                                   "assign, a rebuild is pending: run /var/qmail/bin/qmail-newu"});
    ASSERT_EQ(::unlink("/var/qmail/users/cdb"), 0);
    EXPECT_EQ(findings(), std::vector<std::string>{"error assign-not-compiled /var/qmail/users/cdb: the compiled "
                                                   "table is missing: run /var/qmail/bin/qmail-newu"});
    expect_for_a_person("assign-not-compiled /var/qmail/users/cdb");
}

TEST_F(ControlFilesAuditTest, ARecordThereTwiceOrNotForPopuser) {
    insert_assign_line(plus_record(kNeighbour));
    insert_assign_line("+other.test:root:0:0:" + kMailnamesDir + "/other.test:::");
    EXPECT_EQ(findings(),
              (std::vector<std::string>{
                  "error assign-record-duplicated /var/qmail/users/assign: the key +neighbour.test is there more "
                  "than once",
                  "error assign-record-owner /var/qmail/users/assign: line 1 (+other.test) does not deliver as "
                  "popuser",
                  "error domain-missing-directory other.test: no directory /var/qmail/mailnames/other.test",
                  "error domain-missing-rcpthosts other.test: the domain is enabled but qmail does not accept its "
                  "mail (not in rcpthosts)",
                  "error domain-missing-virtualdomains other.test: the domain is enabled but has no line "
                  "other.test:other.test in virtualdomains"}));
}

TEST_F(ControlFilesAuditTest, ARecordWhoseHomeIsElsewhere) {
    insert_assign_line("=someone:popuser:" + std::to_string(popuser_uid()) + ":" + std::to_string(popuser_gid()) +
                       ":/home/someone:::");
    EXPECT_EQ(findings(), std::vector<std::string>{"warning assign-record-foreign /var/qmail/users/assign: line 1 "
                                                   "(=someone): its home /home/someone is not where sorvane puts it"});
    expect_for_a_person("assign-record-foreign /var/qmail/users/assign");
}

TEST_F(ControlFilesAuditTest, AssignMissing) {
    ASSERT_EQ(::unlink(kAssign.c_str()), 0);
    const std::vector<std::string> found = findings();
    ASSERT_FALSE(found.empty());
    EXPECT_EQ(found.front(), "error assign-unreadable /var/qmail/users/assign: missing");
}

TEST_F(ControlFilesAuditTest, TheScopeIsTheDomainsAskedFor) {
    drop_line(kRcptHosts, kNeighbour);
    EXPECT_EQ(findings({"--domain=" + kDomain}), std::vector<std::string>{});
    const std::vector<std::string> expected{"error domain-missing-rcpthosts neighbour.test: the domain is enabled but "
                                            "qmail does not accept its mail (not in rcpthosts)"};
    EXPECT_EQ(findings({"--domain=NEIGHBOUR.test"}), expected);
    EXPECT_EQ(findings({"--domain=" + kDomain, "--domain=" + kNeighbour}), expected);
}

TEST_F(ControlFilesAuditTest, AnInternationalisedDomainIsTakenInItsAsciiForm) {
    ASSERT_EQ(run_sorvane({"--add-domain", "--domain-name=bücher.test"}).status, 0);
    drop_line(kRcptHosts, "xn--bcher-kva.test");
    const std::vector<std::string> expected{"error domain-missing-rcpthosts xn--bcher-kva.test: the domain is enabled "
                                            "but qmail does not accept its mail (not in rcpthosts)"};
    EXPECT_EQ(findings({"--domain=BÜCHER.test"}), expected);
}

TEST_F(ControlFilesAuditTest, AnInvalidDomainEndsTheAuditBeforeItReads) {
    for (const std::string& name : {std::string(""), std::string("a..b"), std::string("-a.test")}) {
        const ProcessResult result = run_sorvane_audit({"--domain", name});
        EXPECT_EQ(result.status, 2) << name;
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(result.err, "sorvane-audit: invalid domain name '" + name + "'\n");
    }
}

TEST_F(ControlFilesAuditTest, TheJsonReportHoldsTheSameFindingsAndTheRepair) {
    drop_line(kRcptHosts, kNeighbour);
    const ProcessResult result = run_sorvane_audit({"--json", "--repair-plan", "--domain=" + kNeighbour});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out,
              "{\"findings\":[{\"code\":\"domain-missing-rcpthosts\",\"severity\":\"error\",\"object\":"
              "\"neighbour.test\",\"detail\":\"the domain is enabled but qmail does not accept its mail (not in "
              "rcpthosts)\",\"repair\":[\"sorvane --turn-on-domain --domain-name=neighbour.test --set-reject "
              "--mail-addresses=info\"]}],\"summary\":{\"findings\":1,\"error\":1,\"warning\":0,\"notice\":0,"
              "\"domains\":1,\"mail_names\":1,\"rows\":53},\"repair_plan\":{\"commands\":[{\"command\":\"sorvane "
              "--turn-on-domain --domain-name=neighbour.test --set-reject --mail-addresses=info\",\"fixes\":["
              "\"domain-missing-rcpthosts neighbour.test\"]}],\"needs_a_person\":[]}}\n");
}

TEST_F(ControlFilesAuditTest, TheSummaryCountsWhatWasRead) {
    const ProcessResult result = run_sorvane_audit({});
    EXPECT_EQ(result.out, "0 findings (0 errors, 0 warnings, 0 notices) in 2 domains, 4 mail names and 53 store rows\n");
}

}  // namespace
}  // namespace sorvane::test
