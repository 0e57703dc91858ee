// Switching a domain off and on when its control files cannot be changed:
// the authentication store's status is still switched, and the step fails.
#include <sys/stat.h>
#include <unistd.h>

#include "qmail/control_files.h"
#include "qmail/control_test_support.h"
#include "stores/mail_auth_paths.h"
#include "stores/mail_auth_store.h"
#include "stores/store_test_support.h"

namespace sorvane::test {
namespace {

class DomainSwitchStoreTest : public ControlFilesTest {
protected:
    void SetUp() override {
        ControlFilesTest::SetUp();
        ASSERT_EQ(add_mail_auth_user("info", "example.test", "secret", 0), 0);
        ASSERT_EQ(add_mail_auth_user("info", "other.test", "secret", 0), 0);
    }
    static std::string auth_domains() {
        return sqlite_cli(mail_auth_db_path(), "SELECT name, status FROM domains ORDER BY name;");
    }
    // rcpthosts replaced by a directory: neither a removal nor an append of
    // a line can succeed.
    static void break_rcpthosts() {
        ASSERT_EQ(unlink(kRcptHostsPath), 0);
        ASSERT_EQ(mkdir(kRcptHostsPath, 0755), 0);
    }
};

TEST_F(DomainSwitchStoreTest, SwitchingOffWithoutRcpthostsStillDisablesTheDomainInTheStore) {
    ASSERT_EQ(unlink(kRcptHostsPath), 0);
    write_file(kVirtualDomainsPath, "example.test:example.test\n");
    const StepResult step = run_step([] { return qmail_domain_off("example.test"); });
    EXPECT_EQ(step.status, -1);
    expect_reported(step.printed, "Unable to remove domain mailbox record from assign file\n");
    EXPECT_EQ(read_file(kVirtualDomainsPath), "example.test:example.test\n");
    EXPECT_EQ(auth_domains(), "example.test|1\nother.test|0\n");
}

TEST_F(DomainSwitchStoreTest, SwitchingOffWithoutVirtualdomainsStillDisablesTheDomainInTheStore) {
    write_file(kRcptHostsPath, "localhost\nexample.test\n");
    ASSERT_EQ(unlink(kVirtualDomainsPath), 0);
    const StepResult step = run_step([] { return qmail_domain_off("example.test"); });
    EXPECT_EQ(step.status, -1);
    expect_reported(step.printed, "ERROR: Unable to remove record from virtualdomains file\n");
    EXPECT_EQ(read_file(kRcptHostsPath), "localhost\n");
    EXPECT_EQ(auth_domains(), "example.test|1\nother.test|0\n");
}

TEST_F(DomainSwitchStoreTest, SwitchingOnWithABrokenRcpthostsStillEnablesTheDomainInTheStore) {
    ASSERT_EQ(set_mail_auth_domain_status("example.test", kMailAuthDomainStatusDisabled), 0);
    break_rcpthosts();
    const StepResult step = run_step([] { return qmail_domain_on("example.test"); });
    EXPECT_EQ(step.status, -1);
    EXPECT_NE(step.printed.out.find("Unable to add record to rcpthosts.\n"), std::string::npos) << step.printed.out;
    EXPECT_EQ(read_file(kVirtualDomainsPath), "");
    EXPECT_EQ(auth_domains(), "example.test|0\nother.test|0\n");
}

TEST_F(DomainSwitchStoreTest, AFailingStoreStillFailsTheSwitchAfterTheFiles) {
    write_file(kRcptHostsPath, "localhost\nexample.test\n");
    write_file(kVirtualDomainsPath, "example.test:example.test\n");
    sqlite_cli(mail_auth_db_path(), "CREATE TRIGGER refuse BEFORE UPDATE ON domains "
                                    "BEGIN SELECT RAISE(ABORT, 'refused by the test'); END;");
    EXPECT_EQ(qmail_domain_off("example.test"), -1);
    EXPECT_EQ(read_file(kRcptHostsPath), "localhost\n");
    EXPECT_EQ(read_file(kVirtualDomainsPath), "");
    EXPECT_EQ(auth_domains(), "example.test|0\nother.test|0\n");
}

}  // namespace
}  // namespace sorvane::test
