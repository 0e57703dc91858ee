// Domains in rcpthosts, virtualdomains, locals and assign: adding, removing,
// switching off and on.
#include <sys/stat.h>

#include "qmail/control_files.h"
#include "qmail/control_test_support.h"
#include "qmail/mailname_files.h"
#include "stores/mail_auth_paths.h"
#include "stores/mail_auth_store.h"
#include "stores/store_test_support.h"

namespace sorvane::test {
namespace {

using ControlDomainTest = ControlFilesTest;

std::string auth_domains() {
    return sqlite_cli(mail_auth_db_path(), "SELECT name, status FROM domains ORDER BY name;");
}

std::string auth_users() {
    return sqlite_cli(mail_auth_db_path(),
                      "SELECT u.name || '@' || d.name FROM users u, domains d WHERE u.dom_id = d.id "
                      "ORDER BY d.name, u.name;");
}

const ControlFiles kAddedExample{"localhost\nexample.test\n", "example.test:example.test\n", "localhost\n",
                                 assign_of({plus_record("example.test")})};

TEST_F(ControlDomainTest, AddingADomainWritesItsRecordItsLinesAndItsDirectory) {
    const StepResult step = run_step([] { return qmail_add_domain("example.test", false); });
    EXPECT_EQ(step.status, 0);
    EXPECT_EQ(step.printed.out, "");
    EXPECT_EQ(step.printed.err, "");
    EXPECT_EQ(read_control_files(), kAddedExample);
    expect_dot_last();
    const FileInfo assign = file_info(kAssignPath);
    EXPECT_EQ(assign.mode, 0644u);
    EXPECT_EQ(assign.uid, 0u);
    const FileInfo dir = file_info("/var/qmail/mailnames/example.test");
    EXPECT_EQ(dir.type, 'd');
    EXPECT_EQ(dir.uid, popuser_uid());
    EXPECT_EQ(dir.gid, popuser_gid());
}

TEST_F(ControlDomainTest, AddingAPresentDomainLeavesExactlyOneLineOfEachKind) {
    ASSERT_EQ(qmail_add_domain("example.test", false), 0);
    ASSERT_EQ(qmail_add_domain("other.test", false), 0);
    const StepResult again = run_step([] { return qmail_add_domain("example.test", false); });
    EXPECT_EQ(again.status, 0);
    EXPECT_EQ(again.printed.out, "");
    const ControlFiles expected{"localhost\nother.test\nexample.test\n",
                                "other.test:other.test\nexample.test:example.test\n", "localhost\n",
                                assign_of({plus_record("example.test"), plus_record("other.test")})};
    EXPECT_EQ(read_control_files(), expected);
    expect_dot_last();
}

TEST_F(ControlDomainTest, UpperCaseAndInternationalNamesAreWrittenInLowerCaseAscii) {
    ASSERT_EQ(qmail_add_domain("Example.TEST", false), 0);
    EXPECT_EQ(read_control_files(), kAddedExample);
    ASSERT_EQ(qmail_add_domain("B\xC3\xBC" "cher.Test", false), 0);
    const ControlFiles expected{"localhost\nexample.test\nxn--bcher-kva.test\n",
                                "example.test:example.test\nxn--bcher-kva.test:xn--bcher-kva.test\n", "localhost\n",
                                assign_of({plus_record("xn--bcher-kva.test"), plus_record("example.test")})};
    EXPECT_EQ(read_control_files(), expected);
    EXPECT_TRUE(path_exists("/var/qmail/mailnames/xn--bcher-kva.test"));
}

TEST_F(ControlDomainTest, AddingADomainWithItsServiceOffKeepsItOutOfBothFiles) {
    write_file(kRcptHostsPath, "localhost\nexample.test\n");
    write_file(kVirtualDomainsPath, "example.test:example.test\n");
    EXPECT_EQ(qmail_add_domain("example.test", true), 0);
    const ControlFiles expected{"localhost\n", "", "localhost\n", assign_of({plus_record("example.test")})};
    EXPECT_EQ(read_control_files(), expected);
}

TEST_F(ControlDomainTest, AnEmptyDomainEndsTheProgram) {
    const ProcessResult run = run_in_child([] { return qmail_add_domain("", false); });
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.out, "empty domain\n");
    EXPECT_EQ(run.err, "empty domain\n");
}

TEST_F(ControlDomainTest, ANameTheIdnHelperRefusesEndsTheProgram) {
    const ProcessResult run = run_in_child([] { return qmail_add_domain(std::string("bad\0name.test", 13), false); });
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.out, "idn_toascii() failed: Contains non-LDH characters\n");
    EXPECT_EQ(read_file(kAssignPath), ".\n");
}

