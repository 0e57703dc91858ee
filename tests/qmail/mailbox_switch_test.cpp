#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "qmail/mailname_files.h"
#include "qmail/qmail_test_support.h"
#include "qmail/session_hooks.h"
#include "stores/mail_auth_paths.h"

namespace sorvane::test {
namespace {

class MailboxSwitchTest : public QmailTest {
protected:
    void SetUp() override {
        QmailTest::SetUp();
        make_domain_dir("example.test");
        crelm::qmail::SessionHooks hooks;
        hooks.init_quota_record = [this](std::string_view domain, std::string_view mailname) {
            quota_calls_.push_back(std::string(mailname) + "@" + std::string(domain));
            return quota_result_;
        };
        crelm::qmail::set_qmail_session_hooks(hooks);
        ASSERT_EQ(create_mailname("info", "example.test"), 0);
        quota_calls_.clear();
        ASSERT_EQ(add_auth_user("info", "example.test"), 0);
        qmail_ = home_of("info", "example.test") + "/.qmail";
    }

    std::vector<std::string> quota_calls_;
    int quota_result_ = 1;
    std::string qmail_;
};

TEST_F(MailboxSwitchTest, OnAddsDeliveryLineThenQuotaRecord) {
    install_lda(kDeliverquotaPath);
    write_default_delivery(std::string(kDeliverquotaLine) + "\n");
    ASSERT_EQ(mailname_mailbox_on("info", "example.test"), 0);
    EXPECT_EQ(read_file(qmail_), "| true\n| /usr/bin/deliverquota ./Maildir\n");
    expect_popuser_entry(qmail_, 0600, 'f');
    EXPECT_EQ(quota_calls_, std::vector<std::string>{"info@example.test"});
    EXPECT_EQ(auth_users(), "info@example.test\n");
    EXPECT_TRUE(logged().empty());
}

TEST_F(MailboxSwitchTest, FailedDeliveryLineSwitchesTheMailboxOffAgain) {
    install_lda(kDeliverquotaPath);  // and no ".default_delivery"
    EXPECT_EQ(mailname_mailbox_on("info", "example.test"), -1);
    EXPECT_EQ(read_file(qmail_), "| true\n");
    EXPECT_EQ(auth_users(), "");
    EXPECT_TRUE(quota_calls_.empty());
}

TEST_F(MailboxSwitchTest, FailedQuotaRecordIsReportedNotFatal) {
    install_lda(kDeliverquotaPath);
    write_default_delivery(std::string(kDeliverquotaLine) + "\n");
    quota_result_ = 0;
    EXPECT_EQ(mailname_mailbox_on("info", "example.test"), -1);
    EXPECT_EQ(read_file(qmail_), "| true\n| /usr/bin/deliverquota ./Maildir\n");
    EXPECT_EQ(logged(), std::vector<std::string>{"3 Unable to initialize quota settings for info@example.test"});
}

TEST_F(MailboxSwitchTest, OffRemovesAuthRecordThenDeliveryLine) {
    write_file(qmail_, "| true\n| /usr/bin/deliverquota ./Maildir\n", 0644);
    ASSERT_EQ(mailname_mailbox_off("info", "example.test"), 0);
    EXPECT_EQ(auth_users(), "");
    EXPECT_EQ(read_file(qmail_), "| true\n");
    expect_popuser_entry(qmail_, 0600, 'f');
}

TEST_F(MailboxSwitchTest, OffKeepsDeliveryLineWhenAuthRecordCannotGo) {
    write_file(qmail_, "| true\n| /usr/bin/deliverquota ./Maildir\n", 0600);
    ASSERT_EQ(unlink(mail_auth_db_path().c_str()), 0);
    write_file(mail_auth_db_path(), "not a database\n");
    EXPECT_EQ(mailname_mailbox_off("info", "example.test"), -1);
    EXPECT_EQ(read_file(qmail_), "| true\n| /usr/bin/deliverquota ./Maildir\n");
}

TEST_F(MailboxSwitchTest, EmptyNamesAreRefused) {
    EXPECT_EQ(mailname_mailbox_on("", "example.test"), -1);
    EXPECT_EQ(mailname_mailbox_off("info", ""), -1);
    EXPECT_EQ(logged(), (std::vector<std::string>{"3 empty mailname or maildomain", "3 empty mailname or maildomain"}));
    EXPECT_EQ(auth_users(), "info@example.test\n");
}

}  // namespace
}  // namespace sorvane::test
