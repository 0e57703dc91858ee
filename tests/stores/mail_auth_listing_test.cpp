// Listing the users of the mail authentication store with plain passwords.
#include "mail_auth_test_support.h"

#include <gmock/gmock.h>

namespace sorvane::test {
namespace {

using ::testing::ElementsAre;

class MailAuthListingTest : public MailAuthStoreTest {
protected:
    // "address password user-disabled domain-disabled" per listed user.
    std::vector<std::string> listed(const std::string& mailname, int expected_result = 0) {
        std::vector<std::string> lines;
        const int result = list_mail_auth_users(mailname, [&](const MailAuthListedUser& user) {
            lines.push_back(user.address + " " + user.password + " " + std::to_string(user.user_disabled) + " " +
                            std::to_string(user.domain_disabled));
        });
        EXPECT_EQ(result, expected_result);
        return lines;
    }
};

TEST_F(MailAuthListingTest, ListsEveryUserDecipheredInDomainThenNameOrder) {
    ASSERT_EQ(set_mail_auth_password("sales", "b.test", "pw-sales", 0), 0);
    ASSERT_EQ(set_mail_auth_password("info", "b.test", "pw-info", kMailAuthUserDisabled), 0);
    ASSERT_EQ(set_mail_auth_password("info", "a.test", "$1$salt$hash",
                                     kMailAuthPasswordInStoredForm | kMailAuthDomainDisabled),
              0);
    EXPECT_THAT(listed(""), ElementsAre("info@a.test $1$salt$hash 0 1", "info@b.test pw-info 1 0",
                                        "sales@b.test pw-sales 0 0"));
    EXPECT_TRUE(logged().empty());
}

TEST_F(MailAuthListingTest, ListsOneMailNameInEveryDomain) {
    ASSERT_EQ(set_mail_auth_password("info", "b.test", "one", 0), 0);
    ASSERT_EQ(set_mail_auth_password("info", "a.test", "two", 0), 0);
    ASSERT_EQ(set_mail_auth_password("sales", "a.test", "three", 0), 0);
    EXPECT_THAT(listed("INFO"), ElementsAre("info@a.test two 0 0", "info@b.test one 0 0"));
}

TEST_F(MailAuthListingTest, SkipsRowsWithoutPasswordOrAddress) {
    ASSERT_EQ(set_mail_auth_password("info", "a.test", "one", 0), 0);
    ASSERT_EQ(set_mail_auth_password("nopass", "a.test", "two", 0), 0);
    rows("UPDATE users SET userPassword=NULL WHERE name='nopass';"
         "INSERT INTO domains(name) VALUES(NULL);"
         "INSERT INTO users(dom_id, name, userPassword) SELECT id, 'lost', 'x' FROM domains WHERE name IS NULL;");
    EXPECT_THAT(listed(""), ElementsAre("info@a.test one 0 0"));
    EXPECT_THAT(logged(),
                ElementsAre("3 NULL or empty mail address stored in the database, skipped",
                            "3 empty password properties (both plain and encrypted) for user nopass@a.test, skipped"));
}

TEST_F(MailAuthListingTest, APasswordThatDoesNotDecipherIsSkippedAndFailsTheListing) {
    ASSERT_EQ(set_mail_auth_password("info", "a.test", "one", 0), 0);
    ASSERT_EQ(add_mail_auth_user("bad", "a.test", "$AES-256-CBC:PKCS$not base64$not base64", 0), 0);
    ASSERT_EQ(set_mail_auth_password("sales", "a.test", "three", 0), 0);
    EXPECT_THAT(listed("", -1), ElementsAre("info@a.test one 0 0", "sales@a.test three 0 0"));
    EXPECT_THAT(logged(), ElementsAre("3 Failed to decrypt password for mail address 'bad@a.test'"));
}

TEST_F(MailAuthListingTest, EmptyStoreListsNothing) {
    EXPECT_TRUE(listed("").empty());
}

}  // namespace
}  // namespace sorvane::test
