// Batch operations of the mail handlers store: clone, switch and remove the
// handlers of an address or of a whole domain.
#include "mail_handlers_test_support.h"

#include <gmock/gmock.h>

#include <filesystem>

namespace sorvane::test {
namespace {

using ::testing::ElementsAre;

class MailHandlersBatchTest : public MailHandlersTest {
protected:
    void SetUp() override {
        MailHandlersTest::SetUp();
        ASSERT_EQ(add_mail_handler(handler("spam", "info@example.com", 5)), 0);
        ASSERT_EQ(add_mail_handler(handler("virus", "info@example.com", 9, false)), 0);
        ASSERT_EQ(add_mail_handler(handler("spam", "sales@example.com")), 0);
        ASSERT_EQ(add_mail_handler(handler("spam", "info@example.com.au")), 0);
    }

    static std::string addresses() {
        return rows("SELECT address, name, enabled FROM handlers ORDER BY address, name;");
    }
};

TEST_F(MailHandlersBatchTest, CloneCopiesEveryRowAndKeepsTheOldOnes) {
    ASSERT_EQ(clone_mail_handlers("info@example.com", "contact@example.com"), 0);
    EXPECT_EQ(rows("SELECT * FROM handlers WHERE address='contact@example.com' ORDER BY name;"),
              "1|2|1|5|spam|contact@example.com|/usr/lib/handlers/spam|ctx-spam|0\n"
              "1|2|0|9|virus|contact@example.com|/usr/lib/handlers/virus|ctx-virus|0\n");
    EXPECT_EQ(rows("SELECT count(*) FROM handlers WHERE address='info@example.com';"), "2\n");
    EXPECT_TRUE(logged().empty());
}

// Rows as another writer may leave them: protected, a priority beyond 32
// bits, an enabled flag other than 0 or 1.
TEST_F(MailHandlersBatchTest, CloneKeepsEveryColumnOfEveryRow) {
    MailHandlerRecord kept = handler("archive", "info@example.com", 3, false);
    kept.protect_on_restore = true;
    ASSERT_EQ(add_mail_handler(kept), 0);
    rows("INSERT INTO handlers VALUES (7, 4, 2, 5000000000, 'notify', 'info@example.com', '/usr/bin/notify', "
         "'ctx notify', 1);");
    ASSERT_EQ(clone_mail_handlers("info@example.com", "contact@example.com"), 0);
    const std::string columns_but_address = "queue, type, enabled, priority, name, executable, context, protected";
    EXPECT_EQ(rows("SELECT * FROM handlers WHERE address='contact@example.com' ORDER BY name;"),
              "1|2|0|3|archive|contact@example.com|/usr/lib/handlers/archive|ctx-archive|1\n"
              "7|4|2|5000000000|notify|contact@example.com|/usr/bin/notify|ctx notify|1\n"
              "1|2|1|5|spam|contact@example.com|/usr/lib/handlers/spam|ctx-spam|0\n"
              "1|2|0|9|virus|contact@example.com|/usr/lib/handlers/virus|ctx-virus|0\n");
    const auto columns_at = [&](const std::string& address) {
        return rows("SELECT " + columns_but_address + " FROM handlers WHERE address='" + address + "' ORDER BY name;");
    };
    EXPECT_EQ(columns_at("contact@example.com"), columns_at("info@example.com"));
    EXPECT_TRUE(logged().empty());
}

TEST_F(MailHandlersBatchTest, CloneOfADomainKeepsTheProtectedFlag) {
    MailHandlerRecord kept = handler("archive", "sales@example.com", 3);
    kept.protect_on_restore = true;
    ASSERT_EQ(add_mail_handler(kept), 0);
    ASSERT_EQ(clone_domain_mail_handlers("example.com", "alias.test"), 0);
    EXPECT_EQ(rows("SELECT * FROM handlers WHERE address LIKE '%@alias.test' ORDER BY address, name;"),
              "1|2|1|5|spam|info@alias.test|/usr/lib/handlers/spam|ctx-spam|0\n"
              "1|2|0|9|virus|info@alias.test|/usr/lib/handlers/virus|ctx-virus|0\n"
              "1|2|1|3|archive|sales@alias.test|/usr/lib/handlers/archive|ctx-archive|1\n"
              "1|2|1|10|spam|sales@alias.test|/usr/lib/handlers/spam|ctx-spam|0\n");
}

TEST_F(MailHandlersBatchTest, RemovingADomainTakesRowsStoredInMixedCase) {
    ASSERT_EQ(rename_mail_handlers_address("sales@example.com", "Sales@Example.COM"), 0);
    ASSERT_EQ(remove_domain_mail_handlers("example.com"), 0);
    EXPECT_EQ(addresses(), "info@example.com.au|spam|1\n");
    EXPECT_TRUE(logged().empty());
}

TEST_F(MailHandlersBatchTest, CloneOfAnAddressWithoutHandlersChangesNothing) {
    const std::string before = addresses();
    ASSERT_EQ(clone_mail_handlers("nobody@example.com", "contact@example.com"), 0);
    EXPECT_EQ(addresses(), before);
}

TEST_F(MailHandlersBatchTest, SwitchingEveryHandlerOfAnAddress) {
    ASSERT_EQ(set_mail_handlers_state_of_address("info@example.com", HandlerState::Disabled), 0);
    EXPECT_EQ(addresses(),
              "info@example.com|spam|0\ninfo@example.com|virus|0\ninfo@example.com.au|spam|1\n"
              "sales@example.com|spam|1\n");
    ASSERT_EQ(set_mail_handlers_state_of_address("info@example.com", HandlerState::Enabled), 0);
    EXPECT_EQ(rows("SELECT enabled FROM handlers WHERE address='info@example.com';"), "1\n1\n");
}

TEST_F(MailHandlersBatchTest, CloneOfADomainTakesOnlyItsOwnAddresses) {
    ASSERT_EQ(clone_domain_mail_handlers("Example.com", "alias.test"), 0);
    EXPECT_EQ(rows("SELECT address, name FROM handlers WHERE address LIKE '%alias.test' ORDER BY address, name;"),
              "info@alias.test|spam\ninfo@alias.test|virus\nsales@alias.test|spam\n");
    EXPECT_EQ(rows("SELECT count(*) FROM handlers;"), "7\n");
}

TEST_F(MailHandlersBatchTest, RemovingADomainLeavesLongerDomainsAlone) {
    ASSERT_EQ(remove_domain_mail_handlers("example.com"), 0);
    EXPECT_EQ(addresses(), "info@example.com.au|spam|1\n");
}

TEST_F(MailHandlersBatchTest, SwitchingADomain) {
    ASSERT_EQ(set_domain_mail_handlers_state("example.com", HandlerState::Disabled), 0);
    EXPECT_EQ(addresses(),
              "info@example.com|spam|0\ninfo@example.com|virus|0\ninfo@example.com.au|spam|1\n"
              "sales@example.com|spam|0\n");
    ASSERT_EQ(set_domain_mail_handlers_state("example.com", HandlerState::Enabled), 0);
    EXPECT_EQ(rows("SELECT count(*) FROM handlers WHERE enabled=1;"), "4\n");
}

TEST_F(MailHandlersBatchTest, MovingADomainIsCloneThenRemove) {
    ASSERT_EQ(clone_domain_mail_handlers("example.com", "new.test"), 0);
    ASSERT_EQ(remove_domain_mail_handlers("example.com"), 0);
    EXPECT_EQ(addresses(),
              "info@example.com.au|spam|1\ninfo@new.test|spam|1\ninfo@new.test|virus|0\nsales@new.test|spam|1\n");
}

TEST_F(MailHandlersBatchTest, AFailedRecordLeavesTheWholeBatchUndone) {
    rows("CREATE TRIGGER refuse BEFORE INSERT ON handlers WHEN NEW.name='virus' "
         "BEGIN SELECT RAISE(ABORT, 'virus refused'); END;");
    const std::string before = addresses();
    EXPECT_EQ(clone_mail_handlers("info@example.com", "contact@example.com"), -1);
    EXPECT_EQ(addresses(), before);
    EXPECT_THAT(logged(), ElementsAre("3 Unable to execute insert record into handlers database: virus refused",
                                      "3 Unable to add records into handlers database"));
}

TEST_F(MailHandlersBatchTest, AFailedSwitchLeavesTheWholeBatchUndone) {
    rows("CREATE TRIGGER refuse BEFORE UPDATE ON handlers WHEN NEW.name='virus' "
         "BEGIN SELECT RAISE(ABORT, 'virus stays'); END;");
    const std::string before = addresses();
    EXPECT_EQ(set_mail_handlers_state_of_address("info@example.com", HandlerState::Disabled), -1);
    EXPECT_EQ(addresses(), before);
    EXPECT_THAT(logged(), ElementsAre("3 Unable to execute update record into handlers database: virus stays",
                                      "3 Unable to enable or disable mail handlers"));
}

TEST_F(MailHandlersBatchTest, AFailedDomainRemovalLeavesTheWholeBatchUndone) {
    rows("CREATE TRIGGER refuse BEFORE DELETE ON handlers WHEN OLD.name='virus' "
         "BEGIN SELECT RAISE(ABORT, 'virus stays'); END;");
    const std::string before = addresses();
    EXPECT_EQ(remove_domain_mail_handlers("example.com"), -1);
    EXPECT_EQ(addresses(), before);
    EXPECT_THAT(logged(), ElementsAre("3 Unable to execute delete record from handlers database: virus stays"));
}

TEST_F(MailHandlersBatchTest, MissingDatabaseFailsEveryBatchAndStaysMissing) {
    std::filesystem::remove(kDefaultMailHandlersDbPath);
    const std::string open_failure = "3 Unable to open database(readonly) " + std::string(kDefaultMailHandlersDbPath) +
                                     ": unable to open database file";
    EXPECT_EQ(clone_mail_handlers("info@example.com", "x@example.com"), -1);
    EXPECT_EQ(set_mail_handlers_state_of_address("info@example.com", HandlerState::Enabled), -1);
    EXPECT_EQ(clone_domain_mail_handlers("example.com", "alias.test"), -1);
    EXPECT_EQ(remove_domain_mail_handlers("example.com"), -1);
    EXPECT_EQ(set_domain_mail_handlers_state("example.com", HandlerState::Disabled), -1);
    EXPECT_THAT(logged(), ElementsAre(open_failure, "3 Unable to clone handlers data record", open_failure,
                                      "3 Unable to select mail handlers by address 'info@example.com'", open_failure,
                                      "3 Unable to clone handlers data record", open_failure,
                                      "3 Unable to select mail handlers by address '@example.com'", open_failure,
                                      "3 Unable to select mail handlers by address '@example.com'"));
    EXPECT_FALSE(path_exists(kDefaultMailHandlersDbPath));
}

}  // namespace
}  // namespace sorvane::test
