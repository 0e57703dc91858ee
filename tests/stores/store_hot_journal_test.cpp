// A writer killed inside a transaction leaves the database file half
// changed and a hot journal beside it. The next read of each store, through
// its read-only handle, must roll the journal back and find the data of
// before the transaction.
#include <sqlite3.h>

#include <sstream>

#include "stores/mail_auth_paths.h"
#include "stores/mail_auth_store.h"
#include "stores/mail_handlers_store.h"
#include "stores/mailbox_quota_db.h"
#include "stores/store_test_support.h"

namespace sorvane::test {
namespace {

using crelm::mail::KeepOwner;
using crelm::mail::MailboxQuotaDb;

const std::string kQuotaDb = "/var/lib/crelm/mail/userdb/userdb.db";

// Enough new pages that a cache of one page has to write changed pages to
// the database file before the transaction ends.
const std::string kFiller =
    "CREATE TABLE filler (x);"
    "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 300) "
    "INSERT INTO filler SELECT randomblob(1000) FROM n;";

// A child process opens db_path, changes it with sql and the filler inside
// one transaction, and is killed before the transaction ends.
void kill_writer_inside_transaction(const std::string& db_path, const std::string& sql) {
    const std::string before = read_file(db_path);
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        sqlite3* db = nullptr;
        const std::string script = "PRAGMA cache_size = 1; BEGIN; " + sql + kFiller;
        if (sqlite3_open_v2(db_path.c_str(), &db, SQLITE_OPEN_READWRITE, nullptr) == SQLITE_OK &&
            sqlite3_exec(db, script.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK)
            raise(SIGKILL);
        _exit(1);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << "the writer failed before it was killed";
    ASSERT_TRUE(path_exists(db_path + "-journal"));
    ASSERT_NE(read_file(db_path), before) << "no changed page reached the database file";
}

// The journal is gone and the file holds again exactly what it held.
void expect_rolled_back(const std::string& db_path, const std::string& file_before) {
    EXPECT_FALSE(path_exists(db_path + "-journal"));
    EXPECT_TRUE(read_file(db_path) == file_before) << "the database file differs from before the transaction";
}

class StoreHotJournalTest : public LoggedStoreTest {};

TEST_F(StoreHotJournalTest, QuotaReadAfterAKilledWriterFindsTheQuotasOfBefore) {
    MailboxQuotaDb store;
    ASSERT_TRUE(store.recreate(KeepOwner::Yes));
    ASSERT_TRUE(store.setQuota("example.test", "info", 1048576));
    ASSERT_TRUE(store.setQuota("example.test", "john", 2048));
    const std::string file_before = read_file(kQuotaDb);
    kill_writer_inside_transaction(
        kQuotaDb, "UPDATE mailbox_quota SET quota = '5B'; DELETE FROM mailbox_quota WHERE mailbox_name = 'john';");

    EXPECT_EQ(store.getQuota("example.test", "info"), 1048576);
    EXPECT_EQ(store.getQuota("example.test", "john"), 2048);
    expect_rolled_back(kQuotaDb, file_before);
    EXPECT_EQ(sqlite_cli(kQuotaDb, "SELECT * FROM mailbox_quota ORDER BY mailbox_name;"),
              "example.test|info|1048576B\nexample.test|john|2048B\n");
    EXPECT_TRUE(logged().empty());
}

std::string described(const MailHandlerList& list) {
    std::ostringstream out;
    for (const MailHandlerRecord& record : list)
        out << record.priority << '|' << record.type << '|' << record.queue << '|' << record.name << '|'
            << record.address << '|' << record.executable << '|' << record.context.value_or("-") << '|'
            << record.enabled << '\n';
    return out.str();
}

MailHandlerRecord spam_handler(const std::string& address) {
    MailHandlerRecord record;
    record.priority = 10;
    record.type = 2;
    record.queue = 1;
    record.name = "spam";
    record.address = address;
    record.executable = "/usr/lib/handlers/spam";
    record.context = "ctx-spam";
    record.enabled = true;
    return record;
}

TEST_F(StoreHotJournalTest, HandlersSelectionAfterAKilledWriterFindsTheHandlersOfBefore) {
    set_mail_handlers_db_path(kDefaultMailHandlersDbPath);
    ASSERT_EQ(recreate_mail_handlers_db(), 0);
    ASSERT_EQ(add_mail_handler(spam_handler("info@example.com")), 0);
    ASSERT_EQ(add_mail_handler(spam_handler("sales@example.com")), 0);
    const std::string file_before = read_file(kDefaultMailHandlersDbPath);
    kill_writer_inside_transaction(kDefaultMailHandlersDbPath,
                                   "UPDATE handlers SET enabled = 0, executable = '/bin/false'; "
                                   "DELETE FROM handlers WHERE address = 'sales@example.com';");

    MailHandlerList list;
    EXPECT_EQ(select_mail_handlers_containing("example.com", list), 0);
    EXPECT_EQ(described(list), "10|2|1|spam|info@example.com|/usr/lib/handlers/spam|ctx-spam|1\n"
                               "10|2|1|spam|sales@example.com|/usr/lib/handlers/spam|ctx-spam|1\n");
    expect_rolled_back(kDefaultMailHandlersDbPath, file_before);
    EXPECT_EQ(sqlite_cli(kDefaultMailHandlersDbPath, "SELECT * FROM handlers ORDER BY address;"),
              "1|2|1|10|spam|info@example.com|/usr/lib/handlers/spam|ctx-spam|0\n"
              "1|2|1|10|spam|sales@example.com|/usr/lib/handlers/spam|ctx-spam|0\n");
    EXPECT_TRUE(logged().empty());
}

std::vector<std::string> listed_auth_users() {
    std::vector<std::string> lines;
    EXPECT_EQ(list_mail_auth_users("", [&](const MailAuthListedUser& user) {
                  lines.push_back(user.address + " " + user.password + " " + std::to_string(user.user_disabled) +
                                  " " + std::to_string(user.domain_disabled));
              }),
              0);
    return lines;
}

TEST_F(StoreHotJournalTest, AuthenticationReadsAfterAKilledWriterFindTheUsersOfBefore) {
    ASSERT_EQ(init_mail_auth_store(kMailServerQmail), 0);
    ASSERT_EQ(set_mail_auth_password("info", "example.test", "pw-info", 0), 0);
    ASSERT_EQ(set_mail_auth_password("john", "example.test", "pw-john", kMailAuthUserDisabled), 0);
    ASSERT_EQ(set_mail_auth_password("info", "other.test", "$1$salt$hash", kMailAuthPasswordInStoredForm), 0);
    const std::string stored_before = sqlite_cli(mail_auth_db_path(), "SELECT * FROM users ORDER BY id;");
    const std::string file_before = read_file(mail_auth_db_path());
    kill_writer_inside_transaction(mail_auth_db_path(),
                                   "UPDATE users SET userPassword = 'x', status = 1; "
                                   "DELETE FROM domains WHERE name = 'other.test';");

    MailAuthPassword password;
    EXPECT_EQ(get_mail_auth_user_password("info", "example.test", password), 0);
    EXPECT_EQ(password.password, "pw-info");
    EXPECT_FALSE(password.user_disabled);
    EXPECT_EQ(listed_auth_users(), (std::vector<std::string>{"info@example.test pw-info 0 0",
                                                             "john@example.test pw-john 1 0",
                                                             "info@other.test $1$salt$hash 0 0"}));
    expect_rolled_back(mail_auth_db_path(), file_before);
    EXPECT_EQ(sqlite_cli(mail_auth_db_path(), "SELECT * FROM users ORDER BY id;"), stored_before);
    EXPECT_TRUE(logged().empty());
}

TEST_F(StoreHotJournalTest, AuthenticationUserLookupAfterAKilledWriter) {
    ASSERT_EQ(init_mail_auth_store(kMailServerQmail), 0);
    ASSERT_EQ(set_mail_auth_password("info", "example.test", "$1$salt$hash", kMailAuthPasswordInStoredForm), 0);
    const std::string file_before = read_file(mail_auth_db_path());
    kill_writer_inside_transaction(mail_auth_db_path(), "DELETE FROM users;");

    MailAuthUser user;
    EXPECT_EQ(get_mail_auth_user("example.test", "info", user), 0);
    EXPECT_EQ(user.name, "info");
    EXPECT_EQ(user.password, "$1$salt$hash");
    EXPECT_EQ(user.flags, kMailAuthPasswordInStoredForm);
    expect_rolled_back(mail_auth_db_path(), file_before);
    EXPECT_TRUE(logged().empty());
}

// The roll-back needs a handle that may write; it never makes a store that
// is not there.
TEST_F(StoreHotJournalTest, ReadsOfAMissingStoreStillCreateNothing) {
    MailboxQuotaDb store;
    EXPECT_EQ(store.getQuota("example.test", "info"), -1);
    EXPECT_FALSE(path_exists(kQuotaDb));
    EXPECT_FALSE(path_exists(kQuotaDb + "-journal"));
}

}  // namespace
}  // namespace sorvane::test
