#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "qmail/delivery.h"
#include "qmail/qmail_test_support.h"

namespace sorvane::test {
namespace {

const std::string kNoLda = "3 Unable to detect IMAP/POP3 server type - no LDA found";

class DeliveryTest : public QmailTest {
protected:
    void SetUp() override {
        QmailTest::SetUp();
        ASSERT_FALSE(path_exists(kDeliverquotaPath)) << "the host's own deliverquota would be found first";
        make_domain_dir("example.test");
        home_ = home_of("info", "example.test");
        ASSERT_EQ(mkdir(home_.c_str(), 0700), 0);
        qmail_ = home_ + "/.qmail";
    }

    // A server with deliverquota and its delivery line as the default.
    static void deliverquota_server() {
        install_lda(kDeliverquotaPath);
        write_default_delivery(std::string(kDeliverquotaLine) + "\n");
    }

    std::string home_;
    std::string qmail_;
};

TEST_F(DeliveryTest, KnownDeliveryLinesInRemovalOrder) {
    EXPECT_EQ(known_delivery_lines(),
              (std::vector<std::string>{
                  "./Maildir/", "| /usr/bin/deliverquota ./Maildir",
                  "| /usr/bin/deliverquota -w 94 -x /usr/lib/crelm-9.0/send-quota-warning ./Maildir",
                  "| /usr/bin/deliverquota -w 95 -x /usr/lib/crelm-9.0/send-quota-warning ./Maildir",
                  "| /usr/lib/dovecot/dovecot-lda -d \"$DELIVERED_TO\" -a \"${ORIGINAL_RECIPIENT:-$DELIVERED_TO}\""}));
}

TEST_F(DeliveryTest, BothLdasPresentGivesDeliverquota) {
    install_lda(kDeliverquotaPath);
    install_lda(kDovecotLdaPath);
    EXPECT_EQ(detect_lda(), kLdaDeliverquota);
    EXPECT_TRUE(logged().empty());
}

TEST_F(DeliveryTest, DovecotAloneGivesDovecot) {
    hide_directory("/usr/lib/dovecot");
    install_lda(kDovecotLdaPath);
    EXPECT_EQ(detect_lda(), kLdaDovecot);
}

TEST_F(DeliveryTest, KindIsKeptForTheProcess) {
    install_lda(kDeliverquotaPath);
    ASSERT_EQ(detect_lda(), kLdaDeliverquota);
    ASSERT_EQ(chmod(kDeliverquotaPath, 0644), 0);
    EXPECT_EQ(detect_lda(), kLdaDeliverquota);
    EXPECT_TRUE(logged().empty());
}

TEST_F(DeliveryTest, NoLdaIsUnknownAndNotKept) {
    hide_directory("/usr/lib/dovecot");
    EXPECT_EQ(detect_lda(), kLdaUnknown);
    EXPECT_EQ(detect_lda(), kLdaUnknown);
    EXPECT_EQ(logged(), (std::vector<std::string>{kNoLda, kNoLda}));
    install_lda(kDovecotLdaPath);
    EXPECT_EQ(detect_lda(), kLdaDovecot);
}

TEST_F(DeliveryTest, NonExecutableLdaIsUnknown) {
    install_lda(kDeliverquotaPath);
    ASSERT_EQ(chmod(kDeliverquotaPath, 0644), 0);
    EXPECT_EQ(detect_lda(), kLdaUnknown);
    EXPECT_EQ(logged(), std::vector<std::string>{"3 Unable to detect IMAP/POP3 server type - LDA is present at "
                                                 "'/usr/bin/deliverquota' but is not a regular file or is not "
                                                 "executable"});
}

TEST_F(DeliveryTest, LdaThatIsNoRegularFileIsUnknown) {
    hide_directory("/usr/lib/dovecot");
    ASSERT_EQ(mkdir(kDovecotLdaPath, 0755), 0);
    EXPECT_EQ(detect_lda(), kLdaUnknown);
    EXPECT_EQ(logged(), std::vector<std::string>{"3 Unable to detect IMAP/POP3 server type - LDA is present at "
                                                 "'/usr/lib/dovecot/dovecot-lda' but is not a regular file or is "
                                                 "not executable"});
}

TEST_F(DeliveryTest, DefaultDeliveryIsTheFirstLineWithItsNewline) {
    write_default_delivery("| /usr/bin/deliverquota ./Maildir\n./Maildir/\n");
    std::string line;
    ASSERT_EQ(read_default_delivery(line), 0);
    EXPECT_EQ(line, "| /usr/bin/deliverquota ./Maildir\n");
    write_default_delivery("./Maildir/");
    ASSERT_EQ(read_default_delivery(line), 0);
    EXPECT_EQ(line, "./Maildir/");
}

TEST_F(DeliveryTest, MissingEmptyOrNonRegularDefaultDeliveryFails) {
    const std::string message =
        "3 Unable to get default delivery transport string from /var/qmail/mailnames/.default_delivery\n";
    std::string line = "unchanged";
    EXPECT_EQ(read_default_delivery(line), -1);
    write_default_delivery("");
    EXPECT_EQ(read_default_delivery(line), -1);
    ASSERT_EQ(unlink(kDefaultDeliveryFile), 0);
    ASSERT_EQ(mkdir(kDefaultDeliveryFile, 0755), 0);
    EXPECT_EQ(read_default_delivery(line), -1);
    EXPECT_EQ(line, "unchanged");
    EXPECT_EQ(logged(), (std::vector<std::string>{message, message, message}));
}

TEST_F(DeliveryTest, AddingDeliveryKeepsTrueLineAndGivesOwnerAndMode) {
    deliverquota_server();
    write_file(qmail_, "| true\n", 0644);
    ASSERT_EQ(add_delivery(qmail_), 0);
    EXPECT_EQ(read_file(qmail_), "| true\n| /usr/bin/deliverquota ./Maildir\n");
    expect_popuser_entry(qmail_, 0600, 'f');
    EXPECT_TRUE(logged().empty());
}

TEST_F(DeliveryTest, AddingDeliveryTwiceLeavesOneLine) {
    deliverquota_server();
    write_file(qmail_, "| true\n", 0600);
    ASSERT_EQ(add_delivery(qmail_), 0);
    ASSERT_EQ(add_delivery(qmail_), 0);
    EXPECT_EQ(read_file(qmail_), "| true\n| /usr/bin/deliverquota ./Maildir\n");
}

TEST_F(DeliveryTest, AddingDeliveryReplacesEveryKnownLine) {
    deliverquota_server();
    std::string content = "&forward@example.net\n";
    for (const std::string& line : known_delivery_lines())
        content += line + "\n";
    write_file(qmail_, content + "| /usr/bin/deliverquota ./Maildir-other\n");
    ASSERT_EQ(add_delivery(qmail_), 0);
    EXPECT_EQ(read_file(qmail_),
              "&forward@example.net\n| /usr/bin/deliverquota ./Maildir-other\n| /usr/bin/deliverquota ./Maildir\n");
}

TEST_F(DeliveryTest, EmptyDefaultDeliveryMakesAddingFail) {
    install_lda(kDeliverquotaPath);
    write_default_delivery("");
    write_file(qmail_, "| true\n| /usr/bin/deliverquota ./Maildir\n", 0600);
    EXPECT_EQ(add_delivery(qmail_), -1);
    EXPECT_EQ(logged(), (std::vector<std::string>{
                            "3 Unable to get default delivery transport string from "
                            "/var/qmail/mailnames/.default_delivery\n",
                            "3 Unable to add delivery string to '" + qmail_ + "'"}));
    EXPECT_EQ(read_file(qmail_), "| true\n");
}

TEST_F(DeliveryTest, FailedDetectionLeavesDotQmailUntouched) {
    hide_directory("/usr/lib/dovecot");
    write_default_delivery(std::string(kDeliverquotaLine) + "\n");
    write_file(qmail_, "| true\n./Maildir/\n", 0644);
    EXPECT_EQ(add_delivery(qmail_), -1);
    EXPECT_EQ(read_file(qmail_), "| true\n./Maildir/\n");
    EXPECT_EQ(file_info(qmail_).mode, 0644u);
    EXPECT_EQ(logged(), std::vector<std::string>{kNoLda});
}

TEST_F(DeliveryTest, MissingDotQmailFailsWithWarning) {
    deliverquota_server();
    EXPECT_EQ(add_delivery(qmail_), -1);
    EXPECT_EQ(remove_delivery(qmail_), -1);
    const std::string warning = "4 Unable to remove old delivery strings from '" + qmail_ + "'";
    EXPECT_EQ(logged(), (std::vector<std::string>{warning, warning}));
    EXPECT_FALSE(path_exists(qmail_));
}

TEST_F(DeliveryTest, RemovingDeliveryKeepsTheRest) {
    write_file(qmail_, "| true\n| /usr/bin/deliverquota ./Maildir\n&forward@example.net\n./Maildir/\n", 0644);
    ASSERT_EQ(remove_delivery(qmail_), 0);
    EXPECT_EQ(read_file(qmail_), "| true\n&forward@example.net\n");
    expect_popuser_entry(qmail_, 0600, 'f');
}

TEST_F(DeliveryTest, MailnameDeliveryUsesTheLowerCaseAsciiPath) {
    deliverquota_server();
    write_file(qmail_, "| true\n", 0600);
    ASSERT_EQ(add_mailname_delivery("INFO", "Example.Test"), 0);
    EXPECT_EQ(read_file(qmail_), "| true\n| /usr/bin/deliverquota ./Maildir\n");
    ASSERT_EQ(remove_mailname_delivery("Info", "EXAMPLE.test"), 0);
    EXPECT_EQ(read_file(qmail_), "| true\n");
    EXPECT_EQ(add_mailname_delivery("", "example.test"), -1);
    EXPECT_EQ(logged(), std::vector<std::string>{"3 empty mailname or maildomain"});
}

TEST_F(DeliveryTest, WriteQmailLinesReplacesTheFile) {
    write_file(qmail_, "| true\n", 0666);
    ASSERT_EQ(write_qmail_lines(qmail_, {"&one@example.net", "&two@example.net"}), 0);
    EXPECT_EQ(read_file(qmail_), "&one@example.net\n&two@example.net\n");
    expect_popuser_entry(qmail_, 0600, 'f');
}

TEST_F(DeliveryTest, WriteQmailLinesCreatesTheFileNeverWritableByOthers) {
    umask(0);
    ASSERT_EQ(write_qmail_lines(qmail_, {"| true"}), 0);
    EXPECT_EQ(read_file(qmail_), "| true\n");
    expect_popuser_entry(qmail_, 0600, 'f');
    ASSERT_EQ(write_qmail_lines(qmail_, {}), 0);
    EXPECT_EQ(read_file(qmail_), "");
    expect_popuser_entry(qmail_, 0600, 'f');
}

}  // namespace
}  // namespace sorvane::test