TEST_F(ControlDomainTest, WithoutPopuserNothingIsWritten) {
    write_file("/etc/passwd", "root:x:0:0::/root:/bin/sh\n");
    const ProcessResult run = run_in_child([] { return qmail_add_domain("example.test", false) == -1 ? 7 : 0; });
    EXPECT_EQ(run.status, 7);
    EXPECT_EQ(run.out, "Unable to getpwnam for user popuser\nUnable to get popuser user info: User not found\n");
    EXPECT_EQ(read_control_files(), (ControlFiles{"localhost\n", "", "localhost\n", ".\n"}));
}

TEST_F(ControlDomainTest, AFailingDirectoryUndoesTheDomain) {
    write_file(kRcptHostsPath, "localhost\nexample.test\n");
    write_file("/var/qmail/mailnames/example.test", "not a directory\n");
    const StepResult step = run_step([] { return qmail_add_domain("example.test", false); });
    EXPECT_EQ(step.status, -1);
    EXPECT_EQ(read_control_files(), (ControlFiles{"localhost\n", "", "localhost\n", ".\n"}));
}

TEST_F(ControlDomainTest, AnRcpthostsThatCannotBeWrittenUndoesTheRecordBeforeTheEnd) {
    ASSERT_EQ(unlink(kRcptHostsPath), 0);
    ASSERT_EQ(mkdir(kRcptHostsPath, 0755), 0);
    const ProcessResult run = run_in_child([] { return qmail_add_domain("example.test", false); });
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.out.find("Unable to remove domain record from rcpthosts file\n"), std::string::npos) << run.out;
    const std::string tail = "Unable to add domain record to rcpthosts.\n";
    ASSERT_GE(run.out.size(), tail.size());
    EXPECT_EQ(run.out.substr(run.out.size() - tail.size()), tail) << run.out;
    EXPECT_EQ(read_file(kAssignPath), ".\n");
    EXPECT_EQ(read_file(kVirtualDomainsPath), "");
    EXPECT_FALSE(path_exists("/var/qmail/mailnames/example.test"));
}

TEST_F(ControlDomainTest, AVirtualdomainsThatCannotBeWrittenUndoesTheDomainBeforeTheEnd) {
    // A link at the file's name is never written through; the undo then
    // ends the program itself, at the same file.
    ASSERT_EQ(mkdir("/tmp/vd", 0755), 0);
    ASSERT_EQ(unlink(kVirtualDomainsPath), 0);
    ASSERT_EQ(symlink("/tmp/vd/none", kVirtualDomainsPath), 0);
    const ProcessResult run = run_in_child([] { return qmail_add_domain("example.test", false); });
    EXPECT_EQ(run.status, 1);
    const std::string tail = "Unable to remove domain from virtualdomains file\n";
    ASSERT_GE(run.out.size(), tail.size());
    EXPECT_EQ(run.out.substr(run.out.size() - tail.size()), tail) << run.out;
    EXPECT_FALSE(path_exists("/tmp/vd/none"));
}

