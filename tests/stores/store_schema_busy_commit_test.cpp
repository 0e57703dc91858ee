// A schema batch runs in a transaction of its own. When another connection
// holds the database at COMMIT time, the COMMIT is busy and leaves that
// transaction open; the batch must be rolled back before it runs again.
#include <chrono>

#include "stores/mail_handlers_sql.h"
#include "stores/store_access.h"
#include "stores/store_test_support.h"

namespace sorvane::test {
namespace {

using std::chrono::steady_clock;

class StoreSchemaBusyCommitTest : public LoggedStoreTest {
protected:
    std::string db_path() { return scratch_dir() + "/schema.db"; }
};

TEST_F(StoreSchemaBusyCommitTest, BatchWhoseCommitWasBusyIsRolledBackAndRunAgain) {
    sqlite_cli(db_path(), "CREATE TABLE other (x);");
    // A reader's shared lock lets the batch create its tables but not commit.
    DatabaseHolder holder(db_path(), "BEGIN;\nSELECT count(*) FROM other;\n.system echo ready > " + holder_ready_fifo(),
                          "1", "COMMIT;");
    ASSERT_EQ(holder.wait_ready(), "ready");
    crelm::SqliteDb db;
    ASSERT_EQ(open_store_db(db_path(), SqliteOpenMode::ReadWrite, db), 0);
    const auto start = steady_clock::now();
    EXPECT_EQ(run_store_schema(db.get(), mail_handlers_sql::kSchema, "Unable to re-create mail handlers database"), 0);
    EXPECT_GE(steady_clock::now() - start, std::chrono::milliseconds(500)) << "the COMMIT did not wait for the reader";
    EXPECT_NE(sqlite3_get_autocommit(db.get()), 0) << "a transaction was left open";
    EXPECT_EQ(holder.wait_exit(), 0);
    db.close();
    EXPECT_TRUE(logged().empty());
    EXPECT_EQ(sqlite_cli(db_path(), "SELECT type, name FROM sqlite_master ORDER BY type, name;"),
              "index|idx1\nindex|idx2\nindex|idx3\nindex|idx4\nindex|sqlite_autoindex_handlers_1\n"
              "table|handlers\ntable|other\n");
}

}  // namespace
}  // namespace sorvane::test
