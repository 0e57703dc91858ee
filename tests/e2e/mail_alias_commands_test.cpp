// --add-alias and --remove-alias from the seeded server (a domain with two
// domain aliases): the assign record, the authentication records and the
// handlers at the domain and at every domain alias, and qmail-newu.
#include "e2e/mailbox_state.h"

namespace sorvane::test {
namespace {

void run_sql(const std::string& db, const std::string& sql) {
    const auto result = run_process({"/usr/bin/sqlite3", db, sql});
    ASSERT_EQ(result.status, 0) << result.err;
}

const std::string kHandlersDb = "/var/lib/crelm/mail/handlers/handlers.db";
const std::string kAuthDb = "/var/lib/crelm/mail/auth/passwd.db";

std::string sorted_by(const std::string& rows, std::string (*key)(const std::string&)) {
    std::vector<std::pair<std::string, std::string>> keyed;
    std::size_t start = 0;
    while (start < rows.size()) {
        const std::size_t end = rows.find('\n', start);
        const std::string line = rows.substr(start, end - start + 1);
        keyed.emplace_back(key(line), line);
        start = end + 1;
    }
    std::sort(keyed.begin(), keyed.end());
    std::string out;
    for (const auto& each : keyed)
        out += each.second;
    return out;
}

std::string auth_key(const std::string& line) {
    const std::string address = line.substr(0, line.find('|'));
    const std::size_t at = address.find('@');
    return address.substr(at + 1) + "\t" + address.substr(0, at);
}

std::string handler_key(const std::string& line) {
    const std::size_t name = line.find("|spam-filter|");
    if (name == std::string::npos)
        return "all";
    const std::size_t from = name + 13;
    return line.substr(from, line.find('|', from) - from);
}

class MailAliasTest : public SeededServerTest {
protected:
    void expect_alias_added(const std::string& alias, const std::vector<std::string>& handler_domains) {
        expected.assign = mailname_record(kDomain, alias, "john") + expected.assign;
        std::string auth = expected.auth_users;
        for (const std::string& domain : {kDomain, kAliasOne, kAliasTwo})
            auth += auth_user_row(alias, domain, seeded_password("john"));
        expected.auth_users = sorted_by(auth, auth_key);
        std::string handlers = expected.handler_rows;
        for (const std::string& domain : handler_domains)
            handlers += handler_row(alias + "@" + domain);
        expected.handler_rows = sorted_by(handlers, handler_key);
        expected.qmail_newu_calls = {""};
    }
};

TEST_F(MailAliasTest, AddAliasCopiesAuthenticationRecordAndHandlersToTheDomainAndEachAlias) {
    const auto result = run_sorvane_with_input(
        {"--add-alias", "--domain-name=example.test", "--mailname=john", "--alias=JD"}, seeded_document());
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "");
    expect_alias_added("jd", {kDomain, kAliasOne, kAliasTwo});
    expect_server_state(read_server_state(), expected);
}

TEST_F(MailAliasTest, AddAliasWithTheCommandLineListsAndRepeated) {
    const std::vector<std::string> args = {"--add-alias", "--domain-name=example.test", "--mailname=john",
                                           "--alias=jd", "--domain-aliases=alias-one.test,alias-two.test",
                                           "--mail-addresses=" + seeded_mail_addresses()};
    ASSERT_EQ(run_sorvane(args).status, 0);
    const auto again = run_sorvane(args);
    EXPECT_EQ(again.status, 0) << again.err;
    expect_alias_added("jd", {kDomain, kAliasOne, kAliasTwo});
    expected.qmail_newu_calls = {"", ""};
    expect_server_state(read_server_state(), expected);
}

TEST_F(MailAliasTest, FailingHandlerCopyForOneDomainAliasDoesNotStopTheOthers) {
    run_sql(kHandlersDb, "CREATE TRIGGER refuse BEFORE INSERT ON handlers WHEN NEW.address = 'jd@alias-one.test' "
                         "BEGIN SELECT RAISE(ABORT, 'refused'); END;");
    const auto result = run_sorvane_with_input(
        {"--add-alias", "--domain-name=example.test", "--mailname=john", "--alias=jd"}, seeded_document());
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.err.find("Unable to clone handlers for jd@alias-one.test\n"), std::string::npos) << result.err;
    expect_alias_added("jd", {kDomain, kAliasTwo});
    expect_server_state(read_server_state(), expected);
}

// Without a record at the domain there is nothing to copy: the alias gets
// its assign record and handlers, qmail-newu runs, and the command succeeds.
TEST_F(MailAliasTest, MailNameWithoutAuthenticationRecordGetsItsAliasAndQmailNewu) {
    run_sql(kAuthDb, "DELETE FROM users WHERE name = 'john' AND dom_id = "
                     "(SELECT id FROM domains WHERE name = 'example.test');");
    expected = read_server_state();
    const auto result = run_sorvane_with_input(
        {"--add-alias", "--domain-name=example.test", "--mailname=john", "--alias=jd"}, seeded_document());
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.err, "");
    expected.assign = mailname_record(kDomain, "jd", "john") + expected.assign;
    std::string handlers = expected.handler_rows;
    for (const std::string& domain : {kDomain, kAliasOne, kAliasTwo})
        handlers += handler_row("jd@" + domain);
    expected.handler_rows = sorted_by(handlers, handler_key);
    expected.qmail_newu_calls = {""};
    expect_server_state(read_server_state(), expected);
}

TEST_F(MailAliasTest, RemoveAliasTakesItsRecordAuthenticationRowsAndHandlersAway) {
    const auto result = run_sorvane_with_input(
        {"--remove-alias", "--domain-name=example.test", "--mailname=john", "--alias=j.doe"}, seeded_document());
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "");
    expected.assign = assign_without(expected.assign, "=example.test-j.doe:");
    const auto addresses = addresses_at_all_domains({"j.doe"});
    expected.auth_users = rows_without_addresses(expected.auth_users, addresses);
    expected.handler_rows = rows_without_addresses(expected.handler_rows, addresses);
    expected.qmail_newu_calls = {""};
    expect_server_state(read_server_state(), expected);
}

TEST_F(MailAliasTest, RemoveAliasAuthenticationFailureEndsWith1AfterEveryStep) {
    run_sql(kAuthDb, "CREATE TRIGGER refuse BEFORE DELETE ON users BEGIN SELECT RAISE(ABORT, 'refused'); END;");
    const auto result = run_sorvane_with_input(
        {"--remove-alias", "--domain-name=example.test", "--mailname=john", "--alias=j.doe"}, seeded_document());
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.err.find("Unable to remove auth records from aliases for john@example.test\n"),
              std::string::npos)
        << result.err;
    expected.assign = assign_without(expected.assign, "=example.test-j.doe:");
    expected.handler_rows = rows_without_addresses(expected.handler_rows, addresses_at_all_domains({"j.doe"}));
    expected.qmail_newu_calls = {""};
    expect_server_state(read_server_state(), expected);
}

TEST_F(MailAliasTest, FailingQmailNewuEndsWith1) {
    set_fake_status("qmail-newu", 111);
    const auto result = run_sorvane_with_input(
        {"--remove-alias", "--domain-name=example.test", "--mailname=john", "--alias=j.doe"}, seeded_document());
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(fake_calls("qmail-newu"), std::vector<std::string>{""});
}

}  // namespace
}  // namespace sorvane::test
