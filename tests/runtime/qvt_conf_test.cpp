// The runtime configuration: compile-time defaults, /etc/qvt/qvt.conf and
// what its reader logs.
#include "runtime/qvt_conf.h"

#include <sys/stat.h>

#include <cstring>

#include "runtime/logged.h"
#include "runtime/qvt_conf_file.h"
#include "support/sandbox.h"

namespace sorvane::test {
namespace {

constexpr int kUserWarning = 12;  // LOG_USER | LOG_WARNING
constexpr int kMailError = 19;    // LOG_MAIL | LOG_ERR

const std::string kNotOpened =
    "unable to open configuration file /etc/qvt/qvt.conf: No such file or directory\n";

class QvtConfTest : public SandboxTest {
protected:
    void write_conf(const std::string& content) { write_file(kQvtConfPath, content); }

    // The value seen by a fresh process, and what it logged.
    static std::pair<std::string, std::vector<LogRecord>> value_in_child(const std::string& name) {
        const std::string out_path = scratch_dir() + "/value";
        const LoggedRun run = run_logged([&] {
            const char* value = get_conf_value(name);
            write_file(out_path, value == nullptr ? "(null)" : value);
            return 0;
        });
        EXPECT_EQ(run.process.status, 0) << run.process.err;
        return {read_file(out_path), run.records};
    }
};

TEST_F(QvtConfTest, TableHoldsEveryVariableWithItsDefaultBetweenMarkers) {
    const std::pair<const char*, const char*> expected[] = {
        {"_MIN_POSSIBLE_QVT_CONF_VAR_NAME", "_MIN_POSSIBLE_QVT_CONF_VAR_VALUE"},
        {"CRELM_MAILNAMES_D", "/var/qmail/mailnames"},
        {"RBLSMTPD", "/usr/sbin/rblsmtpd"},
        {"CLIENT_PHP_BIN", "/opt/qvt/bin/php-cli"},
        {"LIB_CRYPTO_PATH", "/lib/libcrypto.so"},
        {"LIB_SSL_PATH", "/lib/libssl.so"},
        {"AWSTATS_DOC_D", "/usr/share/awstats"},
        {"AWSTATS_TOOLS_D", "/usr/share/awstats/tools"},
        {"AWSTATS_BIN_D", "/usr/lib/cgi-bin"},
        {"AWSTATS_ETC_D", "/etc/awstats"},
        {"MAILMAN_VAR_D", "/var/lib/mailman"},
        {"MAILMAN_ROOT_D", "/usr/lib/mailman"},
        {"PGSQL_DATA_D", "/var/lib/postgresql/14/main"},
        {"PGSQL_BIN_D", "/usr/lib/postgresql/14/bin"},
        {"MYSQL_BIN_D", "/usr/bin"},
        {"MYSQL_VAR_D", "/var/lib/mysql"},
        {"WEB_STAT", "/usr/bin/webalizer"},
        {"DUMP_D", "/var/lib/qvt/dumps"},
        {"DUMP_TMP_D", "/tmp"},
        {"NAMED_RUN_ROOT_D", "/var/named/run-root"},
        {"HTTPD_BIN", "/usr/sbin/apache2"},
        {"HTTPD_SERVICE", "apache2"},
        {"HTTPD_LOG_D", "/var/log/apache2"},
        {"HTTPD_INCLUDE_D", "/etc/apache2/conf-enabled"},
        {"HTTPD_CONF_D", "/etc/apache2"},
        {"HTTPD_VHOSTS_D", "/var/www/vhosts"},
        {"MYSQL_SOCKET", "/var/run/mysqld/mysqld.sock"},
        {"SA_MAX_MAIL_SIZE", "256000"},
        {"SNI_SUPPORT", "true"},
        {"PRODUCT_ROOT_D", "/opt/qvt"},
        {"_MAX_POSSIBLE_QVT_CONF_VAR_NAME", "_MAX_POSSIBLE_QVT_CONF_VAR_VALUE"},
    };
    ASSERT_EQ(std::size(expected), static_cast<std::size_t>(kQvtConfMaxMarker) + 1);
    for (int index = 0; index <= kQvtConfMaxMarker; ++index) {
        EXPECT_STREQ(qvt_conf_name_at(index), expected[index].first) << index;
        EXPECT_STREQ(qvt_conf_default_at(index), expected[index].second) << index;
    }
    EXPECT_EQ(qvt_conf_name_at(-1), nullptr);
    EXPECT_EQ(qvt_conf_default_at(kQvtConfMaxMarker + 1), nullptr);
    EXPECT_EQ(qvt_conf_index_of("CRELM_MAILNAMES_D"), kCrelmMailnamesD);
    EXPECT_EQ(qvt_conf_index_of("PRODUCT_ROOT_D"), kProductRootD);
}

TEST_F(QvtConfTest, MissingFileAnswersWithDefaultsAndIsReportedAtUserWarning) {
    const LoggedRun run = run_logged([] {
        for (int index = kCrelmMailnamesD; index < kQvtConfMaxMarker; ++index) {
            if (std::strcmp(get_conf_value(qvt_conf_name_at(index)), qvt_conf_default_at(index)) != 0)
                return 10 + index;
        }
        return 0;
    });
    EXPECT_EQ(run.process.status, 0);
    // Every lookup retries the file and says so again.
    const std::vector<LogRecord> expected(kProductRootD, LogRecord{kUserWarning, kNotOpened});
    EXPECT_EQ(run.records, expected);
}

TEST_F(QvtConfTest, LoadingIsRetriedUntilItSucceedsThenKept) {
    const std::string out_path = scratch_dir() + "/values";
    const LoggedRun run = run_logged([&] {
        std::string seen = get_conf_value("CRELM_MAILNAMES_D");
        seen += std::string("|") + get_conf_value("CRELM_MAILNAMES_D");
        write_file(kQvtConfPath, "CRELM_MAILNAMES_D /srv/mail\n");
        seen += std::string("|") + get_conf_value("CRELM_MAILNAMES_D");
        write_file(kQvtConfPath, "CRELM_MAILNAMES_D /srv/other\n");
        seen += std::string("|") + get_conf_value("CRELM_MAILNAMES_D");
        write_file(out_path, seen);
        return 0;
    });
    EXPECT_EQ(read_file(out_path), "/var/qmail/mailnames|/var/qmail/mailnames|/srv/mail|/srv/mail");
    const std::vector<LogRecord> expected{{kUserWarning, kNotOpened}, {kUserWarning, kNotOpened}};
    EXPECT_EQ(run.records, expected);
}

TEST_F(QvtConfTest, CommentAfterTheValueIsCutOff) {
    write_conf("CRELM_MAILNAMES_D /srv/mail # where the boxes live\n");
    const auto [value, records] = value_in_child("CRELM_MAILNAMES_D");
    EXPECT_EQ(value, "/srv/mail");
    EXPECT_TRUE(records.empty());
}

TEST_F(QvtConfTest, InnerBlanksOfTheValueAreKept) {
    write_conf("CRELM_MAILNAMES_D   /srv/my mail  \n");
    EXPECT_EQ(value_in_child("CRELM_MAILNAMES_D").first, "/srv/my mail");
}

TEST_F(QvtConfTest, NameWithEqualsSignIsRefusedAndTheLineIgnored) {
    write_conf("CRELM_MAILNAMES_D=/srv/mail\nHTTPD_SERVICE httpd\n");
    const auto [value, records] = value_in_child("CRELM_MAILNAMES_D");
    EXPECT_EQ(value, "/var/qmail/mailnames");
    const std::vector<LogRecord> expected{
        {kUserWarning,
         "Invalid variable definition CRELM_MAILNAMES_D=/srv/mail\n\nExpected a space after variable name\n"}};
    EXPECT_EQ(records, expected);
    EXPECT_EQ(value_in_child("HTTPD_SERVICE").first, "httpd");
}

TEST_F(QvtConfTest, LaterDefinitionWins) {
    write_conf("CRELM_MAILNAMES_D /first\nCRELM_MAILNAMES_D /second\n");
    EXPECT_EQ(value_in_child("CRELM_MAILNAMES_D").first, "/second");
}

TEST_F(QvtConfTest, UnknownNameIsNullEvenWhenTheFileDefinesIt) {
    write_conf("MY_OWN_SETTING value\n");
    const auto [value, records] = value_in_child("MY_OWN_SETTING");
    EXPECT_EQ(value, "(null)");
    const std::vector<LogRecord> expected{
        {kMailError,
         "variable 'MY_OWN_SETTING' was found neither in /etc/qvt/qvt.conf, nor in compile-time defaults"}};
    EXPECT_EQ(records, expected);
}

TEST_F(QvtConfTest, EmptyValueIsReportedAndTheDefaultKept) {
    write_conf("CRELM_MAILNAMES_D\nSNI_SUPPORT   # nothing here\n");
    const auto [value, records] = value_in_child("CRELM_MAILNAMES_D");
    EXPECT_EQ(value, "/var/qmail/mailnames");
    const std::vector<LogRecord> expected{
        {kUserWarning, "Invalid variable definition CRELM_MAILNAMES_D\n\nExpected a value"},
        {kUserWarning, "Invalid variable definition SNI_SUPPORT   # nothing here\n\nExpected a value"}};
    EXPECT_EQ(records, expected);
}

TEST_F(QvtConfTest, NameAtTheEndOfTheFileLacksItsSpace) {
    write_conf("SNI_SUPPORT");
    const auto [value, records] = value_in_child("SNI_SUPPORT");
    EXPECT_EQ(value, "true");
    const std::vector<LogRecord> expected{
        {kUserWarning, "Invalid variable definition SNI_SUPPORT\nExpected a space after variable name\n"}};
    EXPECT_EQ(records, expected);
}

TEST_F(QvtConfTest, BlankLinesCommentsAndIndentationAreAccepted) {
    write_conf("# host paths\n\n   \n\t# indented comment\n  \tHTTPD_VHOSTS_D\t/srv/www#no blank before\n"
               "DUMP_D /backups\r\n");
    EXPECT_EQ(value_in_child("HTTPD_VHOSTS_D"), std::make_pair(std::string("/srv/www"), std::vector<LogRecord>{}));
    EXPECT_EQ(value_in_child("DUMP_D").first, "/backups");
}

TEST_F(QvtConfTest, LowerMarkerIsFoundButNotTheUpperOne) {
    EXPECT_EQ(value_in_child("_MIN_POSSIBLE_QVT_CONF_VAR_NAME").first, "_MIN_POSSIBLE_QVT_CONF_VAR_VALUE");
    const auto [value, records] = value_in_child("_MAX_POSSIBLE_QVT_CONF_VAR_NAME");
    EXPECT_EQ(value, "(null)");
    ASSERT_FALSE(records.empty());
    EXPECT_EQ(records.back().priority, kMailError);
}

TEST_F(QvtConfTest, ValueByIndexFollowsTheFile) {
    write_conf("PRODUCT_ROOT_D /usr/local/qvt\n");
    const std::string out_path = scratch_dir() + "/values";
    const LoggedRun run = run_logged([&] {
        const char* outside = get_conf_value_by_index(kQvtConfMaxMarker);
        write_file(out_path, std::string(get_conf_value_by_index(kProductRootD)) + "|" +
                                 get_conf_value_by_index(kCrelmMailnamesD) + "|" +
                                 (outside == nullptr ? "(null)" : outside));
        return 0;
    });
    EXPECT_EQ(read_file(out_path), "/usr/local/qvt|/var/qmail/mailnames|(null)");
    const std::vector<LogRecord> expected{
        {kMailError, "variable index 30 is out of the range of compile-time defaults"}};
    EXPECT_EQ(run.records, expected);
}

TEST_F(QvtConfTest, UnreadableFileIsReportedAndDefaultsAnswer) {
    ASSERT_EQ(mkdir(kQvtConfPath, 0755), 0);
    const auto [value, records] = value_in_child("CRELM_MAILNAMES_D");
    EXPECT_EQ(value, "/var/qmail/mailnames");
    const std::vector<LogRecord> expected{{kUserWarning, "Unable to read configuration file: Is a directory"}};
    EXPECT_EQ(records, expected);
}

TEST_F(QvtConfTest, LineParserAddsOnlyDefinitions) {
    QvtConfSet set;
    EXPECT_EQ(parse_qvt_conf_line("", set), 0);
    EXPECT_EQ(parse_qvt_conf_line("   # comment", set), 0);
    EXPECT_EQ(parse_qvt_conf_line("_x1 a b c   # c", set), 0);
    EXPECT_EQ(parse_qvt_conf_line("9lives yes", set), 0);
    EXPECT_EQ(parse_qvt_conf_line("=value", set), -1);
    EXPECT_EQ(parse_qvt_conf_line("NAME-WITH-DASH x", set), -1);
    const QvtConfSet expected{{"_x1", "a b c"}, {"9lives", "yes"}};
    EXPECT_EQ(set, expected);
}

TEST_F(QvtConfTest, ReaderReturnsMinusOneWithErrnoForAMissingFile) {
    QvtConfSet set;
    const LoggedRun run = run_logged([&] {
        return read_qvt_conf_file("/etc/qvt/none.conf", set) == -1 && errno == ENOENT ? 0 : 1;
    });
    EXPECT_EQ(run.process.status, 0);
    const std::vector<LogRecord> expected{
        {kUserWarning, "unable to open configuration file /etc/qvt/none.conf: No such file or directory\n"}};
    EXPECT_EQ(run.records, expected);
}

}  // namespace
}  // namespace sorvane::test
