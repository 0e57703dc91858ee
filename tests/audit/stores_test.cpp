// The store files themselves: a missing or unreadable store, a journal that
// a killed writer left, a store that fails SQLite's integrity check or has
// another schema, and owners and modes of stores and key file. None of them
// has a sorvane command that repairs it: a person has to look.
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <fstream>

#include "audit/audit_fixture.h"
#include "audit/store_audit_steps.h"

namespace sorvane::test {
namespace {

using StoreFileTest = AuditTest;

// Overwrites length bytes of the file at offset with garbage.
void write_garbage(const std::string& path, long offset, std::size_t length) {
    std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
    ASSERT_TRUE(file.is_open()) << path;
    file.seekp(offset);
    const std::string garbage(length, '\xa5');
    file.write(garbage.data(), static_cast<std::streamsize>(garbage.size()));
    ASSERT_TRUE(file.good()) << path;
}

long sqlite_number(const std::string& db, const std::string& sql) {
    return std::stol(run_sqlite(db, sql));
}

TEST_F(StoreFileTest, AMissingStoreIsReported) {
    ASSERT_EQ(unlink(kAuditHandlersDb.c_str()), 0);
    expect_findings({"error store-missing " + kAuditHandlersDb +
                     ": the store is missing: every command that uses it fails"});
    expect_only_for_a_person({"needs a person: store-missing " + kAuditHandlersDb});
}

TEST_F(StoreFileTest, AStoreThatIsNoDatabaseIsUnreadable) {
    write_garbage(kAuditHandlersDb, 0, 100);
    expect_findings({"error store-unreadable " + kAuditHandlersDb + ": file is not a database"});
    expect_only_for_a_person({"needs a person: store-unreadable " + kAuditHandlersDb});
}

TEST_F(StoreFileTest, ADamagedIndexEntryFailsTheIntegrityCheck) {
    // One address in idx1's page changed: the rows are read through the
    // table, never through idx1, so only the integrity check sees it.
    const long page_size = sqlite_number(kAuditHandlersDb, "PRAGMA page_size;");
    const long root = sqlite_number(kAuditHandlersDb, "SELECT rootpage FROM sqlite_master WHERE name = 'idx1';");
    const std::string content = read_file(kAuditHandlersDb);
    const std::size_t page = static_cast<std::size_t>((root - 1) * page_size);
    const std::size_t found = content.substr(page, static_cast<std::size_t>(page_size)).find("sales@example.test");
    ASSERT_NE(found, std::string::npos);
    write_garbage(kAuditHandlersDb, static_cast<long>(page + found), 1);
    expect_findings({"error store-integrity-failed " + kAuditHandlersDb + ": SQLite's integrity check: row 3 missing from index idx1"});
    expect_only_for_a_person({"needs a person: store-integrity-failed " + kAuditHandlersDb});
}

TEST_F(StoreFileTest, AHotJournalIsReportedAndNeverRolledBack) {
    // A writer's journal as it stands in the middle of a transaction, put
    // back after the writer ended: what a killed writer leaves. Without
    // syncs the journal's header is complete from the first change on, as
    // it is at a commit's sync.
    const std::string saved = scratch_dir() + "/saved-journal";
    run_sqlite(kAuditQuotaDb, "PRAGMA synchronous=OFF;\nBEGIN;\nDELETE FROM mailbox_quota;\n.system cp " + kAuditQuotaDb + "-journal " + saved +
                                  "\nROLLBACK;\n");
    ASSERT_TRUE(path_exists(saved));
    ASSERT_FALSE(path_exists(kAuditQuotaDb + "-journal"));
    write_file(kAuditQuotaDb + "-journal", read_file(saved), 0644);
    const std::string journal = read_file(kAuditQuotaDb + "-journal");
    const std::string store = read_file(kAuditQuotaDb);
    expect_findings({"error store-hot-journal " + kAuditQuotaDb + ": a killed writer left its journal (" +
                     kAuditQuotaDb + "-journal): the store cannot be read until a writer rolls it back"});
    expect_only_for_a_person({"needs a person: store-hot-journal " + kAuditQuotaDb});
    // Read as root, never opened by SQLite: a journal that SQLite opens
    // is handed to the store's owner.
    EXPECT_EQ(read_file(kAuditQuotaDb + "-journal"), journal);
    EXPECT_EQ(file_info(kAuditQuotaDb + "-journal").uid, 0u);
    EXPECT_EQ(file_info(kAuditQuotaDb + "-journal").mode, 0644u);
    EXPECT_EQ(read_file(kAuditQuotaDb), store);
}

TEST_F(StoreFileTest, AWritersJournalIsNoFinding) {
    // The audit runs while a writer holds the store in the middle of its
    // transaction: the journal is the writer's, and the store reads as it
    // was before the transaction.
    const std::string report = scratch_dir() + "/report";
    run_sqlite(kAuditQuotaDb, "PRAGMA synchronous=OFF;\nBEGIN;\nDELETE FROM mailbox_quota;\n.system " +
                                  sorvane_audit_path() + " > " + report + "; echo status $? >> " + report +
                                  "\nROLLBACK;\n");
    const std::string text = read_file(report);
    EXPECT_EQ(finding_lines(text.substr(0, text.rfind("status "))), std::vector<std::string>{}) << text;
    EXPECT_EQ(text.substr(text.rfind("status ")), "status 0\n") << text;
}

TEST_F(StoreFileTest, AJournalWithoutAHeaderIsNoFindingAndStaysAsItIs) {
    // What a writer leaves when it is killed before its journal's header
    // is written: SQLite takes no notice of it.
    write_file(kAuditQuotaDb + "-journal", std::string(512, '\0'), 0644);
    const ProcessResult result = run_sorvane_audit({});
    EXPECT_EQ(finding_lines(result.out), std::vector<std::string>{}) << result.out;
    EXPECT_EQ(result.status, 0) << result.out;
    EXPECT_EQ(read_file(kAuditQuotaDb + "-journal"), std::string(512, '\0'));
    EXPECT_EQ(file_info(kAuditQuotaDb + "-journal").uid, 0u);
}

TEST_F(StoreFileTest, AnotherSchemaIsReported) {
    run_sqlite(kAuditAuthDb, "DROP INDEX users_name;\nCREATE INDEX users_status ON users(status);\n");
    expect_findings({"error store-schema-differs " + kAuditAuthDb +
                     ": not the schema sorvane creates: missing index users_name ON users(name); unexpected index "
                     "users_status ON users(status)"});
    expect_only_for_a_person({"needs a person: store-schema-differs " + kAuditAuthDb});
}

TEST_F(StoreFileTest, AWorldReadablePasswordStoreIsExposed) {
    ASSERT_EQ(chmod(kAuditAuthDb.c_str(), 0644), 0);
    expect_findings({"error store-file-exposed " + kAuditAuthDb + ": readable by every user (" + root_nofiles() +
                     " 0644, set up as root:nofiles 0640)"});
    expect_only_for_a_person({"needs a person: store-file-exposed " + kAuditAuthDb});
}

TEST_F(StoreFileTest, AGroupWritableQuotaStoreIsExposed) {
    ASSERT_EQ(chmod(kAuditQuotaDb.c_str(), 0664), 0);
    const std::string owner = std::to_string(popuser_uid()) + ":" + std::to_string(popuser_gid());
    expect_findings({"error store-file-exposed " + kAuditQuotaDb + ": writable by group or others (" + owner +
                     " 0664, set up as popuser:popuser)"});
    expect_only_for_a_person({"needs a person: store-file-exposed " + kAuditQuotaDb});
}

TEST_F(StoreFileTest, AHandlersStoreWithAnotherModeIsReported) {
    ASSERT_EQ(chmod(kAuditHandlersDb.c_str(), 0600), 0);
    expect_findings({"warning store-file-mode " + kAuditHandlersDb + ": " + root_popuser() +
                     " 0600, not root:popuser 0640 as the store's set-up leaves it"});
    expect_only_for_a_person({"needs a person: store-file-mode " + kAuditHandlersDb});
}

TEST_F(StoreFileTest, AKeyFileReadableByEveryUserIsExposed) {
    ASSERT_EQ(chmod(kAuditAuthKey.c_str(), 0444), 0);
    expect_findings({"error store-key-file-exposed " + kAuditAuthKey + ": readable by every user (" + root_nofiles() +
                     " 0444, set up as root:nofiles 0440)"});
    expect_only_for_a_person({"needs a person: store-key-file-exposed " + kAuditAuthKey});
}

TEST_F(StoreFileTest, AKeyFileOfAnotherGroupIsExposed) {
    ASSERT_EQ(chown(kAuditAuthKey.c_str(), 0, popuser_gid()), 0);
    expect_findings({"error store-key-file-exposed " + kAuditAuthKey + ": readable by group " +
                     std::to_string(popuser_gid()) + " (" + root_popuser() + " 0440, set up as root:nofiles 0440)"});
    expect_only_for_a_person({"needs a person: store-key-file-exposed " + kAuditAuthKey});
}

TEST_F(StoreFileTest, AKeyFileWithAnotherModeIsReported) {
    ASSERT_EQ(chmod(kAuditAuthKey.c_str(), 0400), 0);
    expect_findings({"warning store-key-file-mode " + kAuditAuthKey + ": " + root_nofiles() +
                     " 0400, not root:nofiles 0440 as the store's set-up leaves it"});
    expect_only_for_a_person({"needs a person: store-key-file-mode " + kAuditAuthKey});
}

TEST_F(StoreFileTest, AMissingKeyFileIsReported) {
    ASSERT_EQ(unlink(kAuditAuthKey.c_str()), 0);
    expect_findings({"error store-key-file-missing " + kAuditAuthKey +
                     ": the passwords' key file is missing: no stored password can be read"});
    expect_only_for_a_person({"needs a person: store-key-file-missing " + kAuditAuthKey});
}

}  // namespace
}  // namespace sorvane::test
