// --remove-mailname and --rename-mailname from the seeded server: the quota
// row, assign, the home, the handlers and authentication records of every
// address of the mail name, and qmail-newu.
#include "e2e/mailbox_state.h"

namespace sorvane::test {
namespace {

void run_sql(const std::string& db, const std::string& sql) {
    const auto result = run_process({"/usr/bin/sqlite3", db, sql});
    ASSERT_EQ(result.status, 0) << result.err;
}

const std::string kQuotaDb = "/var/lib/crelm/mail/userdb/userdb.db";
const std::string kHandlersDb = "/var/lib/crelm/mail/handlers/handlers.db";
const std::string kAuthDb = "/var/lib/crelm/mail/auth/passwd.db";
const std::string kDomainAliases = "--domain-aliases=alias-one.test,alias-two.test";

class RemoveMailnameTest : public SeededServerTest {
protected:
    // john and its alias j.doe gone everywhere.
    void expect_john_removed() {
        expected.assign = assign_without(assign_without(expected.assign, "=example.test-john:"),
                                         "=example.test-j.doe:");
        expected.mail_tree = without_lines(expected.mail_tree, "example.test/john/");
        expected.quota_rows = without_lines(expected.quota_rows, "example.test|john|");
        const auto addresses = addresses_at_all_domains({"john", "j.doe"});
        expected.handler_rows = rows_without_addresses(expected.handler_rows, addresses);
        expected.auth_users = rows_without_addresses(expected.auth_users, addresses);
        expected.qmail_newu_calls = {""};
    }
};

TEST_F(RemoveMailnameTest, DocumentOnStandardInputGivesTheAliasesAndDomainAliases) {
    const auto result =
        run_sorvane_with_input({"--remove-mailname", "--domain-name=example.test", "--mailname=john"},
                               seeded_document());
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "");
    expect_john_removed();
    expect_server_state(read_server_state(), expected);
}

TEST_F(RemoveMailnameTest, CommandLineListsGiveTheSameResult) {
    const auto result = run_sorvane({"--remove-mailname", "--domain-name=example.test", "--mailname=john",
                                     kDomainAliases, "--mail-addresses=" + seeded_mail_addresses()});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.err, "");
    expect_john_removed();
    expect_server_state(read_server_state(), expected);
}

TEST_F(RemoveMailnameTest, RepeatedRemovalLeavesTheSameState) {
    const std::vector<std::string> args = {"--remove-mailname", "--domain-name=example.test", "--mailname=john",
                                           kDomainAliases, "--mail-addresses=" + seeded_mail_addresses()};
    ASSERT_EQ(run_sorvane(args).status, 0);
    const auto again = run_sorvane(args);
    EXPECT_EQ(again.status, 0) << again.err;
    expect_john_removed();
    expected.qmail_newu_calls = {"", ""};
    expect_server_state(read_server_state(), expected);
}

TEST_F(RemoveMailnameTest, StandardInputAtEndOfFileIsRefusedAndNothingChanges) {
    RunOptions options;
    options.stdin_mode = RunOptions::Stdin::Null;
    const auto result = run_sorvane({"--remove-mailname", "--domain-name=example.test", "--mailname=john"}, options);
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.err.find("Failed to read and parse session mail data from STDIN. See mail log for details."),
              std::string::npos)
        << result.err;
    expect_server_state(read_server_state(), expected);
}

TEST_F(RemoveMailnameTest, DocumentArrivingLateIsReadAfterThePrompt) {
    RunOptions options;
    options.stdin_mode = RunOptions::Stdin::Pipe;
    options.input = seeded_document();
    options.input_after_output = "Type ^D (send EOF) to abort.\n";
    const auto result = run_sorvane({"--remove-mailname", "--domain-name=example.test", "--mailname=john"}, options);
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out,
              "This command requires additional data to be passed via STDIN in JSON format.\n"
              "To get help on expected input data format call this utility with --help-stdin option.\n"
              "Type ^D (send EOF) to abort.\n");
    expect_john_removed();
    expect_server_state(read_server_state(), expected);
}

