// Both stores wait for a database that another process holds locked, and
// then do their work: nothing is lost.
#include "mail_auth_test_support.h"
#include "stores/mail_handlers_store.h"

#include <chrono>
#include <memory>

namespace sorvane::test {
namespace {

using Clock = std::chrono::steady_clock;

// Holds an exclusive lock on db for about two seconds once it says "ready".
std::unique_ptr<DatabaseHolder> lock_exclusively(const std::string& db) {
    auto holder = std::make_unique<DatabaseHolder>(
        db, "BEGIN EXCLUSIVE;\n.system echo ready > " + holder_ready_fifo(), "2", "COMMIT;");
    EXPECT_EQ(holder->wait_ready(), "ready");
    return holder;
}

double seconds_since(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

class StoreContentionTest : public MailAuthStoreTest {};

TEST_F(StoreContentionTest, AuthenticationStoreWriteWaitsForTheLockThenSucceeds) {
    ASSERT_EQ(set_mail_auth_password("first", "example.com", "one", 0), 0);
    auto holder = lock_exclusively(mail_auth_db_path());
    const auto start = Clock::now();
    EXPECT_EQ(set_mail_auth_password("second", "example.com", "two", 0), 0);
    EXPECT_GE(seconds_since(start), 1.0);
    EXPECT_EQ(holder->wait_exit(), 0);
    EXPECT_EQ(users(), "first|1|0\nsecond|1|0\n");
    MailAuthPassword password;
    ASSERT_EQ(get_mail_auth_user_password("second", "example.com", password), 0);
    EXPECT_EQ(password.password, "two");
    EXPECT_TRUE(logged().empty());
}

TEST_F(StoreContentionTest, HandlersStoreBatchWaitsForTheLockThenSucceeds) {
    ASSERT_EQ(recreate_mail_handlers_db(), 0);
    MailHandlerRecord record;
    record.name = "spam";
    record.address = "info@example.com";
    record.executable = "/usr/lib/handlers/spam";
    ASSERT_EQ(add_mail_handler(record), 0);
    auto holder = lock_exclusively(mail_handlers_db_path());
    const auto start = Clock::now();
    EXPECT_EQ(clone_mail_handlers("info@example.com", "contact@example.com"), 0);
    EXPECT_GE(seconds_since(start), 1.0);
    EXPECT_EQ(holder->wait_exit(), 0);
    EXPECT_EQ(sqlite_cli(mail_handlers_db_path(), "SELECT address FROM handlers ORDER BY address;"),
              "contact@example.com\ninfo@example.com\n");
    EXPECT_TRUE(logged().empty());
}

}  // namespace
}  // namespace sorvane::test
