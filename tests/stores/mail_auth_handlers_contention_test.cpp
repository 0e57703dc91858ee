// Both stores wait for a database that another process holds locked, and
// then do their work: nothing is lost.
#include "mail_auth_test_support.h"
#include "stores/mail_handlers_store.h"

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include <sys/wait.h>
#include <unistd.h>

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

namespace sorvane::test {
namespace {

using DomainRaceTest = MailAuthStoreTest;

// Eight panels register users of a domain the store does not know yet, all
// at once: each finds no domain row and inserts one, and all but the first
// insert meet the unique name. Each takes the row another one made.
TEST_F(DomainRaceTest, PanelsRegisteringUsersOfANewDomainAtOnceAllSucceed) {
    constexpr int kPanels = 8;
    int start[2];
    ASSERT_EQ(pipe(start), 0);
    std::vector<pid_t> panels;
    for (int panel = 0; panel < kPanels; ++panel) {
        const pid_t pid = fork();
        ASSERT_GE(pid, 0);
        if (pid == 0) {
            close(start[1]);
            char go = 0;
            const bool started = read(start[0], &go, 1) == 1;
            const std::string name = "user" + std::to_string(panel);
            _exit(started && set_mail_auth_password(name, "fresh.example", "secret", 0) == 0 ? 0 : 1);
        }
        panels.push_back(pid);
    }
    close(start[0]);
    const std::string go(kPanels, 'g');
    ASSERT_EQ(write(start[1], go.data(), go.size()), kPanels);
    close(start[1]);
    for (const pid_t pid : panels) {
        int status = 0;
        ASSERT_EQ(waitpid(pid, &status, 0), pid);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    }
    EXPECT_EQ(sqlite_cli(mail_auth_db_path(), "SELECT name FROM domains;"), "fresh.example\n");
    EXPECT_EQ(sqlite_cli(mail_auth_db_path(), "SELECT count(*) FROM users;"), "8\n");
}

}  // namespace
}  // namespace sorvane::test
