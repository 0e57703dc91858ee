// Single operations, selections and re-creation of the mail handlers store.
#include "mail_handlers_test_support.h"

#include <gmock/gmock.h>
#include <sys/mount.h>

#include <filesystem>
#include <sstream>

namespace sorvane::test {
namespace {

using ::testing::ElementsAre;

const std::string kHandlersSchemaInMaster =
    "table|handlers|CREATE TABLE handlers (queue INTEGER, type INTEGER, enabled BOOLEAN, priority INTEGER, name "
    "VARCHAR(255) NOT NULL, address VARCHAR(2048) NOT NULL, executable VARCHAR(2048) NOT NULL, context VARCHAR(2048) "
    "NOT NULL, protected BOOLEAN NOT NULL default 0, CONSTRAINT uniq_entries_constaraint PRIMARY KEY (queue, type, "
    "name, address))\n"
    "index|idx1|CREATE INDEX idx1 ON handlers(queue, type, enabled, address)\n"
    "index|idx2|CREATE INDEX idx2 ON handlers(queue, type, enabled, address, priority)\n"
    "index|idx3|CREATE INDEX idx3 ON handlers(name, queue, type, address)\n"
    "index|idx4|CREATE INDEX idx4 ON handlers(name, queue, type)\n";

const std::string kMasterQuery = "SELECT type, name, sql FROM sqlite_master WHERE sql IS NOT NULL ORDER BY rowid;";

std::string names_of(const MailHandlerList& list) {
    std::string names;
    for (const MailHandlerRecord& record : list)
        names += record.name + "@" + record.address + ";";
    return names;
}

class MailHandlersStoreTest : public MailHandlersTest {};

TEST_F(MailHandlersStoreTest, RecreateWritesTheSchemaExactlyWithOwnerAndMode) {
    EXPECT_EQ(rows(kMasterQuery), kHandlersSchemaInMaster);
    const FileInfo info = file_info(kDefaultMailHandlersDbPath);
    EXPECT_EQ(info.uid, 0u);
    EXPECT_EQ(info.gid, popuser_gid());
    EXPECT_EQ(info.mode, 0640u);
}

TEST_F(MailHandlersStoreTest, RecreateMakesTheDirectoryAndReplacesTheOldFile) {
    ASSERT_EQ(add_mail_handler(handler("spam", "info@example.com")), 0);
    ASSERT_EQ(recreate_mail_handlers_db(), 0);
    EXPECT_EQ(all_rows(), "");
    std::filesystem::remove_all("/var/lib/crelm/mail/handlers");
    ASSERT_EQ(recreate_mail_handlers_db(), 0);
    EXPECT_EQ(rows(kMasterQuery), kHandlersSchemaInMaster);
}

TEST_F(MailHandlersStoreTest, RecreateWithoutGroupPopuserDeletesTheNewFile) {
    std::string kept;
    std::istringstream lines(read_file("/etc/group"));
    for (std::string line; std::getline(lines, line);)
        if (line.rfind("popuser:", 0) != 0)
            kept += line + "\n";
    write_file("/etc/group", kept);
    EXPECT_EQ(recreate_mail_handlers_db(), -1);
    EXPECT_THAT(logged(), ElementsAre("3 Unable to get mail handlers group uid: group popuser not found"));
    EXPECT_FALSE(path_exists(kDefaultMailHandlersDbPath));
}

TEST_F(MailHandlersStoreTest, RecreateReportsADirectoryThatCannotBeMade) {
    write_file(scratch_dir() + "/file", "");
    const std::string path = scratch_dir() + "/file/handlers.db";
    set_mail_handlers_db_path(path);
    EXPECT_EQ(recreate_mail_handlers_db(), -1);
    EXPECT_THAT(logged(),
                ElementsAre("3 Unable to create directories for mail handlers database (" + path +
                                "): Not a directory (20)",
                            "3 Unable to create directory for mail handlers database for(" + path +
                                "): Not a directory"));
}

TEST_F(MailHandlersStoreTest, RecreateRefusesAPathWithoutDirectory) {
    set_mail_handlers_db_path("handlers.db");
    EXPECT_EQ(recreate_mail_handlers_db(), -1);
    EXPECT_THAT(logged(), ElementsAre("3 Unable to get dirname for mail handlers database (handlers.db): Invalid "
                                      "argument (22)",
                                      "3 Unable to create directory for mail handlers database for(handlers.db): "
                                      "Invalid argument"));
}

TEST_F(MailHandlersStoreTest, RecreateThatRunsOutOfSpaceLeavesNoFile) {
    ASSERT_EQ(mount("tmpfs", "/var/lib/crelm/mail/handlers", "tmpfs", 0, "size=8k"), 0);
    EXPECT_EQ(recreate_mail_handlers_db(), -1);
    EXPECT_THAT(logged(), ElementsAre("3 Unable to re-create mail handlers database: database or disk is full"));
    EXPECT_EQ(list_tree("/var/lib/crelm/mail/handlers"), std::vector<std::string>{});
    umount2("/var/lib/crelm/mail/handlers", MNT_DETACH);
}

TEST_F(MailHandlersStoreTest, InsertStoresEveryFieldWithTheAddressInLowerCase) {
    MailHandlerRecord record = handler("spam", "Info@Example.com", 7);
    record.protect_on_restore = true;
    ASSERT_EQ(add_mail_handler(record), 0);
    EXPECT_EQ(all_rows(), "1|2|1|7|spam|info@example.com|/usr/lib/handlers/spam|ctx-spam|1\n");
    EXPECT_TRUE(logged().empty());
}

TEST_F(MailHandlersStoreTest, MissingContextIsStoredAsNone) {
    MailHandlerRecord record = handler("spam", "info@example.com");
    record.context.reset();
    ASSERT_EQ(add_mail_handler(record), 0);
    EXPECT_EQ(rows("SELECT context FROM handlers;"), "none\n");
}

TEST_F(MailHandlersStoreTest, InsertingTheSameKeyTwiceKeepsOneRow) {
    ASSERT_EQ(add_mail_handler(handler("spam", "info@example.com", 1)), 0);
    ASSERT_EQ(add_mail_handler(handler("spam", "INFO@example.com", 9, false)), 0);
    EXPECT_EQ(all_rows(), "1|2|0|9|spam|info@example.com|/usr/lib/handlers/spam|ctx-spam|0\n");
}

TEST_F(MailHandlersStoreTest, DeleteWithAddressMatchesRegardlessOfCase) {
    ASSERT_EQ(add_mail_handler(handler("spam", "info@example.com")), 0);
    ASSERT_EQ(add_mail_handler(handler("spam", "sales@example.com")), 0);
    ASSERT_EQ(remove_address_mail_handler("spam", 2, "Info@Example.COM", 1), 0);
    EXPECT_EQ(rows("SELECT address FROM handlers;"), "sales@example.com\n");
}

TEST_F(MailHandlersStoreTest, SelectOfAnAddressDoesNotLowerItsArgument) {
    ASSERT_EQ(add_mail_handler(handler("spam", "info@example.com")), 0);
    MailHandlerList list;
    ASSERT_EQ(select_mail_handlers("Info@Example.com", list), 0);
    EXPECT_TRUE(list.empty());
}

TEST_F(MailHandlersStoreTest, DeleteOfAnAddressWrittenInMixedCase) {
    ASSERT_EQ(add_mail_handler(handler("spam", "info@example.com")), 0);
    ASSERT_EQ(add_mail_handler(handler("virus", "info@example.com")), 0);
    ASSERT_EQ(add_mail_handler(handler("spam", "sales@example.com")), 0);
    ASSERT_EQ(remove_mail_handlers_of_address("Info@Example.COM"), 0);
    EXPECT_EQ(all_rows(), "1|2|1|10|spam|sales@example.com|/usr/lib/handlers/spam|ctx-spam|0\n");
    EXPECT_TRUE(logged().empty());
}

// A rename stores the new address as given, so a row may carry capitals.
TEST_F(MailHandlersStoreTest, DeletesFindARowStoredInMixedCase) {
    ASSERT_EQ(add_mail_handler(handler("spam", "info@example.com")), 0);
    ASSERT_EQ(add_mail_handler(handler("virus", "sales@example.com")), 0);
    ASSERT_EQ(add_mail_handler(handler("spam", "office@example.com")), 0);
    ASSERT_EQ(rename_mail_handlers_address("info@example.com", "Info@Example.com"), 0);
    ASSERT_EQ(rename_mail_handlers_address("sales@example.com", "SALES@example.com"), 0);
    ASSERT_EQ(remove_mail_handlers_of_address("info@example.com"), 0);
    ASSERT_EQ(remove_address_mail_handler("virus", 2, "sales@example.com", 1), 0);
    EXPECT_EQ(all_rows(), "1|2|1|10|spam|office@example.com|/usr/lib/handlers/spam|ctx-spam|0\n");
    EXPECT_TRUE(logged().empty());
}

TEST_F(MailHandlersStoreTest, SelectOfAnAddressReadsEveryField) {
    ASSERT_EQ(add_mail_handler(handler("spam", "info@example.com", 5, false)), 0);
    ASSERT_EQ(add_mail_handler(handler("virus", "sales@example.com")), 0);
    MailHandlerList list;
    ASSERT_EQ(select_mail_handlers("info@example.com", list), 0);
    ASSERT_EQ(list.size(), 1u);
    const MailHandlerRecord& found = list[0];
    EXPECT_EQ(found.priority, 5);
    EXPECT_EQ(found.type, 2);
    EXPECT_EQ(found.queue, 1);
    EXPECT_EQ(found.name, "spam");
    EXPECT_EQ(found.address, "info@example.com");
    EXPECT_EQ(found.executable, "/usr/lib/handlers/spam");
    EXPECT_EQ(found.context, "ctx-spam");
    EXPECT_FALSE(found.enabled);
}

TEST_F(MailHandlersStoreTest, SelectContainingIgnoresCase) {
    ASSERT_EQ(add_mail_handler(handler("spam", "info@example.com")), 0);
    ASSERT_EQ(add_mail_handler(handler("virus", "sales@example.com")), 0);
    ASSERT_EQ(add_mail_handler(handler("spam", "info@other.test")), 0);
    MailHandlerList list;
    ASSERT_EQ(select_mail_handlers_containing("EXAMPLE.com", list), 0);
    EXPECT_EQ(names_of(list), "spam@info@example.com;virus@sales@example.com;");
}

TEST_F(MailHandlersStoreTest, HandlersToRunAreTheEnabledOnesHighestPriorityFirst) {
    ASSERT_EQ(add_mail_handler(handler("low", "info@example.com", 1)), 0);
    ASSERT_EQ(add_mail_handler(handler("high", "info@example.com", 50)), 0);
    ASSERT_EQ(add_mail_handler(handler("off", "info@example.com", 99, false)), 0);
    MailHandlerRecord other_queue = handler("queue2", "info@example.com", 70);
    other_queue.queue = 2;
    ASSERT_EQ(add_mail_handler(other_queue), 0);
    MailHandlerList list;
    ASSERT_EQ(select_mail_handlers_to_run(1, 2, "info@example.com", list), 0);
    ASSERT_EQ(list.size(), 2u);
    EXPECT_EQ(list[0].name, "high");
    EXPECT_EQ(list[0].executable, "/usr/lib/handlers/high");
    EXPECT_EQ(list[0].context, "ctx-high");
    EXPECT_EQ(list[1].name, "low");
}

TEST_F(MailHandlersStoreTest, DeleteByNameTypeAndQueueTakesEveryAddress) {
    ASSERT_EQ(add_mail_handler(handler("spam", "info@example.com")), 0);
    ASSERT_EQ(add_mail_handler(handler("spam", "sales@example.com")), 0);
    ASSERT_EQ(add_mail_handler(handler("virus", "sales@example.com")), 0);
    ASSERT_EQ(remove_mail_handler("spam", 2, 1), 0);
    EXPECT_EQ(rows("SELECT name FROM handlers;"), "virus\n");
}

TEST_F(MailHandlersStoreTest, DeleteByName) {
    ASSERT_EQ(add_mail_handler(handler("spam", "info@example.com")), 0);
    ASSERT_EQ(add_mail_handler(handler("virus", "info@example.com")), 0);
    ASSERT_EQ(remove_mail_handlers_named("spam"), 0);
    EXPECT_EQ(rows("SELECT name FROM handlers;"), "virus\n");
}

TEST_F(MailHandlersStoreTest, SwitchingOneHandler) {
    ASSERT_EQ(add_mail_handler(handler("spam", "info@example.com")), 0);
    ASSERT_EQ(add_mail_handler(handler("spam", "sales@example.com")), 0);
    ASSERT_EQ(set_mail_handler_state("spam", 2, 1, HandlerState::Disabled), 0);
    EXPECT_EQ(rows("SELECT enabled FROM handlers;"), "0\n0\n");
    ASSERT_EQ(set_address_mail_handler_state("spam", 2, 1, "sales@example.com", HandlerState::Enabled), 0);
    EXPECT_EQ(rows("SELECT address, enabled FROM handlers ORDER BY address;"),
              "info@example.com|0\nsales@example.com|1\n");
    ASSERT_EQ(set_mail_handlers_state_by_name("spam", HandlerState::Enabled), 0);
    EXPECT_EQ(rows("SELECT enabled FROM handlers;"), "1\n1\n");
}

TEST_F(MailHandlersStoreTest, RenameAddressMovesEveryHandler) {
    ASSERT_EQ(add_mail_handler(handler("spam", "info@example.com")), 0);
    ASSERT_EQ(add_mail_handler(handler("virus", "info@example.com")), 0);
    ASSERT_EQ(add_mail_handler(handler("spam", "sales@example.com")), 0);
    ASSERT_EQ(rename_mail_handlers_address("info@example.com", "contact@example.com"), 0);
    EXPECT_EQ(rows("SELECT name, address FROM handlers ORDER BY address, name;"),
              "spam|contact@example.com\nvirus|contact@example.com\nspam|sales@example.com\n");
}

TEST_F(MailHandlersStoreTest, GlobalHandlerWithEmptyAddressLivesUnderAll) {
    ASSERT_EQ(add_global_mail_handler(handler("spam", "")), 0);
    ASSERT_EQ(add_global_mail_handler(handler("virus", "all-recipients")), 0);
    EXPECT_EQ(rows("SELECT name, address FROM handlers ORDER BY name;"), "spam|all\nvirus|all-recipients\n");
    MailHandlerList list;
    ASSERT_EQ(select_global_mail_handlers("", list), 0);
    ASSERT_EQ(select_global_mail_handlers("all-recipients", list), 0);
    EXPECT_EQ(names_of(list), "spam@all;virus@all-recipients;");
}

TEST_F(MailHandlersStoreTest, GlobalHandlerWithAnotherAddressIsRefused) {
    EXPECT_EQ(add_global_mail_handler(handler("spam", "info@example.com")), -1);
    MailHandlerList list;
    EXPECT_EQ(select_global_mail_handlers("info@example.com", list), -1);
    EXPECT_THAT(logged(),
                ElementsAre("3 Incorrect recipient address for global handler, expected "
                            "[NULL|EMPTY_STRING|all|all-recipients]",
                            "3 Incorrect recipient address for global handler `info@example.com', expected "
                            "[NULL|all|all-recipients]"));
    EXPECT_EQ(all_rows(), "");
}

}  // namespace
}  // namespace sorvane::test