TEST_F(RemoveMailnameTest, QuotaStoreFailureEndsWith255AndChangesNothing) {
    run_sql(kQuotaDb, "CREATE TRIGGER refuse BEFORE DELETE ON mailbox_quota BEGIN SELECT RAISE(ABORT, 'refused'); END;");
    const auto result = run_sorvane_with_input(
        {"--remove-mailname", "--domain-name=example.test", "--mailname=john"}, seeded_document());
    EXPECT_EQ(result.status, 255);
    EXPECT_NE(result.err.find("Unable to remove mailbox quota in userdb for 'john@example.test'\n"), std::string::npos)
        << result.err;
    expect_server_state(read_server_state(), expected);
}

TEST_F(RemoveMailnameTest, HandlerFailureEndsWith1BeforeTheAuthenticationRecords) {
    run_sql(kHandlersDb, "CREATE TRIGGER refuse BEFORE DELETE ON handlers BEGIN SELECT RAISE(ABORT, 'refused'); END;");
    const auto result = run_sorvane_with_input(
        {"--remove-mailname", "--domain-name=example.test", "--mailname=john"}, seeded_document());
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.err.find("Unable to delete some handlers for this mailname: john@example.test\n"),
              std::string::npos)
        << result.err;
    expect_john_removed();
    expected.handler_rows = seeded_server_state().handler_rows;
    // The mail name's own row at the domain goes with its files; the others stay.
    expected.auth_users = rows_without_addresses(seeded_server_state().auth_users, {"john@example.test"});
    expect_server_state(read_server_state(), expected);
}

TEST_F(RemoveMailnameTest, FailingQmailNewuEndsWith1AfterEveryStep) {
    set_fake_status("qmail-newu", 111);
    const auto result = run_sorvane_with_input(
        {"--remove-mailname", "--domain-name=example.test", "--mailname=john"}, seeded_document());
    EXPECT_EQ(result.status, 1);
    expect_john_removed();
    expect_server_state(read_server_state(), expected);
}

class RenameMailnameTest : public SeededServerTest {
protected:
    // john renamed to jack: records, home, quota row, handlers and (with a
    // password) the mail name's authentication rows follow.
    void expect_john_renamed(bool auth_renamed) {
        const std::string old_record = mailname_record(kDomain, "john", "john");
        expected.assign = mailname_record(kDomain, "jack", "jack") +
                          assign_without(expected.assign, old_record.substr(0, old_record.size() - 1));
        const std::string old_alias = mailname_record(kDomain, "j.doe", "john");
        const std::string new_alias = mailname_record(kDomain, "j.doe", "jack");
        expected.assign.replace(expected.assign.find(old_alias), old_alias.size(), new_alias);
        std::string tree;
        for (const std::string& line : {expected.mail_tree}) {
            std::string text = line;
            for (std::size_t at = 0; (at = text.find("example.test/john/", at)) != std::string::npos;)
                text.replace(at, 18, "example.test/jack/");
            tree = text;
        }
        expected.mail_tree = sorted_lines(tree);
        expected.quota_rows = sorted_lines(without_lines(expected.quota_rows, "example.test|john|") +
                                           quota_row(kDomain, "jack", "0B"));
        std::string handlers = rows_without_addresses(expected.handler_rows, addresses_at_all_domains({"john"}));
        std::string auth = expected.auth_users;
        if (auth_renamed)
            auth = rows_without_addresses(auth, addresses_at_all_domains({"john"}));
        for (const std::string& domain : {kDomain, kAliasOne, kAliasTwo}) {
            handlers += handler_row("jack@" + domain);
            if (auth_renamed)
                auth += auth_user_row("jack", domain, seeded_password("john"));
        }
        expected.handler_rows = sort_rows_by_address(handlers);
        expected.auth_users = sort_rows_by_domain(auth);
        expected.qmail_newu_calls = {""};
    }

