// The login's row: one indexed lookup (the query plan searches both tables
// by index and scans neither), and a writer that holds the store longer
// than the bound is a temporary failure, not a wait without end.
#include <sqlite3.h>

#include <chrono>

#include "auth/auth_support.h"
#include "auth/login_record.h"
#include "e2e/server_state.h"
#include "stores/mail_auth_paths.h"
#include "stores/mail_auth_sql.h"

namespace sorvane::test {
namespace {

const std::string kAuthDb = "/var/lib/crelm/mail/auth/passwd.db";

TEST(LoginRecordQuery, SearchesBothTablesByIndexAndScansNone) {
    sqlite3* db = nullptr;
    ASSERT_EQ(sqlite3_open(":memory:", &db), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(db, mail_auth_sql::kSchema, nullptr, nullptr, nullptr), SQLITE_OK);
    sqlite3_stmt* plan = nullptr;
    ASSERT_EQ(sqlite3_prepare_v2(db, (std::string("EXPLAIN QUERY PLAN ") + crelm::auth::kLoginRecordQuery).c_str(),
                                 -1, &plan, nullptr),
              SQLITE_OK);
    std::vector<std::string> steps;
    while (sqlite3_step(plan) == SQLITE_ROW)
        steps.emplace_back(reinterpret_cast<const char*>(sqlite3_column_text(plan, 3)));
    sqlite3_finalize(plan);
    sqlite3_close(db);
    ASSERT_EQ(steps.size(), 2U);
    for (const std::string& step : steps) {
        EXPECT_EQ(step.rfind("SEARCH ", 0), 0U) << step;
        EXPECT_NE(step.find("USING INDEX"), std::string::npos) << step;
    }
}

class LoginRecordTest : public SandboxTest {
protected:
    void SetUp() override {
        SandboxTest::SetUp();
        set_mail_auth_paths(kMailServerQmail);
        seed_server_state();
    }
};

TEST_F(LoginRecordTest, WriterHoldingTheStoreBeyondTheBoundIsTemporary) {
    sqlite3* writer = nullptr;
    ASSERT_EQ(sqlite3_open(kAuthDb.c_str(), &writer), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(writer, "BEGIN EXCLUSIVE; UPDATE domains SET status=status;", nullptr, nullptr, nullptr),
              SQLITE_OK);
    const auto started = std::chrono::steady_clock::now();
    const ProcessResult result = log_in("info@example.test", "Info-secret 1");
    const auto waited = std::chrono::steady_clock::now() - started;
    sqlite3_exec(writer, "ROLLBACK;", nullptr, nullptr, nullptr);
    sqlite3_close(writer);
    EXPECT_EQ(result.status, 111) << result.err;
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "sorvane-auth: " + kAuthDb + " stayed busy for more than 3000 ms\n");
    EXPECT_GE(waited, std::chrono::milliseconds(crelm::auth::kStoreBusyBoundMs));
    EXPECT_LT(waited, std::chrono::seconds(30));
}

}  // namespace
}  // namespace sorvane::test
