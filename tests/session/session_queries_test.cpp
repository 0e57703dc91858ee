// The queries through which commands read the session, and the quota writes.
#include "session/session_queries.h"

#include <sqlite3.h>

#include <stdexcept>

#include "session/session_mail_data.h"
#include "session_test_support.h"
#include "stores/mailbox_quota_db.h"

namespace sorvane::test {
namespace {

using Strings = std::vector<std::string>;
using crelm::mail::KeepOwner;
using crelm::mail::MailboxQuotaDb;

const char* const kDocument = R"({"domain": {"name": "a.test", "dom_aliases": ["b.test", "c.test"],
    "maillists": ["list"], "mails": [
        {"name": "john", "mbox_quota": 2, "mbox_quota_unit": "KB", "aliases": ["j", "jd"]},
        {"name": "mary"}]}})";

class SessionQueryTest : public SessionTest {
protected:
    void fill() { ASSERT_EQ(read_session_text(kDocument), 0); }
};

TEST_F(SessionQueryTest, EveryQueryFailsWhenTheSessionIsNotFilled) {
    std::optional<std::string> domain;
    SessionNameList list;
    EXPECT_EQ(get_domain_by_domainalias("b.test", domain), -1);
    EXPECT_EQ(get_mailnames_by_domain("a.test", list), -1);
    EXPECT_EQ(get_aliases_by_mailname("john", "a.test", list), -1);
    EXPECT_EQ(get_domaliases_by_domain("a.test", list), -1);
    EXPECT_EQ(get_maillists_by_domain("a.test", list), -1);
    EXPECT_EQ(store_default_mbox_quota("a.test"), 0);
    EXPECT_EQ(rm_mbox_quota("a.test", "john"), 0);
    Strings expected;
    for (const char* name : {"get_domain_by_domainalias", "get_mailnames_by_domain", "get_aliases_by_mailname",
                             "get_domaliases_by_domain", "get_maillists_by_domain", "store_default_mbox_quota",
                             "rm_mbox_quota"}) {
        expected.push_back(std::string("Session mail DB info is not filled in call to ") + name +
                           "(). Probably a programming error.");
    }
    EXPECT_EQ(logged(), expected);
}

TEST_F(SessionQueryTest, AnswersForTheSessionsDomain) {
    fill();
    std::optional<std::string> domain;
    SessionNameList list;
    ASSERT_EQ(get_domain_by_domainalias("c.test", domain), 0);
    EXPECT_EQ(domain, "a.test");
    ASSERT_EQ(get_mailnames_by_domain("a.test", list), 0);
    EXPECT_EQ(list, (Strings{"john", "mary"}));
    ASSERT_EQ(get_aliases_by_mailname("john", "a.test", list), 0);
    EXPECT_EQ(list, (Strings{"j", "jd"}));
    ASSERT_EQ(get_domaliases_by_domain("a.test", list), 0);
    EXPECT_EQ(list, (Strings{"b.test", "c.test"}));
    ASSERT_EQ(get_maillists_by_domain("a.test", list), 0);
    EXPECT_EQ(list, (Strings{"list"}));
    EXPECT_TRUE(logged().empty());
}

TEST_F(SessionQueryTest, AnotherDomainSucceedsWithNoList) {
    fill();
    SessionNameList list = Strings{"stale"};
    EXPECT_EQ(get_mailnames_by_domain("other.test", list), 0);
    EXPECT_FALSE(list.has_value());
    list = Strings{"stale"};
    EXPECT_EQ(get_aliases_by_mailname("john", "other.test", list), 0);
    EXPECT_FALSE(list.has_value());
    EXPECT_EQ(get_domaliases_by_domain("other.test", list), 0);
    EXPECT_FALSE(list.has_value());
    EXPECT_EQ(get_maillists_by_domain("other.test", list), 0);
    EXPECT_FALSE(list.has_value());
    std::optional<std::string> domain = "stale";
    EXPECT_EQ(get_domain_by_domainalias("other.test", domain), 0);
    EXPECT_FALSE(domain.has_value());
}

TEST_F(SessionQueryTest, CapitalsFindNothing) {
    fill();
    std::optional<std::string> domain;
    SessionNameList list;
    EXPECT_EQ(get_domain_by_domainalias("B.TEST", domain), 0);
    EXPECT_FALSE(domain.has_value());
    EXPECT_EQ(get_mailnames_by_domain("A.test", list), 0);
    EXPECT_FALSE(list.has_value());
    EXPECT_EQ(get_aliases_by_mailname("John", "a.test", list), 0);
    EXPECT_FALSE(list.has_value());
}

TEST_F(SessionQueryTest, UnknownMailOrMailWithoutAliasesHasNoList) {
    fill();
    SessionNameList list;
    EXPECT_EQ(get_aliases_by_mailname("nobody", "a.test", list), 0);
    EXPECT_FALSE(list.has_value());
    EXPECT_EQ(get_aliases_by_mailname("mary", "a.test", list), 0);
    EXPECT_FALSE(list.has_value());
}

