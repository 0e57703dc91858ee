// The domain rows of the mail authentication store.
#include "mail_auth_test_support.h"

#include <gmock/gmock.h>

namespace sorvane::test {
namespace {

using ::testing::ElementsAre;

class MailAuthDomainsTest : public MailAuthStoreTest {
protected:
    void SetUp() override {
        MailAuthStoreTest::SetUp();
        ASSERT_EQ(add_mail_auth_user("info", "example.com", "x", 0), 0);
        ASSERT_EQ(add_mail_auth_user("sales", "example.com", "x", 0), 0);
        ASSERT_EQ(add_mail_auth_user("info", "other.test", "x", 0), 0);
    }
};

TEST_F(MailAuthDomainsTest, DisableAndEnable) {
    ASSERT_EQ(set_mail_auth_domain_status("Example.COM", kMailAuthDomainStatusDisabled), 0);
    EXPECT_EQ(domains(), "1|example.com|1\n2|other.test|0\n");
    ASSERT_EQ(set_mail_auth_domain_status("example.com", kMailAuthDomainStatusEnabled), 0);
    EXPECT_EQ(domains(), "1|example.com|0\n2|other.test|0\n");
}

TEST_F(MailAuthDomainsTest, RenameKeepsTheUsers) {
    ASSERT_EQ(rename_mail_auth_domain("EXAMPLE.com", "New.Test"), 0);
    EXPECT_EQ(domains(), "1|new.test|0\n2|other.test|0\n");
    MailAuthUser user;
    EXPECT_EQ(get_mail_auth_user("new.test", "sales", user), 0);
}

TEST_F(MailAuthDomainsTest, RenameOntoAnExistingDomainFailsAndChangesNothing) {
    EXPECT_EQ(rename_mail_auth_domain("example.com", "other.test"), -1);
    EXPECT_EQ(domains(), "1|example.com|0\n2|other.test|0\n");
    EXPECT_THAT(logged(), ElementsAre("3 Unable to execute the mail domain authorization name change query: "
                                      "example.com: UNIQUE constraint failed: domains.name"));
}

TEST_F(MailAuthDomainsTest, RemoveTakesItsUsersThroughTheTrigger) {
    ASSERT_EQ(remove_mail_auth_domain("Example.com"), 0);
    EXPECT_EQ(domains(), "2|other.test|0\n");
    EXPECT_EQ(users(), "info|2|0\n");
}

TEST_F(MailAuthDomainsTest, ChangesOfAnUnknownDomainChangeNothing) {
    const std::string before = domains() + users();
    EXPECT_EQ(set_mail_auth_domain_status("nowhere.test", kMailAuthDomainStatusDisabled), 0);
    EXPECT_EQ(rename_mail_auth_domain("nowhere.test", "elsewhere.test"), 0);
    EXPECT_EQ(remove_mail_auth_domain("nowhere.test"), 0);
    EXPECT_EQ(domains() + users(), before);
}

TEST_F(MailAuthDomainsTest, FailedStatementsAreReportedWithTheDomain) {
    rows("CREATE TRIGGER keep_domains BEFORE UPDATE ON domains BEGIN SELECT RAISE(ABORT, 'domains are kept'); END;"
         "CREATE TRIGGER keep_rows BEFORE DELETE ON domains BEGIN SELECT RAISE(ABORT, 'rows are kept'); END;");
    EXPECT_EQ(set_mail_auth_domain_status("example.com", kMailAuthDomainStatusDisabled), -1);
    EXPECT_EQ(rename_mail_auth_domain("example.com", "new.test"), -1);
    EXPECT_EQ(remove_mail_auth_domain("example.com"), -1);
    EXPECT_THAT(logged(),
                ElementsAre("3 Unable to execute the mail domain authorization status change query: example.com: "
                            "domains are kept",
                            "3 Unable to execute the mail domain authorization name change query: example.com: "
                            "domains are kept",
                            "3 Unable to execute the domain mail authorization removal query: example.com: rows are "
                            "kept"));
    EXPECT_EQ(domains(), "1|example.com|0\n2|other.test|0\n");
}

TEST_F(MailAuthDomainsTest, FailedUserStatementsAreReportedWithTheAddress) {
    rows("CREATE TRIGGER no_users BEFORE INSERT ON users BEGIN SELECT RAISE(ABORT, 'no new users'); END;"
         "CREATE TRIGGER keep_users BEFORE DELETE ON users BEGIN SELECT RAISE(ABORT, 'users are kept'); END;");
    EXPECT_EQ(add_mail_auth_user("new", "example.com", "x", 0), -1);
    EXPECT_EQ(remove_mail_auth_user("info", "example.com"), -1);
    EXPECT_THAT(logged(),
                ElementsAre("3 Unable to execute the mail authorization registration query: new@example.com: no new "
                            "users",
                            "3 Unable to execute the mail authorization removal query: info@example.com: users are "
                            "kept"));
}

TEST_F(MailAuthDomainsTest, FailedDomainRegistrationStoresNoUser) {
    rows("CREATE TRIGGER no_domains BEFORE INSERT ON domains BEGIN SELECT RAISE(ABORT, 'no new domains'); END;");
    EXPECT_EQ(add_mail_auth_user("info", "new.test", "x", 0), -1);
    EXPECT_THAT(logged(),
                ElementsAre("3 Unable to execute the mail domain authentication registration query: no new domains",
                            "3 Unable to get mail domain id for: new.test"));
    EXPECT_EQ(rows("SELECT count(*) FROM users;"), "3\n");
}

TEST_F(MailAuthDomainsTest, ForeignKeyTriggerMessageReachesTheLog) {
    // A trigger that drops the domain just before the user row goes in: the
    // store's own trigger then refuses the row.
    rows("CREATE TRIGGER drop_domain BEFORE INSERT ON users WHEN NEW.name='late' "
         "BEGIN DELETE FROM domains WHERE id = NEW.dom_id; END;");
    EXPECT_EQ(add_mail_auth_user("late", "other.test", "x", 0), -1);
    EXPECT_THAT(logged(), ElementsAre("3 Unable to execute the mail authorization registration query: "
                                      "late@other.test: insert on table \"users\" violates foreign key constraint "
                                      "\"fk_domains_id\""));
    EXPECT_EQ(domains(), "1|example.com|0\n2|other.test|0\n");
}

}  // namespace
}  // namespace sorvane::test
