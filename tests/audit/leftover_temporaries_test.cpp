// Copies that killed edits left beside control files, assign, a domain's
// ".qmail-default" and a mail name's ".qmail": each is reported once, and
// the next sorvane command that edits the file takes it away.
#include <gtest/gtest.h>

#include "audit/audit_fixture.h"

namespace sorvane::test {
namespace {

using LeftoverTemporariesTest = AuditTest;

const std::string kNote = "left; the next sorvane command that edits the file removes it";

TEST_F(LeftoverTemporariesTest, CopiesBesideControlFilesAndAssign) {
    write_file("/var/qmail/control/rcpthosts.tmp.Ab12Cd", "half\n", 0600);
    write_file("/var/qmail/users/assign.tmp", "old style\n", 0600);
    write_file("/var/qmail/control/rcpthosts.tmp.toolong1", "not a copy of ours\n", 0600);
    expect_findings({"notice leftover-temporary /var/qmail/control/rcpthosts.tmp.Ab12Cd: a copy that a killed edit "
                     "of /var/qmail/control/rcpthosts " + kNote,
                     "notice leftover-temporary /var/qmail/users/assign.tmp: a copy that a killed edit of "
                     "/var/qmail/users/assign " + kNote});
    const ProcessResult planned = run_sorvane_audit({"--repair-plan"});
    EXPECT_EQ(person_lines(planned.out),
              (std::vector<std::string>{"needs a person: leftover-temporary /var/qmail/control/rcpthosts.tmp.Ab12Cd",
                                        "needs a person: leftover-temporary /var/qmail/users/assign.tmp"}));
    // Any command that edits both files removes the copies.
    ASSERT_EQ(run_sorvane({"--add-domain", "--domain-name=more.test"}).status, 0);
    expect_findings({});
    EXPECT_TRUE(path_exists("/var/qmail/control/rcpthosts.tmp.toolong1"));
}

TEST_F(LeftoverTemporariesTest, CopiesInADomainDirectoryAndAHome) {
    const std::string domain_dir = kMailnamesDir + "/" + kDomain;
    write_file(domain_dir + "/.qmail-default.tmp.x1Y2z3", "half", 0600);
    write_file(domain_dir + "/info/.qmail.tmp.Q9w8E7", "half", 0600);
    expect_findings({"notice leftover-temporary " + domain_dir + "/.qmail-default.tmp.x1Y2z3: a copy that a killed "
                     "edit of " + domain_dir + "/.qmail-default " + kNote,
                     "notice leftover-temporary " + domain_dir + "/info/.qmail.tmp.Q9w8E7: a copy that a killed "
                     "edit of " + domain_dir + "/info/.qmail " + kNote});
    expect_findings({}, {"--domain=" + kNeighbour});
}

}  // namespace
}  // namespace sorvane::test
