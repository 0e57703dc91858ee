// Domain aliases in the control files; mail names' and mail aliases' records
// in assign.
#include <sys/stat.h>
#include <unistd.h>

#include "qmail/control_files.h"
#include "qmail/control_test_support.h"

namespace sorvane::test {
namespace {

using ControlAliasTest = ControlFilesTest;

TEST_F(ControlAliasTest, ADomainAliasIsAcceptedDeliveredAsItsDomainAndNotLocal) {
    write_file(kLocalsPath, "localhost\nalias.test\n");
    const StepResult step = run_step([] { return qmail_add_domain_alias("Example.test", "ALIAS.test"); });
    EXPECT_EQ(step.status, 0);
    EXPECT_EQ(step.printed.out, "");
    EXPECT_EQ(read_control_files(),
              (ControlFiles{"localhost\nalias.test\n", "alias.test:example.test\n", "localhost\n", ".\n"}));
}

TEST_F(ControlAliasTest, AddingADomainAliasTwiceLeavesOneLineOfEachKind) {
    ASSERT_EQ(qmail_add_domain_alias("example.test", "alias.test"), 0);
    ASSERT_EQ(qmail_add_domain_alias("example.test", "second.test"), 0);
    ASSERT_EQ(qmail_add_domain_alias("example.test", "alias.test"), 0);
    EXPECT_EQ(read_control_files(),
              (ControlFiles{"localhost\nsecond.test\nalias.test\n",
                            "second.test:example.test\nalias.test:example.test\n", "localhost\n", ".\n"}));
}

TEST_F(ControlAliasTest, AnInternationalAliasIsWrittenInAscii) {
    ASSERT_EQ(qmail_add_domain_alias("example.test", "B\xC3\xBC" "cher.test"), 0);
    EXPECT_EQ(read_file(kRcptHostsPath), "localhost\nxn--bcher-kva.test\n");
    EXPECT_EQ(read_file(kVirtualDomainsPath), "xn--bcher-kva.test:example.test\n");
}

TEST_F(ControlAliasTest, AddingAnAliasWithoutLocalsReportsTheLocalsStep) {
    ASSERT_EQ(unlink(kLocalsPath), 0);
    const StepResult step = run_step([] { return qmail_add_domain_alias("example.test", "alias.test"); });
    EXPECT_EQ(step.status, 0);
    expect_reported(step.printed, "Unable to remove domain record from locals.\n");
    EXPECT_EQ(read_file(kVirtualDomainsPath), "alias.test:example.test\n");
}

TEST_F(ControlAliasTest, AnAliasThatCannotReachVirtualdomainsIsTakenOutOfRcpthostsBeforeTheEnd) {
    ASSERT_EQ(unlink(kVirtualDomainsPath), 0);
    ASSERT_EQ(mkdir(kVirtualDomainsPath, 0755), 0);
    const ProcessResult run = run_in_child([] { return qmail_add_domain_alias("example.test", "alias.test"); });
    EXPECT_EQ(run.status, 1);
    const std::string tail = "Unable to add domain record alias to virtualdomains.\n";
    ASSERT_GE(run.out.size(), tail.size());
    EXPECT_EQ(run.out.substr(run.out.size() - tail.size()), tail) << run.out;
    EXPECT_NE(run.out.find("Unable to remove domain record alias from virtualdomains.\n"), std::string::npos);
    EXPECT_EQ(read_file(kRcptHostsPath), "localhost\n");
}

TEST_F(ControlAliasTest, AnAliasThatCannotReachRcpthostsEndsTheProgram) {
    ASSERT_EQ(unlink(kRcptHostsPath), 0);
    ASSERT_EQ(mkdir(kRcptHostsPath, 0755), 0);
    const ProcessResult run = run_in_child([] { return qmail_add_domain_alias("example.test", "alias.test"); });
    EXPECT_EQ(run.status, 1);
    const std::string tail = "Unable to add domain record alias to rcpthosts.\n";
    ASSERT_GE(run.out.size(), tail.size());
    EXPECT_EQ(run.out.substr(run.out.size() - tail.size()), tail) << run.out;
    EXPECT_EQ(read_file(kVirtualDomainsPath), "");
}

TEST_F(ControlAliasTest, EmptyDomainOrAliasEndsTheProgram) {
    for (const auto& [domain, alias] : {std::pair{"", "alias.test"}, std::pair{"example.test", ""}}) {
        const ProcessResult add = run_in_child([&] { return qmail_add_domain_alias(domain, alias); });
        EXPECT_EQ(add.status, 1);
        EXPECT_EQ(add.out, "empty domain or domain alias\n");
        const ProcessResult remove = run_in_child([&] { return qmail_remove_domain_alias(domain, alias); });
        EXPECT_EQ(remove.status, 1);
        EXPECT_EQ(remove.out, "empty domain or domain alias\n");
    }
}

TEST_F(ControlAliasTest, RemovingADomainAliasTakesItsLinesAndItsDefaultDotQmail) {
    ASSERT_EQ(qmail_add_domain_alias("example.test", "alias.test"), 0);
    ASSERT_EQ(qmail_add_domain_alias("example.test", "alias.test.other"), 0);
    ASSERT_EQ(mkdir("/var/qmail/mailnames/alias.test", 0700), 0);
    write_file("/var/qmail/mailnames/alias.test/.qmail-default", "|bouncesaying 'no'\n", 0600);
    const StepResult step = run_step([] { return qmail_remove_domain_alias("example.test", "Alias.Test"); });
    EXPECT_EQ(step.status, 0);
    EXPECT_EQ(step.printed.out, "");
    EXPECT_EQ(read_control_files(), (ControlFiles{"localhost\nalias.test.other\n",
                                                  "alias.test.other:example.test\n", "localhost\n", ".\n"}));
    EXPECT_FALSE(path_exists("/var/qmail/mailnames/alias.test/.qmail-default"));
}

// An rcpthosts that cannot be replaced makes taking a line out of it fail,
// while appending to it still works.
const std::string kTempInTheWay =
    "Error while rename file /var/qmail/control/rcpthosts: Device or resource busy\n\n"
    "System error 16: Device or resource busy\n";

TEST_F(ControlAliasTest, AnAliasWhoseOldRcpthostsLineCannotBeTakenOutIsAddedButFails) {
    write_file(kRcptHostsPath, "localhost\nalias.test\n");
    sorvane::test::pin_file("/var/qmail/control/rcpthosts");
    const StepResult step = run_step([] { return qmail_add_domain_alias("example.test", "alias.test"); });
    EXPECT_EQ(step.status, -1);
    expect_reported(step.printed, kTempInTheWay + "Unable to remove domain record alias from rcpthosts file\n");
    EXPECT_EQ(read_control_files(), (ControlFiles{"localhost\nalias.test\nalias.test\n", "alias.test:example.test\n",
                                                  "localhost\n", ".\n"}));
    // the next run, without the obstacle, leaves the line once
    sorvane::test::unpin_file("/var/qmail/control/rcpthosts");
    EXPECT_EQ(qmail_add_domain_alias("example.test", "alias.test"), 0);
    EXPECT_EQ(read_file(kRcptHostsPath), "localhost\nalias.test\n");
}

TEST_F(ControlAliasTest, RemovingAnAliasWhoseRcpthostsLineCannotBeTakenOutGoesOnButFails) {
    ASSERT_EQ(qmail_add_domain_alias("example.test", "alias.test"), 0);
    sorvane::test::pin_file("/var/qmail/control/rcpthosts");
    const StepResult step = run_step([] { return qmail_remove_domain_alias("example.test", "alias.test"); });
    EXPECT_EQ(step.status, -1);
    expect_reported(step.printed, kTempInTheWay + "Unable to remove domain alias from rcpthosts file\n");
    EXPECT_EQ(read_control_files(), (ControlFiles{"localhost\nalias.test\n", "", "localhost\n", ".\n"}));
}

TEST_F(ControlAliasTest, RemovingAnAliasWithoutRcpthostsIsNoFailure) {
    ASSERT_EQ(qmail_add_domain_alias("example.test", "alias.test"), 0);
    ASSERT_EQ(unlink(kRcptHostsPath), 0);
    const StepResult step = run_step([] { return qmail_remove_domain_alias("example.test", "alias.test"); });
    EXPECT_EQ(step.status, 0);
    expect_reported(step.printed, "Unable to remove domain alias from rcpthosts file\n");
    EXPECT_EQ(read_file(kVirtualDomainsPath), "");
}

TEST_F(ControlAliasTest, RemovingAnAliasWithoutVirtualdomainsEndsTheProgram) {
    write_file(kRcptHostsPath, "localhost\nalias.test\n");
    ASSERT_EQ(unlink(kVirtualDomainsPath), 0);
    const ProcessResult run = run_in_child([] { return qmail_remove_domain_alias("example.test", "alias.test"); });
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.out, "Unable to remove domain alias from virtualdomains file\n");
    EXPECT_EQ(read_file(kRcptHostsPath), "localhost\n");
}

TEST_F(ControlAliasTest, AMailNameRecordGoesToTheTopOnce) {
    const StepResult first = run_step([] { return qmail_add_mailname_record("Info", "Example.TEST"); });
    EXPECT_EQ(first.status, 0);
    EXPECT_EQ(first.printed.out, "");
    ASSERT_EQ(qmail_add_mailname_record("sales", "example.test"), 0);
    ASSERT_EQ(qmail_add_mailname_record("info", "example.test"), 0);
    EXPECT_EQ(read_file(kAssignPath), assign_of({name_record("example.test", "info", "info"),
                                                 name_record("example.test", "sales", "sales")}));
    expect_dot_last();
    EXPECT_EQ(file_info(kAssignPath).mode, 0644u);
}

TEST_F(ControlAliasTest, AMailNameRecordOfAnInternationalDomainIsInAscii) {
    ASSERT_EQ(qmail_add_mailname_record("info", "B\xC3\xBC" "cher.test"), 0);
    EXPECT_EQ(read_file(kAssignPath), assign_of({name_record("xn--bcher-kva.test", "info", "info")}));
}

TEST_F(ControlAliasTest, AMailNameRecordWithoutAssignIsWrittenAfterAWarning) {
    ASSERT_EQ(unlink(kAssignPath), 0);
    const StepResult step = run_step([] { return qmail_add_mailname_record("info", "example.test"); });
    EXPECT_EQ(step.status, 0);
    expect_reported(step.printed, "Unable to remove record for info@example.test from assign file\n");
    EXPECT_EQ(read_file(kAssignPath), lines_of({name_record("example.test", "info", "info")}));
    EXPECT_EQ(file_info(kAssignPath).mode, 0644u);
}

TEST_F(ControlAliasTest, AMailNameRecordThatCannotBeWrittenUndoesTheMailNameAndEnds) {
    sorvane::test::plant_foreign_lock_directory();
    const ProcessResult run = run_in_child([] { return qmail_add_mailname_record("info", "example.test"); });
    EXPECT_EQ(run.status, 1);
    const std::string tail = "Unable to add record for info@example.test to assign file\n";
    ASSERT_GE(run.out.size(), tail.size());
    EXPECT_EQ(run.out.substr(run.out.size() - tail.size()), tail) << run.out;
    EXPECT_EQ(read_file(kAssignPath), ".\n");
}

// How often the run's messages (standard output) say that assign could not
// be locked: once for each rewrite it tried.
std::size_t lock_failures(const ProcessResult& run) {
    const std::string& said = run.out;
    const std::string failure = "Error occurred while locking the file /var/qmail/users/assign";
    std::size_t count = 0;
    for (std::size_t at = said.find(failure); at != std::string::npos; at = said.find(failure, at + 1))
        ++count;
    return count;
}

TEST_F(ControlAliasTest, ANewMailNameRecordThatCannotBeWrittenIsTriedOnce) {
    sorvane::test::plant_foreign_lock_directory();
    const ProcessResult run = run_in_child([] { return qmail_add_mailname_record("info", "example.test"); });
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(lock_failures(run), 1u) << run.out << run.err;
}

TEST_F(ControlAliasTest, AMailNameRecordThatWasThereIsTriedOnceMoreBeforeTheEnd) {
    const std::string before = assign_of({name_record("example.test", "sales", "sales"),
                                          name_record("example.test", "info", "info")});
    write_file(kAssignPath, before, 0644);
    sorvane::test::plant_foreign_lock_directory();
    const ProcessResult run = run_in_child([] { return qmail_add_mailname_record("info", "example.test"); });
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(lock_failures(run), 2u) << run.out << run.err;
    const std::string tail = "Unable to add record for info@example.test to assign file\n";
    ASSERT_GE(run.out.size(), tail.size());
    EXPECT_EQ(run.out.substr(run.out.size() - tail.size()), tail) << run.out;
    EXPECT_EQ(read_file(kAssignPath), before);
}

TEST_F(ControlAliasTest, EmptyMailNameOrDomainEndsTheProgram) {
    const ProcessResult run = run_in_child([] { return qmail_add_mailname_record("", "example.test"); });
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.out, "empty mailname, maildomain or mailalias\n");
}

