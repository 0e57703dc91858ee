// The mailbox quota store: what each operation leaves in the database (seen
// through the sqlite3 program), its result and its log.
#include "stores/mailbox_quota_db.h"

#include <sys/mount.h>

#include <cerrno>
#include <cstring>

#include "stores/store_test_support.h"

namespace sorvane::test {
namespace {

using crelm::mail::KeepOwner;
using crelm::mail::MailboxQuota;
using crelm::mail::MailboxQuotaDb;

const std::string kDbPath = "/var/lib/crelm/mail/userdb/userdb.db";
const std::string kReplace = "REPLACE INTO mailbox_quota (domain_name, mailbox_name, quota) VALUES (?, ?, ?)";

class MailboxQuotaDbTest : public LoggedStoreTest {
protected:
    MailboxQuotaDb store;

    void create_store() { ASSERT_TRUE(store.recreate(KeepOwner::Yes)); }

    // Every row as "domain|mailbox|quota", ordered.
    std::string rows() {
        return sqlite_cli(kDbPath, "SELECT * FROM mailbox_quota ORDER BY domain_name, mailbox_name;");
    }

    void insert_row(const std::string& domain, const std::string& mailbox, const std::string& quota) {
        sqlite_cli(kDbPath, "INSERT INTO mailbox_quota VALUES ('" + domain + "', '" + mailbox + "', '" + quota + "');");
    }

    // Makes every statement of the given kind on the table fail to step.
    void refuse(const std::string& kind, const std::string& condition = "1") {
        sqlite_cli(kDbPath, "CREATE TRIGGER refuse BEFORE " + kind + " ON mailbox_quota WHEN " + condition +
                                " BEGIN SELECT RAISE(ABORT, 'refused by trigger'); END;");
    }

