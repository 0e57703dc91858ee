// The busy-retry discipline and the owners of database handles and statements.
#include "stores/sqlite_retry.h"

#include <signal.h>
#include <sys/time.h>

#include <cerrno>
#include <chrono>

#include "stores/store_test_support.h"

namespace sorvane::test {
namespace {

using std::chrono::steady_clock;

class SqliteRetryTest : public SandboxTest {
protected:
    std::string db_path() { return scratch_dir() + "/retry.db"; }
};

TEST_F(SqliteRetryTest, RepeatsTheAttemptWhileItIsBusyAndReturnsTheFirstOtherCode) {
    int attempts = 0;
    int before_retry_calls = 0;
    const int rc = sqlite_retry_while_busy([&] { return ++attempts < 4 ? SQLITE_BUSY : SQLITE_DONE; },
                                           [&] { ++before_retry_calls; });
    EXPECT_EQ(rc, SQLITE_DONE);
    EXPECT_EQ(attempts, 4);
    EXPECT_EQ(before_retry_calls, 3);
}

TEST_F(SqliteRetryTest, ReturnsAnErrorOtherThanBusyAtOnce) {
    int attempts = 0;
    EXPECT_EQ(sqlite_retry_while_busy([&] {
                  ++attempts;
                  return SQLITE_ERROR;
              }),
              SQLITE_ERROR);
    EXPECT_EQ(attempts, 1);
}

// 101 busy attempts sleep 0, 10, 20, ... 1000 microseconds: 50.5 ms in all.
TEST_F(SqliteRetryTest, DelayBetweenAttemptsGrowsByTenMicroseconds) {
    int attempts = 0;
    const auto start = steady_clock::now();
    sqlite_retry_while_busy([&] { return ++attempts <= 101 ? SQLITE_BUSY : SQLITE_OK; });
    EXPECT_EQ(attempts, 102);
    EXPECT_GE(steady_clock::now() - start, std::chrono::microseconds(50500));
}

void ignore_signal(int) {}

// Keeps a signal coming every millisecond for as long as it lives; the
// handler does nothing, so only interruptible calls notice.
class SignalEveryMillisecond {
public:
    SignalEveryMillisecond() {
        struct sigaction action {};
        action.sa_handler = ignore_signal;
        sigaction(SIGALRM, &action, &saved_);
        const itimerval every_ms{{0, 1000}, {0, 1000}};
        setitimer(ITIMER_REAL, &every_ms, nullptr);
    }
    ~SignalEveryMillisecond() {
        const itimerval off{};
        setitimer(ITIMER_REAL, &off, nullptr);
        sigaction(SIGALRM, &saved_, nullptr);
    }

private:
    struct sigaction saved_ {};
};

TEST_F(SqliteRetryTest, AnInterruptedSleepEndsTheCallAsBusy) {
    int attempts = 0;
    int rc = 0;
    int error = 0;
    {
        const SignalEveryMillisecond signals;
        // Attempts take no time, so the signal lands in a sleep; the bound
        // keeps a broken retry from running forever.
        rc = sqlite_retry_while_busy([&] { return ++attempts < 1000000 ? SQLITE_BUSY : SQLITE_MISUSE; });
        error = errno;
    }
    EXPECT_EQ(rc, SQLITE_BUSY);
    EXPECT_EQ(error, EINTR);
    EXPECT_LT(attempts, 1000000);
}

TEST_F(SqliteRetryTest, GeneralDbErrorIsTheTextWithoutAHandle) {
    EXPECT_STREQ(sqlite_error_text(nullptr), "general DB errror");
    EXPECT_STREQ(kGeneralDbError, "general DB errror");
}

TEST_F(SqliteRetryTest, ReadWriteOpenCreatesTheFileAndTheOwnerClosesIt) {
    {
        crelm::SqliteDb db;
        ASSERT_EQ(sqlite_open_db(db_path(), SqliteOpenMode::ReadWrite, db), SQLITE_OK);
        EXPECT_TRUE(path_exists(db_path()));
        EXPECT_EQ(descriptors_open_on(db_path()), 1);
    }
    EXPECT_EQ(descriptors_open_on(db_path()), 0);
}

TEST_F(SqliteRetryTest, ReadOnlyOpenOfAMissingFileFailsAndKeepsTheHandleForItsText) {
    crelm::SqliteDb db;
    EXPECT_EQ(sqlite_open_db(db_path(), SqliteOpenMode::ReadOnly, db), SQLITE_CANTOPEN);
    EXPECT_TRUE(db);
    EXPECT_STREQ(sqlite_error_text(db.get()), "unable to open database file");
    EXPECT_FALSE(path_exists(db_path()));
}

TEST_F(SqliteRetryTest, ReadOnlyOpenRefusesWrites) {
    sqlite_cli(db_path(), "CREATE TABLE t (x);");
    crelm::SqliteDb db;
    ASSERT_EQ(sqlite_open_db(db_path(), SqliteOpenMode::ReadOnly, db), SQLITE_OK);
    std::string message;
    EXPECT_EQ(sqlite_exec_with_retry(db.get(), "INSERT INTO t VALUES (1);", &message), SQLITE_READONLY);
    EXPECT_EQ(message, "attempt to write a readonly database");
}

TEST_F(SqliteRetryTest, ExecGivesSqliteMessageOnFailureAndNoneOnSuccess) {
    crelm::SqliteDb db;
    ASSERT_EQ(sqlite_open_db(db_path(), SqliteOpenMode::ReadWrite, db), SQLITE_OK);
    std::string message = "stale";
    EXPECT_EQ(sqlite_exec_with_retry(db.get(), "CREATE TABLE t (x); INSERT INTO t VALUES (1);", &message), SQLITE_OK);
    EXPECT_EQ(message, "");
    EXPECT_EQ(sqlite_exec_with_retry(db.get(), "SELECT * FROM missing;", &message), SQLITE_ERROR);
    EXPECT_EQ(message, "no such table: missing");
}

TEST_F(SqliteRetryTest, PrepareAndStepRunAStatementThatTheOwnerFinalizes) {
    crelm::SqliteDb db;
    ASSERT_EQ(sqlite_open_db(db_path(), SqliteOpenMode::ReadWrite, db), SQLITE_OK);
    {
        crelm::SqliteStatement statement;
        ASSERT_EQ(sqlite_prepare_with_retry(db.get(), "SELECT 41 + 1", statement), SQLITE_OK);
        ASSERT_EQ(sqlite_step_with_retry(statement.get()), SQLITE_ROW);
        EXPECT_EQ(sqlite3_column_int(statement.get(), 0), 42);
        EXPECT_EQ(sqlite_step_with_retry(statement.get()), SQLITE_DONE);
        EXPECT_NE(sqlite3_next_stmt(db.get(), nullptr), nullptr);
    }
    EXPECT_EQ(sqlite3_next_stmt(db.get(), nullptr), nullptr);
    EXPECT_EQ(db.close(), SQLITE_OK);
    EXPECT_FALSE(db);
}

TEST_F(SqliteRetryTest, PreparingAgainFinalizesTheStatementHeldBefore) {
    crelm::SqliteDb db;
    ASSERT_EQ(sqlite_open_db(db_path(), SqliteOpenMode::ReadWrite, db), SQLITE_OK);
    crelm::SqliteStatement statement;
    ASSERT_EQ(sqlite_prepare_with_retry(db.get(), "SELECT 1", statement), SQLITE_OK);
    sqlite3_stmt* first = statement.get();
    EXPECT_EQ(sqlite_prepare_with_retry(db.get(), "SELECT broken FROM", statement), SQLITE_ERROR);
    EXPECT_FALSE(statement);
    EXPECT_EQ(sqlite3_next_stmt(db.get(), nullptr), nullptr) << "statement " << first << " still open";
}

TEST_F(SqliteRetryTest, OpenedHandleHasTheFiftyMillisecondBusyTimeout) {
    sqlite_cli(db_path(), "CREATE TABLE t (x);");
    DatabaseHolder holder(db_path(), "BEGIN EXCLUSIVE;\n.system echo ready > " + holder_ready_fifo(), "30", "COMMIT;");
    ASSERT_EQ(holder.wait_ready(), "ready");
    crelm::SqliteDb db;
    ASSERT_EQ(sqlite_open_db(db_path(), SqliteOpenMode::ReadWrite, db), SQLITE_OK);
    const auto start = steady_clock::now();
    // A plain exec (no retry) gives up once the busy timeout has run out.
    EXPECT_EQ(sqlite3_exec(db.get(), "SELECT * FROM t", nullptr, nullptr, nullptr), SQLITE_BUSY);
    EXPECT_GE(steady_clock::now() - start, std::chrono::milliseconds(50));
}

}  // namespace
}  // namespace sorvane::test