class ControlDomainRemoveTest : public ControlFilesTest {
protected:
    void SetUp() override {
        ControlFilesTest::SetUp();
        for (const char* domain : {"a.test", "a.test.example", "aa.test", "a-test"}) {
            ASSERT_EQ(qmail_add_domain(domain, false), 0);
            ASSERT_EQ(qmail_add_mailname_record("info", domain), 0);
            ASSERT_EQ(qmail_add_mail_alias("info", domain, "sales"), 0);
            ASSERT_EQ(qmail_add_mailname_record("a.test", domain), 0);
            ASSERT_EQ(add_mail_auth_user("info", domain, "secret", 0), 0);
            write_file(std::string(kMailnamesPath) + "/" + domain + "/marker", "x");
        }
    }

    static std::vector<std::string> records_of(const std::string& domain) {
        return {name_record(domain, "a.test", "a.test"), name_record(domain, "sales", "info"),
                name_record(domain, "info", "info"), plus_record(domain)};
    }
};

TEST_F(ControlDomainRemoveTest, RemovingADomainTakesEveryLineUnderItsDirectoryAndNoOther) {
    const StepResult step = run_step([] { return qmail_remove_domain("A.test"); });
    EXPECT_EQ(step.status, 0);
    EXPECT_EQ(step.printed.out, "");
    std::vector<std::string> records;
    for (const char* domain : {"a-test", "aa.test", "a.test.example"})
        for (const std::string& record : records_of(domain))
            records.push_back(record);
    const ControlFiles expected{"localhost\na.test.example\naa.test\na-test\n",
                                "a.test.example:a.test.example\naa.test:aa.test\na-test:a-test\n", "localhost\n",
                                assign_of(records)};
    EXPECT_EQ(read_control_files(), expected);
    expect_dot_last();
    EXPECT_EQ(file_info(kAssignPath).mode, 0644u);
    EXPECT_EQ(list_tree(kMailnamesPath),
              (std::vector<std::string>{"a-test/", "a-test/marker", "a.test.example/", "a.test.example/marker",
                                        "aa.test/", "aa.test/marker"}));
    EXPECT_EQ(auth_users(), "info@a-test\ninfo@a.test.example\ninfo@aa.test\n");
}

// An rcpthosts that cannot be replaced makes taking the domain's line out
// fail: the other steps still run, and the result says so.
TEST_F(ControlDomainRemoveTest, ARcpthostsLineThatCannotBeTakenOutFailsAfterTheOtherSteps) {
    sorvane::test::pin_file(kRcptHostsPath);
    const StepResult step = run_step([] { return qmail_remove_domain("a.test"); });
    EXPECT_EQ(step.status, -1);
    expect_reported(step.printed, std::string("Error while rename file /var/qmail/control/rcpthosts: Device or resource busy\n\nSystem error 16: Device or resource busy\n") + "Unable to remove domain from rcpthosts file\n");
    EXPECT_EQ(read_file(kRcptHostsPath), "localhost\na.test\na.test.example\naa.test\na-test\n");
    EXPECT_EQ(read_file(kVirtualDomainsPath), "a.test.example:a.test.example\naa.test:aa.test\na-test:a-test\n");
    EXPECT_FALSE(path_exists("/var/qmail/mailnames/a.test"));
    EXPECT_EQ(auth_users(), "info@a-test\ninfo@a.test.example\ninfo@aa.test\n");
}

TEST_F(ControlDomainRemoveTest, AnEmptyDomainEndsTheProgram) {
    const ProcessResult run = run_in_child([] { return qmail_remove_domain(""); });
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.out, "empty maildomain\n");
}