    // Nothing of the store is left open, and no journal is left behind.
    void expect_nothing_left_open() {
        EXPECT_EQ(descriptors_open_on(kDbPath), 0);
        EXPECT_FALSE(path_exists(kDbPath + "-journal"));
    }
};

TEST_F(MailboxQuotaDbTest, EmptyPathSelectsTheSystemDatabase) {
    EXPECT_EQ(MailboxQuotaDb().path(), "/var/lib/crelm/mail/userdb/userdb.db");
    EXPECT_EQ(MailboxQuotaDb("").path(), "/var/lib/crelm/mail/userdb/userdb.db");
    EXPECT_EQ(MailboxQuotaDb("/tmp/other.db").path(), "/tmp/other.db");
}

TEST_F(MailboxQuotaDbTest, QuotaIsStoredAsBytesWithBAndNegativeAsZero) {
    create_store();
    EXPECT_TRUE(store.setQuota("example.test", "minus", -5));
    EXPECT_TRUE(store.setQuota("example.test", "zero", 0));
    EXPECT_TRUE(store.setQuota("example.test", "mebi", 1048576));
    EXPECT_TRUE(store.setQuota("example.test", "max", INT64_MAX));
    EXPECT_EQ(rows(),
              "example.test|max|9223372036854775807B\n"
              "example.test|mebi|1048576B\n"
              "example.test|minus|0B\n"
              "example.test|zero|0B\n");
    EXPECT_EQ(logged(), std::vector<std::string>{});
    expect_nothing_left_open();
}

TEST_F(MailboxQuotaDbTest, SettingAQuotaAgainReplacesTheRow) {
    create_store();
    EXPECT_TRUE(store.setQuota("example.test", "info", 100));
    EXPECT_TRUE(store.setQuota("example.test", "info", 200));
    EXPECT_EQ(rows(), "example.test|info|200B\n");
}

TEST_F(MailboxQuotaDbTest, NamesAreStoredExactlyAsGiven) {
    create_store();
    EXPECT_TRUE(store.setQuota("Example.TEST", "Info", 1));
    EXPECT_TRUE(store.setQuota("example.test", "info", 2));
    EXPECT_EQ(rows(), "Example.TEST|Info|1B\nexample.test|info|2B\n");
    EXPECT_EQ(store.getQuota("Example.TEST", "Info"), 1);
    EXPECT_EQ(store.getQuota("EXAMPLE.TEST", "info"), -1);
}

TEST_F(MailboxQuotaDbTest, SetQuotasUsesTheDefaultForNegativeEntries) {
    create_store();
    insert_row("example.test", "b", "1B");
    const std::vector<MailboxQuota> entries{{"a", 5}, {"b", -1}, {"c", 0}};
    EXPECT_TRUE(store.setQuotas("example.test", entries, 7));
    EXPECT_EQ(rows(), "example.test|a|5B\nexample.test|b|7B\nexample.test|c|0B\n");
    EXPECT_TRUE(store.setQuotas("other.test", {{"x", -3}}, -1));
    EXPECT_EQ(sqlite_cli(kDbPath, "SELECT quota FROM mailbox_quota WHERE domain_name = 'other.test';"), "0B\n");
    EXPECT_EQ(logged(), std::vector<std::string>{});
}

TEST_F(MailboxQuotaDbTest, SetQuotasWithAnEmptyListSucceedsAndChangesNothing) {
    create_store();
    insert_row("example.test", "a", "1B");
    EXPECT_TRUE(store.setQuotas("example.test", {}, 5));
    EXPECT_EQ(rows(), "example.test|a|1B\n");
}

TEST_F(MailboxQuotaDbTest, GetQuotaMultipliesTheDigitsByTheUnit) {
    create_store();
    const std::vector<std::pair<std::string, std::int64_t>> cases{
        {"2MB", 2097152},       {"7", 7},   {"5XB", 0},  {"0B", 0}, {"3KB", 3072}, {"2GB", 2147483648},
        {"1TB", 1099511627776}, {"2mb", 0}, {"12B", 12},
    };
    for (const auto& [text, bytes] : cases) {
        insert_row("example.test", "m" + text, text);
        EXPECT_EQ(store.getQuota("example.test", "m" + text), bytes) << text;
    }
    EXPECT_EQ(logged(), std::vector<std::string>{});
    expect_nothing_left_open();
}

TEST_F(MailboxQuotaDbTest, GetQuotaOfTextWithoutDigitsLogsTheParseFailure) {
    create_store();
    insert_row("example.test", "info", "abc");
    EXPECT_EQ(store.getQuota("example.test", "info"), -1);
    EXPECT_EQ(logged(), std::vector<std::string>{"3 Failed to parse quota value: stoll"});
}

TEST_F(MailboxQuotaDbTest, GetQuotaOutOfRangeLogsTheParseFailure) {
    create_store();
    insert_row("example.test", "digits", "9223372036854775808B");
    insert_row("example.test", "product", "9223372036854775807KB");
    EXPECT_EQ(store.getQuota("example.test", "digits"), -1);
    EXPECT_EQ(store.getQuota("example.test", "product"), -1);
    EXPECT_EQ(logged(), (std::vector<std::string>{"3 Failed to parse quota value: stoll",
                                                  "3 Failed to parse quota value: Numerical result out of range"}));
}

TEST_F(MailboxQuotaDbTest, GetQuotaOfAMissingRowIsMinusOneWithoutMessage) {
    create_store();
    insert_row("example.test", "info", "1B");
    EXPECT_EQ(store.getQuota("example.test", "other"), -1);
    EXPECT_EQ(store.getQuota("other.test", "info"), -1);
    EXPECT_EQ(logged(), std::vector<std::string>{});
}

TEST_F(MailboxQuotaDbTest, GetQuotaOfANullValueIsMinusOneWithoutMessage) {
    sqlite_cli(kDbPath,
               "CREATE TABLE mailbox_quota (domain_name, mailbox_name, quota);"
               "INSERT INTO mailbox_quota VALUES ('example.test', 'info', NULL);");
    EXPECT_EQ(store.getQuota("example.test", "info"), -1);
    EXPECT_EQ(logged(), std::vector<std::string>{});
}

TEST_F(MailboxQuotaDbTest, RemoveMailboxDeletesOnlyThatRow) {
    create_store();
    insert_row("example.test", "a", "1B");
    insert_row("example.test", "b", "2B");
    insert_row("other.test", "a", "3B");
    EXPECT_TRUE(store.removeMailbox("example.test", "a"));
    EXPECT_EQ(rows(), "example.test|b|2B\nother.test|a|3B\n");
    EXPECT_TRUE(store.removeMailbox("example.test", "missing"));
    EXPECT_EQ(logged(), std::vector<std::string>{});
}

TEST_F(MailboxQuotaDbTest, RemoveDomainDeletesEveryRowOfTheDomain) {
    create_store();
    insert_row("example.test", "a", "1B");
    insert_row("example.test", "b", "2B");
    insert_row("other.test", "a", "3B");
    EXPECT_TRUE(store.removeDomain("example.test"));
    EXPECT_EQ(rows(), "other.test|a|3B\n");
    EXPECT_TRUE(store.removeDomain("example.test")) << "a domain without rows";
    EXPECT_EQ(rows(), "other.test|a|3B\n");
    EXPECT_EQ(logged(), std::vector<std::string>{});
}

TEST_F(MailboxQuotaDbTest, RenameMailboxMovesOneRow) {
    create_store();
    insert_row("example.test", "old", "1B");
    insert_row("other.test", "old", "2B");
    EXPECT_TRUE(store.renameMailbox("example.test", "old", "new"));
    EXPECT_EQ(rows(), "example.test|new|1B\nother.test|old|2B\n");
}

TEST_F(MailboxQuotaDbTest, RenameDomainMovesEveryRowOfTheDomain) {
    create_store();
    insert_row("example.test", "a", "1B");
    insert_row("example.test", "b", "2B");
    insert_row("other.test", "a", "3B");
    EXPECT_TRUE(store.renameDomain("example.test", "renamed.test"));
    EXPECT_EQ(rows(), "other.test|a|3B\nrenamed.test|a|1B\nrenamed.test|b|2B\n");
    EXPECT_TRUE(store.renameDomain("example.test", "again.test")) << "a domain without rows";
    EXPECT_EQ(rows(), "other.test|a|3B\nrenamed.test|a|1B\nrenamed.test|b|2B\n");
    EXPECT_EQ(logged(), std::vector<std::string>{});
}

// Without the table, the writes create an empty file and fail at the
// prepare, which the lenient result reports as success.
TEST_F(MailboxQuotaDbTest, WritesToAMissingDatabaseCreateAnEmptyFileAndFailAtThePrepare) {
    const std::string prepare_failure = "3 Unable to prepare SQL statement for query '";
    const std::string no_table = "': no such table: mailbox_quota";
    EXPECT_TRUE(store.setQuota("example.test", "info", 1));
    EXPECT_EQ(read_file(kDbPath), "");
    EXPECT_TRUE(store.setQuotas("example.test", {{"a", 1}}, 0));
    EXPECT_TRUE(store.removeMailbox("example.test", "info"));
    EXPECT_TRUE(store.removeDomain("example.test"));
    EXPECT_TRUE(store.renameMailbox("example.test", "info", "new"));
    EXPECT_TRUE(store.renameDomain("example.test", "new.test"));
    EXPECT_EQ(read_file(kDbPath), "");
    EXPECT_EQ(logged(),
              (std::vector<std::string>{
                  prepare_failure + kReplace + no_table,
                  prepare_failure + kReplace + no_table,
                  prepare_failure + "DELETE FROM mailbox_quota WHERE domain_name = ? AND mailbox_name = ?" + no_table,
                  prepare_failure + "DELETE FROM mailbox_quota WHERE domain_name = ?" + no_table,
                  prepare_failure +
                      "UPDATE mailbox_quota SET mailbox_name = ? WHERE domain_name = ? AND mailbox_name = ?" + no_table,
                  prepare_failure + "UPDATE mailbox_quota SET domain_name = ? WHERE domain_name = ?" + no_table,
              }));
    expect_nothing_left_open();
}

TEST_F(MailboxQuotaDbTest, SetQuotasWithAnEmptyListNeedsNoTable) {
    EXPECT_TRUE(store.setQuotas("example.test", {}, 5));
    EXPECT_EQ(read_file(kDbPath), "");
    EXPECT_EQ(logged(), std::vector<std::string>{});
    expect_nothing_left_open();
}

TEST_F(MailboxQuotaDbTest, GetQuotaOfAMissingDatabaseFailsToOpenItReadOnly) {
    EXPECT_EQ(store.getQuota("example.test", "info"), -1);
    EXPECT_FALSE(path_exists(kDbPath));
    EXPECT_EQ(logged(), std::vector<std::string>{"3 Unable to open database(readonly) " + kDbPath +
                                                 ": unable to open database file"});
    expect_nothing_left_open();
}

TEST_F(MailboxQuotaDbTest, WriteThatCannotOpenTheDatabaseIsLoggedAndLenient) {
    MailboxQuotaDb elsewhere("/var/lib/crelm/mail/missing/userdb.db");
    EXPECT_TRUE(elsewhere.setQuota("example.test", "info", 1));
    EXPECT_TRUE(elsewhere.removeDomain("example.test"));
    EXPECT_EQ(logged(),
              (std::vector<std::string>{
                  "3 Unable to open database /var/lib/crelm/mail/missing/userdb.db: unable to open database file",
                  "3 Unable to open database /var/lib/crelm/mail/missing/userdb.db: unable to open database file",
              }));
    EXPECT_EQ(descriptors_open_on("/var/lib/crelm/mail/missing/userdb.db"), 0);
}

TEST_F(MailboxQuotaDbTest, FailedSetQuotaStepIsFalseAndChangesNothing) {
    create_store();
    insert_row("example.test", "info", "1B");
    refuse("INSERT");
    EXPECT_FALSE(store.setQuota("example.test", "info", 5));
    EXPECT_EQ(rows(), "example.test|info|1B\n");
    EXPECT_EQ(logged(), std::vector<std::string>{"3 Unable to set quota for 'info@example.test': refused by trigger"});
    expect_nothing_left_open();
}

TEST_F(MailboxQuotaDbTest, FailedSetQuotasEntryAbandonsTheWholeCall) {
    create_store();
    refuse("INSERT", "NEW.mailbox_name = 'bad'");
    EXPECT_FALSE(store.setQuotas("example.test", {{"good", 1}, {"bad", 2}, {"later", 3}}, 0));
    EXPECT_EQ(rows(), "");
    EXPECT_EQ(logged(), std::vector<std::string>{"3 Unable to set quota for 'bad@example.test': refused by trigger"});
    expect_nothing_left_open();
}

TEST_F(MailboxQuotaDbTest, FailedRemoveStepsAreFalseWithTheirMessages) {
    create_store();
    insert_row("example.test", "info", "1B");
    refuse("DELETE");
    EXPECT_FALSE(store.removeMailbox("example.test", "info"));
    EXPECT_FALSE(store.removeDomain("example.test"));
    EXPECT_EQ(rows(), "example.test|info|1B\n");
    EXPECT_EQ(logged(), (std::vector<std::string>{
                            "3 Unable to remove quota for 'info@example.test': refused by trigger",
                            "3 Unable to remove quota for 'example.test': refused by trigger",
                        }));
    expect_nothing_left_open();
}

TEST_F(MailboxQuotaDbTest, FailedRenameStepsAreFalseWithTheirMessages) {
    create_store();
    insert_row("example.test", "info", "1B");
    refuse("UPDATE");
    EXPECT_FALSE(store.renameMailbox("example.test", "info", "new"));
    EXPECT_FALSE(store.renameDomain("example.test", "renamed.test"));
    EXPECT_EQ(rows(), "example.test|info|1B\n");
    EXPECT_EQ(logged(), (std::vector<std::string>{
                            "3 Unable to rename mailbox 'info@example.test' to 'new@example.test': refused by trigger",
                            "3 Unable to rename domain 'example.test' to 'renamed.test': refused by trigger",
                        }));
    expect_nothing_left_open();
}

TEST_F(MailboxQuotaDbTest, RenameOntoAnExistingMailboxFailsOnThePrimaryKey) {
    create_store();
    insert_row("example.test", "a", "1B");
    insert_row("example.test", "b", "2B");
    EXPECT_FALSE(store.renameMailbox("example.test", "a", "b"));
    EXPECT_EQ(rows(), "example.test|a|1B\nexample.test|b|2B\n");
    EXPECT_EQ(logged(),
              std::vector<std::string>{
                  "3 Unable to rename mailbox 'a@example.test' to 'b@example.test': UNIQUE constraint failed: "
                  "mailbox_quota.domain_name, mailbox_quota.mailbox_name"});
}

// SQLite refuses text longer than its length limit (10^9 bytes) at the bind.
class MailboxQuotaDbBindTest : public MailboxQuotaDbTest {
protected:
    const std::string too_long = std::string(1000000001, 'x');
    const std::string too_big = "string or blob too big";
};

TEST_F(MailboxQuotaDbBindTest, BindFailuresNameTheParameterAndAreLenient) {
    create_store();
    insert_row("example.test", "info", "1B");
    EXPECT_TRUE(store.setQuota(too_long, "info", 1));
    EXPECT_TRUE(store.setQuota("example.test", too_long, 1));
    EXPECT_TRUE(store.removeDomain(too_long));
    EXPECT_EQ(rows(), "example.test|info|1B\n");
    EXPECT_EQ(logged(), (std::vector<std::string>{
                            "3 Unable to bind parameter domain_name: " + too_big,
                            "3 Unable to bind parameter mailbox_name: " + too_big,
                            "3 Unable to bind parameter domain_name: " + too_big,
                        }));
    expect_nothing_left_open();
}

TEST_F(MailboxQuotaDbBindTest, RenameBindFailuresCallTheOldValueOldName) {
    create_store();
    insert_row("example.test", "info", "1B");
    EXPECT_TRUE(store.renameMailbox("example.test", too_long, "new"));
    EXPECT_TRUE(store.renameMailbox("example.test", "info", too_long));
    EXPECT_TRUE(store.renameDomain(too_long, "new.test"));
    EXPECT_TRUE(store.renameDomain("example.test", too_long));
    EXPECT_EQ(rows(), "example.test|info|1B\n");
    EXPECT_EQ(logged(), (std::vector<std::string>{
                            "3 Unable to bind parameter old_mailbox_name: " + too_big,
                            "3 Unable to bind parameter mailbox_name: " + too_big,
                            "3 Unable to bind parameter old_domain_name: " + too_big,
                            "3 Unable to bind parameter domain_name: " + too_big,
                        }));
    expect_nothing_left_open();
}

TEST_F(MailboxQuotaDbBindTest, GetQuotaBindFailureIsMinusOne) {
    create_store();
    EXPECT_EQ(store.getQuota("example.test", too_long), -1);
    EXPECT_EQ(logged(), std::vector<std::string>{"3 Unable to bind parameter mailbox_name: " + too_big});
}

TEST_F(MailboxQuotaDbTest, RecreateCreatesTheSchemaAndGivesTheFileToPopuser) {
    write_file(kDbPath, "damaged beyond repair");
    EXPECT_TRUE(store.recreate(KeepOwner::No));
    EXPECT_EQ(sqlite_cli(kDbPath, "SELECT type, name, tbl_name, quote(sql) FROM sqlite_master ORDER BY name;"),
              "table|mailbox_quota|mailbox_quota|'CREATE TABLE mailbox_quota (domain_name TEXT NOT NULL,"
              "mailbox_name TEXT NOT NULL,quota TEXT NOT NULL,PRIMARY KEY (domain_name, mailbox_name))'\n"
              "index|sqlite_autoindex_mailbox_quota_1|mailbox_quota|NULL\n");
    EXPECT_EQ(rows(), "");
    const FileInfo info = file_info(kDbPath);
    EXPECT_EQ(info.uid, popuser_uid());
    EXPECT_EQ(info.gid, popuser_gid());
    EXPECT_EQ(logged(), std::vector<std::string>{});
    expect_nothing_left_open();
}

TEST_F(MailboxQuotaDbTest, RecreateKeepingTheOwnerLeavesTheFileToRoot) {
    create_store();
    insert_row("example.test", "info", "1B");
    EXPECT_TRUE(store.recreate(KeepOwner::Yes));
    EXPECT_EQ(rows(), "");
    EXPECT_EQ(file_info(kDbPath).uid, 0u);
    EXPECT_EQ(file_info(kDbPath).gid, 0u);
}

TEST_F(MailboxQuotaDbTest, RecreateWithoutUserPopuserFails) {
    write_file("/etc/passwd", "root:x:0:0:root:/root:/bin/sh\n");
    EXPECT_FALSE(store.recreate(KeepOwner::No));
    EXPECT_EQ(logged(), std::vector<std::string>{"3 User 'popuser' not found"});
    EXPECT_EQ(file_info(kDbPath).uid, 0u);
    expect_nothing_left_open();
}

TEST_F(MailboxQuotaDbTest, RecreateWithoutGroupPopuserFails) {
    write_file("/etc/group", "root:x:0:\n");
    EXPECT_FALSE(store.recreate(KeepOwner::No));
    EXPECT_EQ(logged(), std::vector<std::string>{"3 Group 'popuser' not found"});
    expect_nothing_left_open();
}

TEST_F(MailboxQuotaDbTest, RecreateThatCannotOpenTheDatabaseFails) {
    MailboxQuotaDb elsewhere("/var/lib/crelm/mail/missing/userdb.db");
    EXPECT_FALSE(elsewhere.recreate(KeepOwner::No));
    EXPECT_EQ(logged(),
              std::vector<std::string>{
                  "3 Unable to open database /var/lib/crelm/mail/missing/userdb.db: unable to open database file"});
}

// On a read-only file system the old file stays, SQLite opens it read-only,
// and the schema batch fails.
TEST_F(MailboxQuotaDbTest, RecreateOnAReadOnlyFileSystemFailsWithSqliteMessage) {
    const std::string mount_point = scratch_dir() + "/ro";
    ASSERT_EQ(mkdir(mount_point.c_str(), 0755), 0);
    ASSERT_EQ(mount("tmpfs", mount_point.c_str(), "tmpfs", 0, nullptr), 0) << std::strerror(errno);
    write_file(mount_point + "/userdb.db", "");
    ASSERT_EQ(mount(nullptr, mount_point.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr), 0) << std::strerror(errno);
    MailboxQuotaDb read_only(mount_point + "/userdb.db");
    EXPECT_FALSE(read_only.recreate(KeepOwner::No));
    EXPECT_EQ(logged(), std::vector<std::string>{
                            "3 Unable to re-create email user database: attempt to write a readonly database"});
    EXPECT_EQ(descriptors_open_on(mount_point + "/userdb.db"), 0);
    umount(mount_point.c_str());
}

// After every kind of failure the file can be removed and made again.
TEST_F(MailboxQuotaDbTest, DatabaseCanBeRecreatedAfterFailures) {
    EXPECT_TRUE(store.setQuota("example.test", "info", 1));
    EXPECT_EQ(store.getQuota("example.test", "info"), -1);
    create_store();
    refuse("INSERT");
    EXPECT_FALSE(store.setQuota("example.test", "info", 1));
    expect_nothing_left_open();
    ASSERT_EQ(unlink(kDbPath.c_str()), 0);
    create_store();
    EXPECT_TRUE(store.setQuota("example.test", "info", 1));
    EXPECT_EQ(store.getQuota("example.test", "info"), 1);
    expect_nothing_left_open();
}

}  // namespace
}  // namespace sorvane::test
