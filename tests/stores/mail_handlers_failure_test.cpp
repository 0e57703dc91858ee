// How the mail handlers store reports a database it cannot use.
#include "mail_handlers_test_support.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/mount.h>
#include <unistd.h>

#include <filesystem>

namespace sorvane::test {
namespace {

using ::testing::ElementsAre;

const std::string kDb = kDefaultMailHandlersDbPath;

// Writes to path until the file system holding it is full.
void fill_file_system(const std::string& path) {
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    ASSERT_GE(fd, 0);
    const std::string block(4096, 'x');
    while (write(fd, block.data(), block.size()) > 0) {
    }
    while (write(fd, block.data(), 1) > 0) {
    }
    close(fd);
}

class MailHandlersFailureTest : public MailHandlersTest {
protected:
    // Replaces the store by a database made of sql.
    static void store_made_of(const std::string& sql) {
        std::filesystem::remove(kDb);
        sqlite_cli(kDb, sql);
    }
};

TEST_F(MailHandlersFailureTest, SelectionsOfAMissingDatabaseFailAndCreateNothing) {
    std::filesystem::remove(kDb);
    MailHandlerList list;
    EXPECT_EQ(select_mail_handlers("info@example.com", list), -1);
    EXPECT_EQ(select_mail_handlers_to_run(1, 2, "info@example.com", list), -1);
    const std::string open_failure = "3 Unable to open database(readonly) " + kDb + ": unable to open database file";
    EXPECT_THAT(logged(), ElementsAre(open_failure, open_failure));
    EXPECT_FALSE(path_exists(kDb));
}

TEST_F(MailHandlersFailureTest, WritesToADatabaseWithoutTheTableFailAtPrepare) {
    std::filesystem::remove(kDb);
    EXPECT_EQ(add_mail_handler(handler("spam", "info@example.com")), -1);
    EXPECT_EQ(remove_mail_handlers_of_address("info@example.com"), -1);
    EXPECT_THAT(logged(),
                ElementsAre("3 Unable to prepare SQL statement for query 'INSERT OR REPLACE INTO handlers(priority, "
                            "name, type, address, queue, executable, context, protected, enabled) VALUES(?, ?, ?, "
                            "LOWER(?), ?, ?, ?, ?, ?)': no such table: handlers",
                            "3 Unable to prepare SQL statement for query 'DELETE FROM handlers WHERE "
                            "LOWER(address)=LOWER(?)': no such table: handlers"));
}

TEST_F(MailHandlersFailureTest, FailedSingleChangesNameTheirKind) {
    ASSERT_EQ(add_mail_handler(handler("spam", "info@example.com")), 0);
    rows("CREATE TRIGGER i BEFORE INSERT ON handlers BEGIN SELECT RAISE(ABORT, 'no inserts'); END;"
         "CREATE TRIGGER u BEFORE UPDATE ON handlers BEGIN SELECT RAISE(ABORT, 'no updates'); END;"
         "CREATE TRIGGER d BEFORE DELETE ON handlers BEGIN SELECT RAISE(ABORT, 'no deletes'); END;");
    EXPECT_EQ(add_mail_handler(handler("virus", "info@example.com")), -1);
    EXPECT_EQ(set_mail_handler_state("spam", 2, 1, HandlerState::Disabled), -1);
    EXPECT_EQ(rename_mail_handlers_address("info@example.com", "x@example.com"), -1);
    EXPECT_EQ(remove_mail_handler("spam", 2, 1), -1);
    EXPECT_EQ(remove_address_mail_handler("spam", 2, "info@example.com", 1), -1);
    EXPECT_EQ(remove_mail_handlers_named("spam"), -1);
    EXPECT_THAT(logged(), ElementsAre("3 Unable to execute insert record into handlers database: no inserts",
                                      "3 Unable to execute update record into handlers database: no updates",
                                      "3 Unable to execute update record into handlers database: no updates",
                                      "3 Unable to execute delete record from handlers database: no deletes",
                                      "3 Unable to execute delete record from handlers database: no deletes",
                                      "3 Unable to execute do action on handlers database: no deletes"));
    EXPECT_EQ(all_rows(), "1|2|1|10|spam|info@example.com|/usr/lib/handlers/spam|ctx-spam|0\n");
}

TEST_F(MailHandlersFailureTest, RowThatCannotBeCopiedFailsTheSelection) {
    store_made_of("CREATE TABLE handlers (queue, type, enabled, priority, name, address, executable, context);"
                  "INSERT INTO handlers VALUES(1, 2, 1, 5, 'spam', 'info@example.com', '/bin/true', 'none');"
                  "INSERT INTO handlers VALUES(1, 2, 1, 5, NULL, 'info@example.com', '/bin/true', 'none');");
    MailHandlerList list(1);
    EXPECT_EQ(select_mail_handlers("info@example.com", list), -1);
    EXPECT_EQ(list.size(), 1u);
    EXPECT_THAT(logged(), ElementsAre("3 Unable to save the data from SELECT query"));
}

TEST_F(MailHandlersFailureTest, StepFailuresOfSelections) {
    // A view whose column cannot be computed fails at step time.
    store_made_of("CREATE VIEW handlers AS SELECT 1 AS queue, 2 AS type, 1 AS enabled, "
                  "abs(-9223372036854775807 - 1) AS priority, 'spam' AS name, 'info@example.com' AS address, "
                  "'/bin/true' AS executable, 'none' AS context, 0 AS protected;");
    MailHandlerList list;
    EXPECT_EQ(select_mail_handlers_containing("example", list), -1);
    EXPECT_EQ(select_mail_handlers_to_run(1, 2, "info@example.com", list), -1);
    EXPECT_EQ(clone_mail_handlers("info@example.com", "x@example.com"), -1);
    EXPECT_THAT(logged(), ElementsAre("3 Unable to select data from handlers database: integer overflow",
                                      "3 Unable to get data from mail handlers database: integer overflow",
                                      "3 Unable to select data from handlers database: integer overflow",
                                      "3 Unable to clone handlers data record"));
    EXPECT_TRUE(list.empty());
}

TEST_F(MailHandlersFailureTest, BatchThatRunsOutOfSpaceChangesNothing) {
    const std::string directory = "/var/lib/crelm/mail/handlers";
    ASSERT_EQ(mount("tmpfs", directory.c_str(), "tmpfs", 0, "size=64k"), 0);
    ASSERT_EQ(recreate_mail_handlers_db(), 0);
    for (const char* name : {"spam", "virus", "archive", "notify"})
        ASSERT_EQ(add_mail_handler(handler(name, "info@example.com")), 0);
    fill_file_system(directory + "/filler");
    const std::string before = all_rows();
    EXPECT_EQ(clone_mail_handlers("info@example.com", "contact@example.com"), -1);
    EXPECT_EQ(all_rows(), before);
    EXPECT_THAT(logged(), ElementsAre("3 Unable to execute insert record into handlers database: database or disk is full",
                                      "3 Unable to add records into handlers database"));
    umount2(directory.c_str(), MNT_DETACH);
}

TEST_F(MailHandlersFailureTest, FailuresLeaveNoHandleBehind) {
    std::filesystem::remove(kDb);
    MailHandlerList list;
    EXPECT_EQ(select_mail_handlers("info@example.com", list), -1);
    EXPECT_EQ(add_mail_handler(handler("spam", "info@example.com")), -1);
    EXPECT_EQ(clone_mail_handlers("a@example.com", "b@example.com"), -1);
    EXPECT_EQ(descriptors_open_on(kDb), 0);
    ASSERT_EQ(recreate_mail_handlers_db(), 0);
    EXPECT_EQ(add_mail_handler(handler("spam", "info@example.com")), 0);
    EXPECT_EQ(descriptors_open_on(kDb), 0);
}

}  // namespace
}  // namespace sorvane::test
