// Telling the mail server type from the panel's feature query.
#include "stores/mail_auth_store.h"
#include "store_test_support.h"

#include <gmock/gmock.h>

namespace sorvane::test {
namespace {

using ::testing::ElementsAre;

const std::string kFeatureQuery = "/opt/qvt/admin/sbin/sorvane-server";

class MailServerTypeTest : public LoggedStoreTest {
protected:
    // The feature query prints text as it stands.
    static void feature_query_prints(const std::string& text) {
        std::string quoted;
        for (const char c : text)
            quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
        install_program(kFeatureQuery, "#!/bin/sh\n[ \"$1\" = --features ] || exit 2\nprintf '%s' '" + quoted + "'\n");
    }
};

TEST_F(MailServerTypeTest, PostfixInDoubleQuotes) {
    feature_query_prints("$features[\"Other\"] = 1;\n$features['SMTP_Server'] = \"Postfix\";\n");
    EXPECT_EQ(detect_mail_server_type(), 1);
    EXPECT_TRUE(logged().empty());
}

TEST_F(MailServerTypeTest, QmailInSingleQuotes) {
    feature_query_prints("$features['SMTP_Server'] = 'QMail';\n");
    EXPECT_EQ(detect_mail_server_type(), 0);
}

TEST_F(MailServerTypeTest, OneCharacterAlreadyCountsAsPostfix) {
    feature_query_prints("$features['SMTP_Server']=\"p\"\n");
    EXPECT_EQ(detect_mail_server_type(), 1);
}

TEST_F(MailServerTypeTest, ComparisonStopsOneCharacterShort) {
    feature_query_prints("$features['SMTP_Server'] = \"qmaiX\";\n");
    EXPECT_EQ(detect_mail_server_type(), 0);
}

TEST_F(MailServerTypeTest, UnknownStyleIsSkippedAndALaterLineDecides) {
    feature_query_prints("$features['SMTP_Server'] = \"exim\";\n$features['SMTP_Server'] = \"qmail\";\n");
    EXPECT_EQ(detect_mail_server_type(), 0);
    EXPECT_THAT(logged(), ElementsAre("6 Unknown server style \"exi\", skipped"));
}

TEST_F(MailServerTypeTest, UnparseableLineIsSkipped) {
    feature_query_prints("$features['SMTP_Server'] = \"postfix;\n");
    EXPECT_EQ(detect_mail_server_type(), -1);
    EXPECT_THAT(logged(), ElementsAre("6 Unparseable line \"$features['SMTP_Server'] = \"postfix;\", skipped",
                                      "6 Unable to determine mail server type from ``sorvane-server --features''"));
}

TEST_F(MailServerTypeTest, NoDecidingLine) {
    feature_query_prints("$features['SMTP'] = \"postfix\";\n $features['SMTP_Server'] = \"postfix\";\n");
    EXPECT_EQ(detect_mail_server_type(), -1);
    EXPECT_THAT(logged(), ElementsAre("6 Unable to determine mail server type from ``sorvane-server --features''"));
}

TEST_F(MailServerTypeTest, MissingFeatureQueryDecidesNothing) {
    EXPECT_EQ(detect_mail_server_type(), -1);
    EXPECT_EQ(logged().back(), "6 Unable to determine mail server type from ``sorvane-server --features''");
}

}  // namespace
}  // namespace sorvane::test