TEST_F(SessionQueryTest, DomainWithoutMailsHasAnEmptyListNotNone) {
    ASSERT_EQ(read_session_text(R"({"domain": {"name": "a.test"}})"), 0);
    SessionNameList list;
    EXPECT_EQ(get_mailnames_by_domain("a.test", list), 0);
    ASSERT_TRUE(list.has_value());
    EXPECT_TRUE(list->empty());
    EXPECT_EQ(get_domaliases_by_domain("a.test", list), 0);
    ASSERT_TRUE(list.has_value());
    EXPECT_TRUE(list->empty());
}

TEST_F(SessionQueryTest, DomainAliasesNeedADomainName) {
    ASSERT_EQ(read_session_text(R"({"domain": {"dom_aliases": ["b.test"]}})"), 0);
    SessionNameList list;
    EXPECT_EQ(get_domaliases_by_domain("a.test", list), -1);
    EXPECT_EQ(logged(), (Strings{"Session mail DB info has missing domain name in call to get_domaliases_by_domain(). "
                                 "Probably a programming error."}));
    std::optional<std::string> domain;
    EXPECT_EQ(get_domain_by_domainalias("b.test", domain), 0);
    EXPECT_FALSE(domain.has_value());
}

TEST_F(SessionQueryTest, ActiveDomainAliasesAreNotAvailable) {
    fill();
    SessionNameList list;
    try {
        append_active_domaliases_by_domain("a.test", list);
        FAIL() << "no exception";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "Function append_active_domaliases_by_domain is not implemented for JSON/STDIN");
    }
}

// The quota store with its table, optionally refusing one mailbox.
void create_quota_store(const char* refused_mailbox = nullptr) {
    ASSERT_TRUE(MailboxQuotaDb().recreate(KeepOwner::Yes));
    if (refused_mailbox == nullptr) {
        return;
    }
    sqlite3* db = nullptr;
    ASSERT_EQ(sqlite3_open(MailboxQuotaDb::kDefaultPath, &db), SQLITE_OK);
    const std::string trigger = std::string("CREATE TRIGGER refuse BEFORE INSERT ON mailbox_quota WHEN "
                                            "NEW.mailbox_name = '") + refused_mailbox +
                                "' BEGIN SELECT RAISE(ABORT, 'refused'); END;";
    EXPECT_EQ(sqlite3_exec(db, trigger.c_str(), nullptr, nullptr, nullptr), SQLITE_OK);
    sqlite3_close(db);
}

TEST_F(SessionQueryTest, DefaultQuotasAreStoredInBytesForEveryMail) {
    create_quota_store();
    fill();
    EXPECT_EQ(store_default_mbox_quota("a.test"), 1);
    EXPECT_EQ(MailboxQuotaDb().getQuota("a.test", "john"), 2048);
    EXPECT_EQ(MailboxQuotaDb().getQuota("a.test", "mary"), 0);  // unlimited is stored as 0B
    EXPECT_TRUE(logged().empty());
}

TEST_F(SessionQueryTest, DefaultQuotasForAnotherDomainAreRefused) {
    create_quota_store();
    fill();
    EXPECT_EQ(store_default_mbox_quota("other.test"), 0);
    EXPECT_EQ(logged(), (Strings{"Session mail DB info is invalid, expected one for domain 'other.test', got 'a.test'"}));
    EXPECT_EQ(MailboxQuotaDb().getQuota("other.test", "john"), -1);
}

TEST_F(SessionQueryTest, DefaultQuotasStopAtTheFirstStoreFailure) {
    create_quota_store("john");
    ASSERT_EQ(read_session_text(R"({"domain": {"name": "a.test", "mails": [{"name": "first", "mbox_quota": 5},
        {"name": "john"}, {"name": "last"}]}})"),
              0);
    EXPECT_EQ(store_default_mbox_quota("a.test"), 0);
    const Strings messages = logged();
    ASSERT_FALSE(messages.empty());
    EXPECT_EQ(messages.back(), "Unable to set default mbox quota for domain 'a.test' (processing 'john')");
    EXPECT_EQ(MailboxQuotaDb().getQuota("a.test", "first"), 5);
    EXPECT_EQ(MailboxQuotaDb().getQuota("a.test", "last"), -1);
}

TEST_F(SessionQueryTest, MailboxQuotaOfAKnownMailIsWritten) {
    create_quota_store();
    fill();
    EXPECT_EQ(rm_mbox_quota("a.test", "john"), 1);
    EXPECT_EQ(MailboxQuotaDb().getQuota("a.test", "john"), 2048);
    EXPECT_TRUE(logged().empty());
}

TEST_F(SessionQueryTest, MailboxQuotaOfAnUnknownMailIsReportedAndWrittenAsZero) {
    create_quota_store();
    fill();
    ASSERT_TRUE(MailboxQuotaDb().setQuota("a.test", "nobody", 77));
    EXPECT_EQ(rm_mbox_quota("a.test", "nobody"), 1);
    EXPECT_EQ(logged(), (Strings{"Mailbox 'nobody' not found in session mail DB."}));
    EXPECT_EQ(MailboxQuotaDb().getQuota("a.test", "nobody"), 0);
}

TEST_F(SessionQueryTest, MailboxQuotaGivesTheStoresFailure) {
    create_quota_store("john");
    fill();
    EXPECT_EQ(rm_mbox_quota("a.test", "john"), 0);
}

}  // namespace
}  // namespace sorvane::test