    static std::string sort_rows_by_address(const std::string& rows) {
        std::vector<std::pair<std::string, std::string>> keyed;
        std::size_t start = 0;
        while (start < rows.size()) {
            const std::size_t end = rows.find('\n', start);
            const std::string line = rows.substr(start, end - start + 1);
            const std::size_t from = line.find('|', line.find("|spam-filter|") + 1);
            const std::string key = line.find("|spam-filter|") == std::string::npos
                                        ? "all"
                                        : line.substr(from + 1, line.find('|', from + 1) - from - 1);
            keyed.emplace_back(key, line);
            start = end + 1;
        }
        std::sort(keyed.begin(), keyed.end());
        std::string out;
        for (const auto& each : keyed)
            out += each.second;
        return out;
    }

    static std::string sort_rows_by_domain(const std::string& rows) {
        std::vector<std::pair<std::pair<std::string, std::string>, std::string>> keyed;
        std::size_t start = 0;
        while (start < rows.size()) {
            const std::size_t end = rows.find('\n', start);
            const std::string line = rows.substr(start, end - start + 1);
            const std::string address = line.substr(0, line.find('|'));
            const std::size_t at = address.find('@');
            keyed.push_back({{address.substr(at + 1), address.substr(0, at)}, line});
            start = end + 1;
        }
        std::sort(keyed.begin(), keyed.end());
        std::string out;
        for (const auto& each : keyed)
            out += each.second;
        return out;
    }
};

TEST_F(RenameMailnameTest, WithPasswordEverythingFollowsTheNewName) {
    RunOptions options;
    options.stdin_mode = RunOptions::Stdin::Pipe;
    options.input = seeded_document();
    options.env = {"QVT_PASSWORD=whatever"};
    const auto result = run_sorvane(
        {"--rename-mailname", "--domain-name=example.test", "--old-mailname=john", "--new-mailname=jack"}, options);
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "");
    expect_john_renamed(true);
    expect_server_state(read_server_state(), expected);
}

TEST_F(RenameMailnameTest, WithoutPasswordTheAuthenticationRecordsStay) {
    const auto result =
        run_sorvane({"--rename-mailname", "--domain-name=example.test", "--old-mailname=john", "--new-mailname=jack",
                     kDomainAliases, "--mail-addresses=" + seeded_mail_addresses()});
    EXPECT_EQ(result.status, 0) << result.err;
    expect_john_renamed(false);
    expect_server_state(read_server_state(), expected);
}

TEST_F(RenameMailnameTest, QuotaStoreFailureEndsWith255AndChangesNothing) {
    run_sql(kQuotaDb, "CREATE TRIGGER refuse BEFORE UPDATE ON mailbox_quota BEGIN SELECT RAISE(ABORT, 'refused'); END;");
    const auto result =
        run_sorvane({"--rename-mailname", "--domain-name=example.test", "--old-mailname=john", "--new-mailname=jack",
                     kDomainAliases, "--mail-addresses=" + seeded_mail_addresses()});
    EXPECT_EQ(result.status, 255);
    EXPECT_NE(result.err.find("Unable to rename mailbox from 'john@example.test' to 'jack@example.test' in userdb\n"),
              std::string::npos)
        << result.err;
    expect_server_state(read_server_state(), expected);
}

TEST_F(RenameMailnameTest, HandlerMoveFailureIsReportedPerDomainAndEndsWith1) {
    run_sql(kHandlersDb, "CREATE TRIGGER refuse BEFORE INSERT ON handlers WHEN NEW.address = 'jack@alias-one.test' "
                         "BEGIN SELECT RAISE(ABORT, 'refused'); END;");
    const auto result =
        run_sorvane({"--rename-mailname", "--domain-name=example.test", "--old-mailname=john", "--new-mailname=jack",
                     kDomainAliases, "--mail-addresses=" + seeded_mail_addresses()});
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.err.find("Unable to move mail handlers from john@alias-one.test to jack@alias-one.test\n"),
              std::string::npos)
        << result.err;
    expect_john_renamed(false);
    // The handlers at that domain stay under the old name.
    expected.handler_rows = sort_rows_by_address(
        rows_without_addresses(expected.handler_rows, {"jack@alias-one.test"}) + handler_row("john@alias-one.test"));
    expect_server_state(read_server_state(), expected);
}

}  // namespace
}  // namespace sorvane::test