TEST_F(ControlAliasTest, MailAliasRecordsPointAtTheMailNamesHome) {
    ASSERT_EQ(qmail_add_mailname_record("info", "example.test"), 0);
    const StepResult step = run_step([] { return qmail_add_mail_alias("Info", "example.test", "Sales"); });
    EXPECT_EQ(step.status, 0);
    EXPECT_EQ(step.printed.out, "");
    ASSERT_EQ(qmail_add_mail_alias("info", "example.test", "office"), 0);
    ASSERT_EQ(qmail_add_mail_alias("info", "example.test", "sales"), 0);
    EXPECT_EQ(read_file(kAssignPath), assign_of({name_record("example.test", "sales", "info"),
                                                 name_record("example.test", "office", "info"),
                                                 name_record("example.test", "info", "info")}));
    const StepResult removed = run_step([] { return qmail_remove_mail_alias("info", "example.test", "SALES"); });
    EXPECT_EQ(removed.status, 0);
    EXPECT_EQ(removed.printed.out, "");
    EXPECT_EQ(read_file(kAssignPath), assign_of({name_record("example.test", "office", "info"),
                                                 name_record("example.test", "info", "info")}));
    expect_dot_last();
    EXPECT_EQ(file_info(kAssignPath).mode, 0644u);
}

