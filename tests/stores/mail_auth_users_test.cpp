// The user rows of the mail authentication store.
#include "mail_auth_test_support.h"
#include "stores/mail_passwd_cipher.h"
#include "stores/sqlite_retry.h"

#include <gmock/gmock.h>

#include <unistd.h>

namespace sorvane::test {
namespace {

using ::testing::ElementsAre;
using ::testing::StartsWith;

// The plain text of a stored enciphered password, with the store's key.
std::string deciphered(const std::string& stored) {
    EXPECT_TRUE(mail_passwd_cipher_init(mail_auth_key_path()));
    const auto plain = mail_passwd_decrypt(stored);
    mail_passwd_cipher_release();
    return plain.value_or("<undecipherable>");
}

std::string stored_password(const std::string& name) {
    std::string value = sqlite_cli(mail_auth_db_path(), "SELECT userPassword FROM users WHERE name='" + name + "';");
    if (!value.empty() && value.back() == '\n')
        value.pop_back();
    return value;
}

class MailAuthUsersTest : public MailAuthStoreTest {};

TEST_F(MailAuthUsersTest, NamesAreStoredLowerCaseAndFoundInAnyCase) {
    ASSERT_EQ(set_mail_auth_password("Info", "Example.COM", "secret", 0), 0);
    EXPECT_EQ(users(), "info|1|0\n");
    EXPECT_EQ(domains(), "1|example.com|0\n");

    MailAuthUser user;
    ASSERT_EQ(get_mail_auth_user("example.com", "INFO", user), 0);
    EXPECT_EQ(user.name, "info");
    EXPECT_EQ(user.flags, 0);
    EXPECT_EQ(deciphered(user.password), "secret");

    MailAuthPassword password;
    ASSERT_EQ(get_mail_auth_user_password("INFO", "EXAMPLE.com", password), 0);
    EXPECT_EQ(password.password, "secret");
    EXPECT_FALSE(password.user_disabled);
    EXPECT_FALSE(password.domain_disabled);
    EXPECT_TRUE(logged().empty());
}

TEST_F(MailAuthUsersTest, PasswordIsStoredEncipheredWithAFreshIvEachTime) {
    ASSERT_EQ(set_mail_auth_password("info", "example.com", "secret", 0), 0);
    ASSERT_EQ(set_mail_auth_password("sales", "example.com", "secret", 0), 0);
    const std::string first = stored_password("info");
    const std::string second = stored_password("sales");
    EXPECT_THAT(first, StartsWith("$AES-256-CBC:PKCS$"));
    EXPECT_NE(first, second);
    EXPECT_EQ(deciphered(second), "secret");
    EXPECT_EQ(rows("SELECT count(*) FROM users WHERE cmusaslsecretPLAIN IS NULL;"), "2\n");
}

TEST_F(MailAuthUsersTest, PasswordInStoredFormIsKeptAsGiven) {
    ASSERT_EQ(set_mail_auth_password("info", "example.com", "$1$abcdefgh$hash", kMailAuthPasswordInStoredForm), 0);
    EXPECT_EQ(rows("SELECT ifnull(userPassword, 'NULL'), cmusaslsecretPLAIN FROM users;"), "NULL|$1$abcdefgh$hash\n");

    MailAuthUser user;
    ASSERT_EQ(get_mail_auth_user("example.com", "info", user), 0);
    EXPECT_EQ(user.password, "$1$abcdefgh$hash");
    EXPECT_EQ(user.flags, kMailAuthPasswordInStoredForm);
}

TEST_F(MailAuthUsersTest, UnknownDomainGetsItsRowEnabledByDefault) {
    ASSERT_EQ(add_mail_auth_user("info", "new.test", "x", 0), 0);
    EXPECT_EQ(domains(), "1|new.test|0\n");
}

TEST_F(MailAuthUsersTest, UnknownDomainGetsStatusOneWhenDomainDisabledFlagGiven) {
    ASSERT_EQ(add_mail_auth_user("info", "new.test", "x", kMailAuthDomainDisabled), 0);
    EXPECT_EQ(domains(), "1|new.test|1\n");
    EXPECT_EQ(users(), "info|1|0\n");
}

TEST_F(MailAuthUsersTest, DomainDisabledFlagLeavesAnExistingDomainAlone) {
    ASSERT_EQ(add_mail_auth_user("info", "example.com", "x", 0), 0);
    ASSERT_EQ(add_mail_auth_user("sales", "example.com", "x", kMailAuthDomainDisabled), 0);
    EXPECT_EQ(domains(), "1|example.com|0\n");
}

TEST_F(MailAuthUsersTest, UserDisabledFlagSetsUserStatus) {
    ASSERT_EQ(set_mail_auth_password("info", "example.com", "x", kMailAuthUserDisabled), 0);
    EXPECT_EQ(users(), "info|1|1\n");
    MailAuthUser user;
    ASSERT_EQ(get_mail_auth_user("example.com", "info", user), 0);
    EXPECT_EQ(user.flags, kMailAuthUserDisabled);
}

TEST_F(MailAuthUsersTest, AddingAgainReplacesTheRow) {
    ASSERT_EQ(set_mail_auth_password("info", "example.com", "first", 0), 0);
    ASSERT_EQ(set_mail_auth_password("INFO", "example.com", "second", kMailAuthUserDisabled), 0);
    EXPECT_EQ(rows("SELECT name, status FROM users;"), "info|1\n");
    EXPECT_EQ(deciphered(stored_password("info")), "second");
}

TEST_F(MailAuthUsersTest, EmptyPasswordRemovesTheUser) {
    ASSERT_EQ(set_mail_auth_password("info", "example.com", "secret", 0), 0);
    ASSERT_EQ(set_mail_auth_password("sales", "example.com", "secret", 0), 0);
    ASSERT_EQ(set_mail_auth_password("INFO", "example.com", "", 0), 0);
    EXPECT_EQ(users(), "sales|1|0\n");
}

TEST_F(MailAuthUsersTest, DomainIdIsFoundOrMade) {
    ASSERT_EQ(add_mail_auth_user("info", "one.test", "x", 0), 0);
    crelm::SqliteDb db;
    ASSERT_EQ(sqlite_open_db(mail_auth_db_path(), SqliteOpenMode::ReadWrite, db), SQLITE_OK);
    EXPECT_EQ(get_mail_domain_id("ONE.test", db.get(), kMailAuthDomainDisabled), 1);
    EXPECT_EQ(get_mail_domain_id("two.test", db.get(), kMailAuthDomainDisabled), 2);
    EXPECT_EQ(get_mail_domain_id("Three.test", db.get(), 0), 3);
    db.close();
    EXPECT_EQ(domains(), "1|one.test|0\n2|two.test|1\n3|three.test|0\n");
}

TEST_F(MailAuthUsersTest, MissingKeyFileStoresNothing) {
    ASSERT_EQ(unlink(mail_auth_key_path().c_str()), 0);
    EXPECT_EQ(set_mail_auth_password("info", "example.com", "secret", 0), -1);
    EXPECT_EQ(users(), "");
    const auto lines = logged();
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines.back(), "3 Failed to initialize password cipher context (for mail address 'info@example.com')");
}

TEST_F(MailAuthUsersTest, CipherMessageLeavesOutTheAtSignWithoutDomain) {
    ASSERT_EQ(unlink(mail_auth_key_path().c_str()), 0);
    EXPECT_EQ(set_mail_auth_password("info", "", "secret", 0), -1);
    EXPECT_EQ(logged().back(), "3 Failed to initialize password cipher context (for mail address 'info')");
}

TEST_F(MailAuthUsersTest, RemoveDeletesOnlyThatUser) {
    ASSERT_EQ(add_mail_auth_user("info", "example.com", "x", 0), 0);
    ASSERT_EQ(add_mail_auth_user("info", "other.test", "x", 0), 0);
    ASSERT_EQ(remove_mail_auth_user("Info", "Example.com"), 0);
    EXPECT_EQ(users(), "info|2|0\n");
}

TEST_F(MailAuthUsersTest, UserChangesInAnUnknownDomainRegisterTheDomain) {
    ASSERT_EQ(remove_mail_auth_user("info", "gone.test"), 0);
    ASSERT_EQ(rename_mail_auth_user("Other.test", "info", "contact"), 0);
    EXPECT_EQ(domains(), "1|gone.test|0\n2|other.test|0\n");
    EXPECT_EQ(users(), "");
}

TEST_F(MailAuthUsersTest, RenameChangesTheNameWithinTheDomain) {
    ASSERT_EQ(add_mail_auth_user("info", "example.com", "x", 0), 0);
    ASSERT_EQ(add_mail_auth_user("info", "other.test", "x", 0), 0);
    ASSERT_EQ(rename_mail_auth_user("example.com", "INFO", "Contact"), 0);
    EXPECT_EQ(users(), "contact|1|0\ninfo|2|0\n");
}

TEST_F(MailAuthUsersTest, RenameOntoAnExistingNameFailsAndChangesNothing) {
    ASSERT_EQ(add_mail_auth_user("info", "example.com", "x", 0), 0);
    ASSERT_EQ(add_mail_auth_user("sales", "example.com", "y", 0), 0);
    const std::string before = rows("SELECT * FROM users ORDER BY id;");
    EXPECT_EQ(rename_mail_auth_user("example.com", "info", "Sales"), -1);
    EXPECT_EQ(rows("SELECT * FROM users ORDER BY id;"), before);
    EXPECT_THAT(logged(), ElementsAre("3 Unable to execute the mail authorization renaming query: info@example.com: "
                                      "UNIQUE constraint failed: users.name, users.dom_id"));
}

TEST_F(MailAuthUsersTest, MoveCopiesStoredValuesAndFlagsAndKeepsTheOldRow) {
    ASSERT_EQ(set_mail_auth_password("info", "example.com", "secret", kMailAuthUserDisabled), 0);
    ASSERT_EQ(move_mail_auth_user("example.com", "info", "Alias.test", "Contact"), 0);
    EXPECT_EQ(users(), "info|1|1\ncontact|2|1\n");
    EXPECT_EQ(stored_password("contact"), stored_password("info"));
    MailAuthPassword password;
    ASSERT_EQ(get_mail_auth_user_password("contact", "alias.test", password), 0);
    EXPECT_EQ(password.password, "secret");
    EXPECT_TRUE(password.user_disabled);
}

TEST_F(MailAuthUsersTest, MoveKeepsAPasswordInStoredForm) {
    ASSERT_EQ(add_mail_auth_user("info", "example.com", "$1$salt$hash", kMailAuthPasswordInStoredForm), 0);
    ASSERT_EQ(move_mail_auth_user("example.com", "info", "alias.test", "info"), 0);
    EXPECT_EQ(rows("SELECT ifnull(userPassword, 'NULL'), cmusaslsecretPLAIN FROM users WHERE dom_id=2;"),
              "NULL|$1$salt$hash\n");
}

TEST_F(MailAuthUsersTest, MoveFromADisabledDomainMakesTheNewDomainDisabled) {
    ASSERT_EQ(add_mail_auth_user("info", "example.com", "x", kMailAuthDomainDisabled), 0);
    ASSERT_EQ(move_mail_auth_user("example.com", "info", "alias.test", "info"), 0);
    EXPECT_EQ(domains(), "1|example.com|1\n2|alias.test|1\n");
}

// A mail name without a mailbox has no row: copying it is nothing to do.
TEST_F(MailAuthUsersTest, MoveOfAUserWithoutARowCopiesNothingAndSucceeds) {
    ASSERT_EQ(add_mail_auth_user("info", "example.com", "x", 0), 0);
    EXPECT_EQ(move_mail_auth_user("example.com", "ghost", "alias.test", "ghost"), 0);
    EXPECT_TRUE(logged().empty());
    EXPECT_EQ(domains(), "1|example.com|0\n");
    EXPECT_EQ(users(), "info|1|0\n");
}

TEST_F(MailAuthUsersTest, MoveFromADomainWithoutARowCopiesNothingAndSucceeds) {
    ASSERT_EQ(add_mail_auth_user("info", "example.com", "x", 0), 0);
    EXPECT_EQ(move_mail_auth_user("nowhere.test", "info", "alias.test", "info"), 0);
    EXPECT_TRUE(logged().empty());
    EXPECT_EQ(domains(), "1|example.com|0\n");
    EXPECT_EQ(users(), "info|1|0\n");
}

TEST_F(MailAuthUsersTest, FindTellsAMissingRowFromAFoundOneWithoutLogging) {
    ASSERT_EQ(add_mail_auth_user("info", "example.com", "x", kMailAuthUserDisabled), 0);
    MailAuthUser user;
    EXPECT_EQ(find_mail_auth_user("example.com", "ghost", user), 0);
    EXPECT_EQ(find_mail_auth_user("nowhere.test", "info", user), 0);
    EXPECT_EQ(user.name, "");
    ASSERT_EQ(find_mail_auth_user("example.com", "INFO", user), 1);
    EXPECT_EQ(user.name, "info");
    EXPECT_EQ(user.password, "x");
    EXPECT_EQ(user.flags, kMailAuthUserDisabled);
    EXPECT_TRUE(logged().empty());
}

TEST_F(MailAuthUsersTest, LookupOfAnUnknownUserFails) {
    ASSERT_EQ(add_mail_auth_user("info", "example.com", "x", 0), 0);
    MailAuthUser user;
    EXPECT_EQ(get_mail_auth_user("example.com", "ghost", user), -1);
    EXPECT_THAT(logged(), ElementsAre("3 No such user 'ghost@example.com' in mail authorization database"));
}

TEST_F(MailAuthUsersTest, LookupInAnUnknownDomainFails) {
    MailAuthUser user;
    EXPECT_EQ(get_mail_auth_user("nowhere.test", "info", user), -1);
    EXPECT_THAT(logged(), ElementsAre("3 No such domain 'nowhere.test' in the mail authentication DB"));
}

TEST_F(MailAuthUsersTest, LookupOfAUserWithoutPasswordFails) {
    ASSERT_EQ(add_mail_auth_user("info", "example.com", "x", 0), 0);
    rows("UPDATE users SET userPassword=NULL;");
    MailAuthUser user;
    EXPECT_EQ(get_mail_auth_user("example.com", "info", user), -1);
    MailAuthPassword password;
    EXPECT_EQ(get_mail_auth_user_password("info", "example.com", password), -1);
    EXPECT_THAT(logged(),
                ElementsAre("3 NULL password fields (both plain and encrypted) for user info@example.com, skipped",
                            "3 NULL password fields (both plain and encrypted) for user info@example.com, skipped"));
}

TEST_F(MailAuthUsersTest, PasswordOfAnUnknownUserFails) {
    MailAuthPassword password;
    EXPECT_EQ(get_mail_auth_user_password("ghost", "example.com", password), -1);
    EXPECT_THAT(logged(), ElementsAre("3 No such user 'ghost@example.com' in mail authorization database"));
}

TEST_F(MailAuthUsersTest, PasswordLookupGivesStoredFormAndDisabledFlags) {
    ASSERT_EQ(add_mail_auth_user("info", "example.com", "$1$salt$hash",
                                 kMailAuthPasswordInStoredForm | kMailAuthDomainDisabled),
              0);
    MailAuthPassword password;
    ASSERT_EQ(get_mail_auth_user_password("info", "example.com", password), 0);
    EXPECT_EQ(password.password, "$1$salt$hash");
    EXPECT_FALSE(password.user_disabled);
    EXPECT_TRUE(password.domain_disabled);
}

TEST_F(MailAuthUsersTest, PasswordThatDoesNotDecipherFails) {
    ASSERT_EQ(add_mail_auth_user("info", "example.com", "$AES-256-CBC:PKCS$not base64$not base64", 0), 0);
    MailAuthPassword password;
    EXPECT_EQ(get_mail_auth_user_password("info", "example.com", password), -1);
    EXPECT_EQ(logged().back(), "3 Failed to decrypt password for mail address 'info@example.com'");
}

TEST_F(MailAuthUsersTest, SplitMailAddress) {
    std::string name;
    std::string domain;
    ASSERT_EQ(split_mail_address("info@example.com", name, domain), 0);
    EXPECT_EQ(name, "info");
    EXPECT_EQ(domain, "example.com");
    EXPECT_EQ(split_mail_address("nobody", name, domain), -1);
    EXPECT_THAT(logged(), ElementsAre("3 Invalid mail address 'nobody'"));
}

}  // namespace
}  // namespace sorvane::test