TEST_F(ControlDomainRemoveTest, AMissingVirtualdomainsEndsTheProgramAfterRcpthosts) {
    ASSERT_EQ(unlink(kVirtualDomainsPath), 0);
    const ControlFiles before = read_control_files();
    const ProcessResult run = run_in_child([] { return qmail_remove_domain("a.test"); });
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.out, "Unable to remove domain from virtualdomains file\n");
    ControlFiles expected = before;
    expected.rcpthosts = "localhost\na.test.example\naa.test\na-test\n";
    EXPECT_EQ(read_control_files(), expected);
    EXPECT_TRUE(path_exists("/var/qmail/mailnames/a.test/marker"));
}

TEST_F(ControlDomainRemoveTest, AFailingAuthenticationStoreStopsBeforeAssign) {
    ASSERT_EQ(unlink(mail_auth_db_path().c_str()), 0);
    ASSERT_EQ(mkdir(mail_auth_db_path().c_str(), 0755), 0);
    const ControlFiles before = read_control_files();
    const StepResult step = run_step([] { return qmail_remove_domain("a.test"); });
    EXPECT_EQ(step.status, -1);
    ControlFiles expected = before;
    expected.rcpthosts = "localhost\na.test.example\naa.test\na-test\n";
    expected.virtualdomains = "a.test.example:a.test.example\naa.test:aa.test\na-test:a-test\n";
    EXPECT_EQ(read_control_files(), expected);
    EXPECT_TRUE(path_exists("/var/qmail/mailnames/a.test/marker"));
}

TEST_F(ControlDomainTest, RemovingFromLocalsTakesOnlyThatLine) {
    write_file(kLocalsPath, "localhost\nexample.test\nexample.test.other\n");
    EXPECT_EQ(qmail_remove_from_locals("Example.Test"), 0);
    EXPECT_EQ(read_file(kLocalsPath), "localhost\nexample.test.other\n");
}

TEST_F(ControlDomainTest, RemovingFromAMissingLocalsIsReported) {
    ASSERT_EQ(unlink(kLocalsPath), 0);
    const StepResult step = run_step([] { return qmail_remove_from_locals("example.test"); });
    EXPECT_EQ(step.status, -1);
    expect_reported(step.printed, "Unable to remove domain record from locals.\n");
    EXPECT_FALSE(path_exists(kLocalsPath));
}

TEST_F(ControlDomainTest, SwitchingOffAndOnMovesBothLinesAndTheStoreStatus) {
    ASSERT_EQ(qmail_add_domain("example.test", false), 0);
    ASSERT_EQ(qmail_add_domain("other.test", false), 0);
    ASSERT_EQ(add_mail_auth_user("info", "example.test", "secret", 0), 0);
    ASSERT_EQ(add_mail_auth_user("info", "other.test", "secret", 0), 0);
    const std::string assign = read_file(kAssignPath);

    const StepResult off = run_step([] { return qmail_domain_off("Example.test"); });
    EXPECT_EQ(off.status, 0);
    EXPECT_EQ(off.printed.out, "");
    EXPECT_EQ(read_control_files(),
              (ControlFiles{"localhost\nother.test\n", "other.test:other.test\n", "localhost\n", assign}));
    EXPECT_EQ(auth_domains(), "example.test|1\nother.test|0\n");

    const StepResult on = run_step([] { return qmail_domain_on("example.test"); });
    EXPECT_EQ(on.status, 0);
    EXPECT_EQ(on.printed.out, "");
    EXPECT_EQ(read_control_files(), (ControlFiles{"localhost\nother.test\nexample.test\n",
                                                  "other.test:other.test\nexample.test:example.test\n",
                                                  "localhost\n", assign}));
    EXPECT_EQ(auth_domains(), "example.test|0\nother.test|0\n");

    EXPECT_EQ(qmail_domain_on("example.test"), 0);
    EXPECT_EQ(read_file(kRcptHostsPath), "localhost\nother.test\nexample.test\n");
    EXPECT_EQ(read_file(kVirtualDomainsPath), "other.test:other.test\nexample.test:example.test\n");
}

