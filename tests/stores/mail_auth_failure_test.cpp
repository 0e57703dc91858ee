// How the mail authentication store reports a database it cannot use.
#include "mail_auth_test_support.h"

#include <gmock/gmock.h>

#include <filesystem>

namespace sorvane::test {
namespace {

using ::testing::ElementsAre;

class MailAuthFailureTest : public MailAuthStoreTest {
protected:
    static void store_made_of(const std::string& sql) {
        std::filesystem::remove(mail_auth_db_path());
        sqlite_cli(mail_auth_db_path(), sql);
    }
    static std::string open_failure() {
        return "3 Unable to open database(readonly) " + mail_auth_db_path() + ": unable to open database file";
    }
};

TEST_F(MailAuthFailureTest, ReadsOfAMissingDatabaseFailAndCreateNothing) {
    std::filesystem::remove(mail_auth_db_path());
    MailAuthUser user;
    MailAuthPassword password;
    EXPECT_EQ(get_mail_auth_user("example.com", "info", user), -1);
    EXPECT_EQ(get_mail_auth_user_password("info", "example.com", password), -1);
    EXPECT_EQ(list_mail_auth_users("", [](const MailAuthListedUser&) {}), -1);
    EXPECT_EQ(move_mail_auth_user("example.com", "info", "alias.test", "info"), -1);
    EXPECT_EQ(find_mail_auth_user("example.com", "info", user), -1);
    EXPECT_THAT(logged(), ElementsAre(open_failure(), open_failure(), open_failure(), open_failure(),
                                      "3 Unable to get users list from MTA password database", open_failure()));
    EXPECT_FALSE(path_exists(mail_auth_db_path()));
}

TEST_F(MailAuthFailureTest, WritesToADatabaseWithoutTablesFailAtTheDomainLookup) {
    std::filesystem::remove(mail_auth_db_path());
    const std::string prepare_failure =
        "3 Unable to prepare SQL statement for query 'SELECT id FROM domains WHERE name=LOWER(?)': no such table: "
        "domains";
    EXPECT_EQ(add_mail_auth_user("info", "example.com", "x", 0), -1);
    EXPECT_EQ(remove_mail_auth_user("info", "example.com"), -1);
    EXPECT_EQ(rename_mail_auth_user("example.com", "info", "contact"), -1);
    EXPECT_THAT(logged(), ElementsAre(prepare_failure, "3 Unable to get mail domain id for: example.com",
                                      prepare_failure, "3 Unable to get domain id: example.com", prepare_failure,
                                      "3 Unable to get domain id: example.com"));
}

TEST_F(MailAuthFailureTest, DomainSelectionThatFailsAtStep) {
    store_made_of("CREATE VIEW domains AS SELECT abs(-9223372036854775807 - 1) AS id, 'example.com' AS name, "
                  "0 AS status;");
    MailAuthUser user;
    EXPECT_EQ(add_mail_auth_user("info", "example.com", "x", 0), -1);
    EXPECT_EQ(get_mail_auth_user("example.com", "info", user), -1);
    EXPECT_THAT(logged(), ElementsAre("3 Unable to execute the domain selection query: integer overflow",
                                      "3 Unable to get mail domain id for: example.com",
                                      "3 Unable to execute the domain selection query: integer overflow"));
}

TEST_F(MailAuthFailureTest, UserSelectionThatFailsAtStep) {
    store_made_of("CREATE TABLE domains (id INTEGER PRIMARY KEY, name, status);"
                  "INSERT INTO domains VALUES(1, 'example.com', 0);"
                  "CREATE VIEW users AS SELECT 1 AS id, 1 AS dom_id, 'info' AS name, 'p' AS userPassword, "
                  "NULL AS cmusaslsecretPLAIN, abs(-9223372036854775807 - 1) AS status;");
    MailAuthUser user;
    MailAuthPassword password;
    EXPECT_EQ(get_mail_auth_user("example.com", "info", user), -1);
    EXPECT_EQ(list_mail_auth_users("", [](const MailAuthListedUser&) {}), -1);
    EXPECT_EQ(get_mail_auth_user_password("info", "example.com", password), -1);
    // A store that fails is no missing row: the copy fails as before.
    EXPECT_EQ(move_mail_auth_user("example.com", "info", "alias.test", "info"), -1);
    EXPECT_THAT(logged(), ElementsAre("3 Unable to execute the user selection query: integer overflow",
                                      "3 Unable to execute the user selection query: integer overflow",
                                      "3 Unable to get passwd for mailname: info@example.com: integer overflow",
                                      "3 Unable to execute the user selection query: integer overflow",
                                      "3 Unable to get users list from MTA password database"));
}

TEST_F(MailAuthFailureTest, FailuresLeaveNoHandleBehind) {
    const std::string db = mail_auth_db_path();
    std::filesystem::remove(db);
    MailAuthUser user;
    EXPECT_EQ(get_mail_auth_user("example.com", "info", user), -1);
    EXPECT_EQ(add_mail_auth_user("info", "example.com", "x", 0), -1);
    EXPECT_EQ(set_mail_auth_domain_status("example.com", 1), -1);
    EXPECT_EQ(descriptors_open_on(db), 0);
    ASSERT_EQ(init_mail_auth_store(kMailServerQmail), 0);
    EXPECT_EQ(set_mail_auth_password("info", "example.com", "x", 0), 0);
    EXPECT_EQ(descriptors_open_on(db), 0);
    EXPECT_EQ(descriptors_open_on(mail_auth_key_path()), 0);
}

}  // namespace
}  // namespace sorvane::test
