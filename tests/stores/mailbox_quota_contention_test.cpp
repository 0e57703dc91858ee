// The quota store while another process holds its database.
#include <signal.h>
#include <sys/time.h>

#include <chrono>

#include "stores/mailbox_quota_db.h"
#include "stores/store_test_support.h"

namespace sorvane::test {
namespace {

using crelm::mail::KeepOwner;
using crelm::mail::MailboxQuotaDb;
using std::chrono::steady_clock;

const std::string kDbPath = "/var/lib/crelm/mail/userdb/userdb.db";

class MailboxQuotaContentionTest : public LoggedStoreTest {
protected:
    MailboxQuotaDb store;

    void SetUp() override {
        LoggedStoreTest::SetUp();
        ASSERT_TRUE(store.recreate(KeepOwner::Yes));
    }
};

TEST_F(MailboxQuotaContentionTest, WriteWaitsForAnExclusiveLockAndLosesNothing) {
    DatabaseHolder holder(kDbPath,
                          "BEGIN EXCLUSIVE;\n"
                          "INSERT INTO mailbox_quota VALUES ('example.test', 'holder', '1B');\n"
                          ".system echo ready > " +
                              holder_ready_fifo(),
                          "2", "COMMIT;");
    ASSERT_EQ(holder.wait_ready(), "ready");
    const auto start = steady_clock::now();
    EXPECT_TRUE(store.setQuota("example.test", "writer", 5));
    EXPECT_GE(steady_clock::now() - start, std::chrono::seconds(1)) << "the write did not wait for the lock";
    EXPECT_EQ(holder.wait_exit(), 0);
    EXPECT_EQ(sqlite_cli(kDbPath, "SELECT * FROM mailbox_quota ORDER BY mailbox_name;"),
              "example.test|holder|1B\nexample.test|writer|5B\n");
    EXPECT_EQ(logged(), std::vector<std::string>{});
}

TEST_F(MailboxQuotaContentionTest, ReadWaitsForAnExclusiveLock) {
    sqlite_cli(kDbPath, "INSERT INTO mailbox_quota VALUES ('example.test', 'info', '1KB');");
    DatabaseHolder holder(kDbPath,
                          "BEGIN EXCLUSIVE;\n"
                          "UPDATE mailbox_quota SET quota = '2KB';\n"
                          ".system echo ready > " +
                              holder_ready_fifo(),
                          "1", "COMMIT;");
    ASSERT_EQ(holder.wait_ready(), "ready");
    EXPECT_EQ(store.getQuota("example.test", "info"), 2048);
    EXPECT_EQ(holder.wait_exit(), 0);
}

void ignore_signal(int) {}

// A reader that never lets go keeps the commit busy; a signal that cuts a
// retry sleep short then ends the write, and nothing of it is kept.
TEST_F(MailboxQuotaContentionTest, InterruptedRetryWhileEndingTheTransactionFailsTheWrite) {
    DatabaseHolder holder(kDbPath,
                          "BEGIN;\n"
                          "SELECT count(*) FROM mailbox_quota;\n"
                          ".system echo ready > " +
                              holder_ready_fifo(),
                          "600", "COMMIT;");
    ASSERT_EQ(holder.wait_ready(), "ready");
    struct sigaction action {};
    action.sa_handler = ignore_signal;
    struct sigaction saved {};
    sigaction(SIGALRM, &action, &saved);
    const itimerval every_ms{{0, 1000}, {0, 1000}};
    setitimer(ITIMER_REAL, &every_ms, nullptr);
    const bool result = store.setQuota("example.test", "writer", 5);
    const itimerval off{};
    setitimer(ITIMER_REAL, &off, nullptr);
    sigaction(SIGALRM, &saved, nullptr);
    EXPECT_FALSE(result);
    EXPECT_EQ(logged(), std::vector<std::string>{"3 Unable to end sqlite transaction: database is locked"});
    EXPECT_EQ(descriptors_open_on(kDbPath), 0);
}

}  // namespace
}  // namespace sorvane::test