TEST_F(ControlDomainTest, SwitchingOffWithoutRcpthostsIsReportedInItsOwnWords) {
    ASSERT_EQ(unlink(kRcptHostsPath), 0);
    write_file(kVirtualDomainsPath, "example.test:example.test\n");
    const StepResult step = run_step([] { return qmail_domain_off("example.test"); });
    EXPECT_EQ(step.status, -1);
    expect_reported(step.printed, "Unable to remove domain mailbox record from assign file\n");
    EXPECT_EQ(read_file(kVirtualDomainsPath), "example.test:example.test\n");
}

TEST_F(ControlDomainTest, SwitchingOffWithoutVirtualdomainsIsReported) {
    ASSERT_EQ(unlink(kVirtualDomainsPath), 0);
    write_file(kRcptHostsPath, "localhost\nexample.test\n");
    const StepResult step = run_step([] { return qmail_domain_off("example.test"); });
    EXPECT_EQ(step.status, -1);
    expect_reported(step.printed, "ERROR: Unable to remove record from virtualdomains file\n");
    EXPECT_EQ(read_file(kRcptHostsPath), "localhost\n");
}

TEST_F(ControlDomainTest, SwitchingOnWithoutVirtualdomainsWritesItAndReportsTheRemoval) {
    ASSERT_EQ(unlink(kVirtualDomainsPath), 0);
    ASSERT_EQ(add_mail_auth_user("info", "example.test", "secret", kMailAuthDomainDisabled), 0);
    const StepResult step = run_step([] { return qmail_domain_on("example.test"); });
    EXPECT_EQ(step.status, 0);
    expect_reported(step.printed, "Unable to remove record from virtualdomains.\n");
    EXPECT_EQ(read_file(kRcptHostsPath), "localhost\nexample.test\n");
    EXPECT_EQ(read_file(kVirtualDomainsPath), "example.test:example.test\n");
    EXPECT_EQ(auth_domains(), "example.test|0\n");
}

// An rcpthosts that cannot be replaced makes taking the line out fail,
// while appending to the file still works.
TEST_F(ControlDomainTest, SwitchingOnWhenTheOldRcpthostsLineCannotBeTakenOutGoesOnButFails) {
    write_file(kRcptHostsPath, "localhost\nexample.test\n");
    sorvane::test::pin_file("/var/qmail/control/rcpthosts");
    ASSERT_EQ(add_mail_auth_user("info", "example.test", "secret", kMailAuthDomainDisabled), 0);
    const StepResult step = run_step([] { return qmail_domain_on("example.test"); });
    EXPECT_EQ(step.status, -1);
    EXPECT_EQ(read_file(kRcptHostsPath), "localhost\nexample.test\nexample.test\n");
    EXPECT_EQ(read_file(kVirtualDomainsPath), "example.test:example.test\n");
    EXPECT_EQ(auth_domains(), "example.test|0\n");
    // the next run, without the obstacle, leaves the line once
    sorvane::test::unpin_file("/var/qmail/control/rcpthosts");
    EXPECT_EQ(qmail_domain_on("example.test"), 0);
    EXPECT_EQ(read_file(kRcptHostsPath), "localhost\nexample.test\n");
}

TEST_F(ControlDomainTest, SwitchingOnWhenRcpthostsCannotBeWrittenFails) {
    ASSERT_EQ(unlink(kRcptHostsPath), 0);
    ASSERT_EQ(mkdir(kRcptHostsPath, 0755), 0);
    const StepResult step = run_step([] { return qmail_domain_on("example.test"); });
    EXPECT_EQ(step.status, -1);
    const std::string tail = "Unable to add record to rcpthosts.\n";
    ASSERT_GE(step.printed.out.size(), tail.size());
    EXPECT_EQ(step.printed.out.substr(step.printed.out.size() - tail.size()), tail);
    EXPECT_EQ(read_file(kVirtualDomainsPath), "");
}

}  // namespace
}  // namespace sorvane::test