TEST_F(ControlAliasTest, EmptyMailAliasArgumentsEndTheProgram) {
    const ProcessResult add = run_in_child([] { return qmail_add_mail_alias("info", "example.test", ""); });
    EXPECT_EQ(add.status, 1);
    EXPECT_EQ(add.out, "empty mailname, maildomain or mailalias\n");
    const ProcessResult remove = run_in_child([] { return qmail_remove_mail_alias("", "example.test", "sales"); });
    EXPECT_EQ(remove.status, 1);
    EXPECT_EQ(remove.out, "empty mailname, maildomain or mailalias\n");
}

TEST_F(ControlAliasTest, RemovingAMailAliasWithoutAssignEndsTheProgram) {
    ASSERT_EQ(unlink(kAssignPath), 0);
    const ProcessResult run = run_in_child([] { return qmail_remove_mail_alias("info", "example.test", "sales"); });
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.out, "Unable to remove record from assign file\n");
}

TEST_F(ControlAliasTest, WithoutPopuserMailAliasesEndTheProgramInTheirOwnWords) {
    write_file("/etc/passwd", "root:x:0:0::/root:/bin/sh\n");
    const ProcessResult add = run_in_child([] { return qmail_add_mail_alias("info", "example.test", "sales"); });
    EXPECT_EQ(add.status, 1);
    EXPECT_EQ(add.out, "Unable to getpwnam for user popuser\nUnable to define UID or GID for user popuser\n");
    const ProcessResult remove =
        run_in_child([] { return qmail_remove_mail_alias("info", "example.test", "sales"); });
    EXPECT_EQ(remove.status, 1);
    EXPECT_EQ(remove.out, "Unable to getpwnam for user popuser\nUnable to get popuser uid or gid\n");
    EXPECT_EQ(read_file(kAssignPath), ".\n");
}

}  // namespace
}  // namespace sorvane::test
