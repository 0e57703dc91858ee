// Setting up the mail authentication store: schema, key file, owners, modes.
#include "mail_auth_test_support.h"

#include <gmock/gmock.h>

#include <sys/mount.h>

#include <filesystem>
#include <sstream>

namespace sorvane::test {
namespace {

using ::testing::ElementsAre;

// What sqlite_master holds after the schema batch ran: every statement's
// text as written, irregular blanks and trigger messages included.
const std::string kAuthSchemaInMaster =
    "table|domains|CREATE TABLE domains (  id     INTEGER PRIMARY KEY AUTOINCREMENT, name   VARCHAR(255) UNIQUE, "
    "status INTEGER NOT NULL DEFAULT 0)\n"
    "table|sqlite_sequence|CREATE TABLE sqlite_sequence(name,seq)\n"
    "index|domains_name|CREATE INDEX domains_name ON domains(name)\n"
    "trigger|fkd_users_domains_id|CREATE TRIGGER fkd_users_domains_id  BEFORE DELETE ON domains  FOR EACH ROW "
    "BEGIN    DELETE FROM users WHERE dom_id = OLD.id;  END\n"
    "table|users|CREATE TABLE users(  id           INTEGER PRIMARY KEY AUTOINCREMENT, dom_id       INTEGER NOT "
    "NULL, name         VARCHAR(255) NOT NULL, userPassword VARCHAR(255), cmusaslsecretPLAIN VARCHAR(255), status "
    "INT NOT NULL DEFAULT 0, UNIQUE(name, dom_id))\n"
    "index|users_name|CREATE INDEX users_name ON users(name)\n"
    "index|users_dom_id|CREATE INDEX users_dom_id ON users(dom_id)\n"
    "trigger|fki_users_domains_id|CREATE TRIGGER fki_users_domains_id  BEFORE INSERT ON users  FOR EACH ROW BEGIN "
    "   SELECT RAISE(ROLLBACK, 'insert on table \"users\" violates foreign key constraint \"fk_domains_id\"')    "
    "WHERE (SELECT id FROM domains WHERE id = NEW.dom_id) IS NULL;  END\n"
    "trigger|fku_users_domains_id|CREATE TRIGGER fku_users_domains_id  BEFORE UPDATE ON users  FOR EACH ROW BEGIN "
    "   SELECT RAISE(ROLLBACK, 'update on table \"users\" violates foreign key constraint \"fk_domains_id\"')    "
    "WHERE (SELECT id FROM domains WHERE id = NEW.dom_id) IS NULL;  END\n";

const std::string kMasterQuery = "SELECT type, name, sql FROM sqlite_master WHERE sql IS NOT NULL ORDER BY rowid;";

const std::string kPostfixDirectory = "/var/spool/postfix/crelm";

void expect_owner_and_mode(const std::string& path, uid_t uid, gid_t gid, mode_t mode) {
    const FileInfo info = file_info(path);
    EXPECT_EQ(info.uid, uid) << path;
    EXPECT_EQ(info.gid, gid) << path;
    EXPECT_EQ(info.mode, mode) << path;
}

void drop_line_from(const std::string& path, const std::string& prefix) {
    std::string kept;
    std::istringstream lines(read_file(path));
    for (std::string line; std::getline(lines, line);)
        if (line.rfind(prefix, 0) != 0)
            kept += line + "\n";
    write_file(path, kept);
}

class MailAuthInitTest : public LoggedStoreTest {
protected:
    // The postfix layout lies outside the sandbox trees: each test gets a
    // private, empty /var/spool so that tests running side by side never
    // share it.
    void SetUp() override {
        LoggedStoreTest::SetUp();
        ASSERT_EQ(mount("tmpfs", "/var/spool", "tmpfs", 0, "mode=0755"), 0);
    }
    void TearDown() override {
        set_mail_auth_paths(kMailServerQmail);
        umount2("/var/spool", MNT_DETACH);
        LoggedStoreTest::TearDown();
    }
};

TEST_F(MailAuthInitTest, CreatesTheSchemaExactly) {
    ASSERT_EQ(init_mail_auth_store(kMailServerQmail), 0);
    EXPECT_EQ(sqlite_cli("/var/lib/crelm/mail/auth/passwd.db", kMasterQuery), kAuthSchemaInMaster);
    EXPECT_TRUE(logged().empty());
}

TEST_F(MailAuthInitTest, QmailLayoutBelongsToGroupNofiles) {
    ASSERT_EQ(init_mail_auth_store(kMailServerQmail), 0);
    expect_owner_and_mode("/var/lib/crelm/mail/auth", 0, nofiles_gid(), 0750);
    expect_owner_and_mode("/var/lib/crelm/mail/auth/passwd.db", 0, nofiles_gid(), 0640);
    expect_owner_and_mode("/var/lib/crelm/mail/auth/passwd_db_key", 0, nofiles_gid(), 0440);
    EXPECT_EQ(read_file("/var/lib/crelm/mail/auth/passwd_db_key").size(), 32u);
}

TEST_F(MailAuthInitTest, MakesAMissingDirectory) {
    std::filesystem::remove_all("/var/lib/crelm/mail");
    ASSERT_EQ(init_mail_auth_store(kMailServerQmail), 0);
    expect_owner_and_mode("/var/lib/crelm/mail/auth", 0, nofiles_gid(), 0750);
    EXPECT_EQ(sqlite_cli("/var/lib/crelm/mail/auth/passwd.db", kMasterQuery), kAuthSchemaInMaster);
}

TEST_F(MailAuthInitTest, ReplacesAnExistingStoreAndKey) {
    ASSERT_EQ(init_mail_auth_store(kMailServerQmail), 0);
    const std::string old_key = read_file(mail_auth_key_path());
    ASSERT_EQ(add_mail_auth_user("info", "example.com", "x", 0), 0);
    ASSERT_EQ(init_mail_auth_store(kMailServerQmail), 0);
    EXPECT_EQ(sqlite_cli(mail_auth_db_path(), "SELECT count(*) FROM users; SELECT count(*) FROM domains;"), "0\n0\n");
    EXPECT_NE(read_file(mail_auth_key_path()), old_key);
}

TEST_F(MailAuthInitTest, OtherServerTypeKeepsPathsAndUsesRoot) {
    ASSERT_EQ(init_mail_auth_store(7), 0);
    EXPECT_EQ(mail_auth_db_path(), "/var/lib/crelm/mail/auth/passwd.db");
    expect_owner_and_mode("/var/lib/crelm/mail/auth", 0, 0, 0750);
    expect_owner_and_mode("/var/lib/crelm/mail/auth/passwd.db", 0, 0, 0600);
    expect_owner_and_mode("/var/lib/crelm/mail/auth/passwd_db_key", 0, 0, 0400);
}

TEST_F(MailAuthInitTest, PostfixLayoutBelongsToUserPostfix) {
    write_file("/etc/passwd", read_file("/etc/passwd") + "postfix:x:2200:2201::/var/spool/postfix:/bin/false\n");
    ASSERT_EQ(init_mail_auth_store(kMailServerPostfix), 0);
    EXPECT_EQ(mail_auth_db_path(), kPostfixDirectory + "/passwd.db");
    EXPECT_EQ(mail_auth_key_path(), kPostfixDirectory + "/passwd_db_key");
    expect_owner_and_mode(kPostfixDirectory, 2200, 2201, 0770);
    expect_owner_and_mode(kPostfixDirectory + "/passwd.db", 2200, 0, 0460);
    expect_owner_and_mode(kPostfixDirectory + "/passwd_db_key", 2200, 0, 0440);
    EXPECT_EQ(sqlite_cli(kPostfixDirectory + "/passwd.db", kMasterQuery), kAuthSchemaInMaster);
}

TEST_F(MailAuthInitTest, PostfixLayoutWithoutUserPostfixTouchesNothing) {
    EXPECT_EQ(init_mail_auth_store(kMailServerPostfix), -1);
    EXPECT_THAT(logged(), ElementsAre("2 Unable to get user id for \"postfix\": not found"));
    EXPECT_FALSE(path_exists(kPostfixDirectory));
}

TEST_F(MailAuthInitTest, QmailLayoutWithoutGroupNofilesKeepsTheOldStore) {
    ASSERT_EQ(init_mail_auth_store(kMailServerQmail), 0);
    ASSERT_EQ(add_mail_auth_user("info", "example.com", "x", 0), 0);
    drop_line_from("/etc/group", "nofiles:");
    EXPECT_EQ(init_mail_auth_store(kMailServerQmail), -1);
    EXPECT_THAT(logged(), ElementsAre("2 Unable to get group id for \"nofiles\": not found"));
    EXPECT_EQ(sqlite_cli(mail_auth_db_path(), "SELECT name FROM users;"), "info\n");
}

TEST_F(MailAuthInitTest, DirectoryThatCannotBeMadeFails) {
    std::filesystem::remove_all("/var/lib/crelm/mail");
    write_file("/var/lib/crelm/mail", "not a directory\n");
    EXPECT_EQ(init_mail_auth_store(kMailServerQmail), -1);
    EXPECT_THAT(logged(), ElementsAre("2 recursive mkdir(/var/lib/crelm/mail/auth) failed: Not a directory"));
}

TEST_F(MailAuthInitTest, SchemaFailureLeavesNoDatabase) {
    // Two pages of space: too small for the schema.
    ASSERT_EQ(mount("tmpfs", "/var/lib/crelm/mail/auth", "tmpfs", 0, "size=8k"), 0);
    EXPECT_EQ(init_mail_auth_store(kMailServerQmail), -1);
    EXPECT_THAT(logged(), ElementsAre("3 Unable to re-create Mail Authentication Database: database or disk is full"));
    EXPECT_EQ(list_tree("/var/lib/crelm/mail/auth"), std::vector<std::string>{});
    umount2("/var/lib/crelm/mail/auth", MNT_DETACH);
}

TEST_F(MailAuthInitTest, DirectoryInPlaceOfTheDatabaseFails) {
    std::filesystem::create_directories("/var/lib/crelm/mail/auth/passwd.db/inside");
    EXPECT_EQ(init_mail_auth_store(kMailServerQmail), -1);
    EXPECT_THAT(logged(),
                ElementsAre("3 Unable to re-create Mail Authentication Database: Is a directory"));
}

TEST_F(MailAuthInitTest, DeleteTriggerTakesTheUsersAlong) {
    ASSERT_EQ(init_mail_auth_store(kMailServerQmail), 0);
    sqlite_cli(mail_auth_db_path(),
               "INSERT INTO domains(name) VALUES('a.test'),('b.test');"
               "INSERT INTO users(dom_id, name) VALUES(1,'x'),(1,'y'),(2,'z');"
               "DELETE FROM domains WHERE id=1;");
    EXPECT_EQ(sqlite_cli(mail_auth_db_path(), "SELECT name FROM users;"), "z\n");
}

TEST_F(MailAuthInitTest, InsertAndUpdateTriggersRefuseAMissingDomain) {
    ASSERT_EQ(init_mail_auth_store(kMailServerQmail), 0);
    const std::string db = mail_auth_db_path();
    const ProcessResult insert = run_process({"/usr/bin/sqlite3", "-batch", db, "INSERT INTO users(dom_id, name) VALUES(9,'x');"});
    EXPECT_NE(insert.status, 0);
    EXPECT_THAT(insert.err, ::testing::HasSubstr(
                                "insert on table \"users\" violates foreign key constraint \"fk_domains_id\""));
    sqlite_cli(db, "INSERT INTO domains(name) VALUES('a.test'); INSERT INTO users(dom_id, name) VALUES(1,'x');");
    const ProcessResult update = run_process({"/usr/bin/sqlite3", "-batch", db, "UPDATE users SET dom_id=9;"});
    EXPECT_NE(update.status, 0);
    EXPECT_THAT(update.err, ::testing::HasSubstr(
                                "update on table \"users\" violates foreign key constraint \"fk_domains_id\""));
    EXPECT_EQ(sqlite_cli(db, "SELECT dom_id, name FROM users;"), "1|x\n");
}

}  // namespace
}  // namespace sorvane::test
