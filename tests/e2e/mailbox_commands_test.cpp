// --add-mailbox, --remove-mailbox and --set-password from the seeded
// server: the delivery line in ".qmail", the authentication rows of every
// address of the mail name (passwords deciphered with openssl), the flags.
#include "e2e/mailbox_state.h"

namespace sorvane::test {
namespace {

void run_sql(const std::string& db, const std::string& sql) {
    const auto result = run_process({"/usr/bin/sqlite3", db, sql});
    ASSERT_EQ(result.status, 0) << result.err;
}

const std::string kAuthDb = "/var/lib/crelm/mail/auth/passwd.db";

// The seeded document with one more mail name and its quota in bytes.
std::string document_with_mail(const std::string& name, long long quota) {
    std::string document = seeded_document();
    document.insert(document.size() - 3,
                    R"(, {"name": ")" + name + R"(", "mbox_quota": )" + std::to_string(quota) + R"(, "aliases": []})");
    return document;
}

ProcessResult run_with(const std::vector<std::string>& args, const std::string& input,
                       const std::vector<std::string>& env) {
    RunOptions options;
    options.stdin_mode = RunOptions::Stdin::Pipe;
    options.input = input;
    options.env = env;
    return run_sorvane(args, options);
}

// Auth rows sorted as the reader gives them: by domain, then name.
std::string auth_rows_sorted(const std::string& rows) {
    std::vector<std::pair<std::string, std::string>> keyed;
    std::size_t start = 0;
    while (start < rows.size()) {
        const std::size_t end = rows.find('\n', start);
        const std::string line = rows.substr(start, end - start + 1);
        const std::string address = line.substr(0, line.find('|'));
        const std::size_t at = address.find('@');
        keyed.emplace_back(address.substr(at + 1) + "\t" + address.substr(0, at), line);
        start = end + 1;
    }
    std::sort(keyed.begin(), keyed.end());
    std::string out;
    for (const auto& each : keyed)
        out += each.second;
    return out;
}

class MailboxCommandTest : public SeededServerTest {
protected:
    void SetUp() override {
        SeededServerTest::SetUp();
        install_fake_deliverquota();
    }

    // A mail name "new" without a mailbox, with a 1 MB quota.
    void add_new_mailname() {
        const auto added = run_sorvane(
            {"--add-mailname", "--domain-name=example.test", "--mailname=new", "--disk-quota=1048576"});
        ASSERT_EQ(added.status, 0) << added.err;
        expected = read_server_state();
    }
};

TEST_F(MailboxCommandTest, AddMailboxPutsTheDeliveryLineAndStoresThePasswordForEveryAddress) {
    add_new_mailname();
    const auto result = run_with({"--add-mailbox", "--domain-name=example.test", "--mailname=new"},
                                 document_with_mail("new", 1048576), {"QVT_PASSWORD=n3w p4ss'\"$x"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "");
    expected.mail_tree = with_file_content(expected.mail_tree, "example.test/new/.qmail", kSeededQmail);
    std::string auth = expected.auth_users;
    for (const std::string& domain : {kDomain, kAliasOne, kAliasTwo})
        auth += auth_user_row("new", domain, "n3w p4ss'\"$x");
    expected.auth_users = auth_rows_sorted(auth);
    expect_server_state(read_server_state(), expected);
}

TEST_F(MailboxCommandTest, AddMailboxTwiceLeavesOneDeliveryLine) {
    add_new_mailname();
    const std::vector<std::string> args = {"--add-mailbox", "--domain-name=example.test", "--mailname=new"};
    ASSERT_EQ(run_with(args, document_with_mail("new", 1048576), {"QVT_PASSWORD=pw"}).status, 0);
    const auto again = run_with(args, document_with_mail("new", 1048576), {"QVT_PASSWORD=pw"});
    EXPECT_EQ(again.status, 0) << again.err;
    EXPECT_EQ(read_file("/var/qmail/mailnames/example.test/new/.qmail"), kSeededQmail);
}

TEST_F(MailboxCommandTest, DeliveryDisabledStoresThePasswordAndLeavesDeliveryOff) {
    add_new_mailname();
    const auto result =
        run_with({"--add-mailbox", "--domain-name=example.test", "--mailname=new", "--mail-delivery-disabled"},
                 document_with_mail("new", 1048576), {"QVT_PASSWORD=quiet"});
    EXPECT_EQ(result.status, 0) << result.err;
    std::string auth = expected.auth_users;
    for (const std::string& domain : {kDomain, kAliasOne, kAliasTwo})
        auth += auth_user_row("new", domain, "quiet");
    expected.auth_users = auth_rows_sorted(auth);
    expect_server_state(read_server_state(), expected);
}

TEST_F(MailboxCommandTest, CryptedPasswordIsStoredAsGiven) {
    add_new_mailname();
    const std::string crypted = "$1$abcdefgh$0123456789abcdefghijkl";
    const auto result = run_with({"--add-mailbox", "--domain-name=example.test", "--mailname=new"},
                                 document_with_mail("new", 1048576), {"QVT_CRYPTED_PASSWORD=" + crypted});
    EXPECT_EQ(result.status, 0) << result.err;
    expected.mail_tree = with_file_content(expected.mail_tree, "example.test/new/.qmail", kSeededQmail);
    std::string auth = expected.auth_users;
    for (const std::string& domain : {kDomain, kAliasOne, kAliasTwo})
        auth += auth_user_row("new", domain, "plain:" + crypted);
    expected.auth_users = auth_rows_sorted(auth);
    expect_server_state(read_server_state(), expected);
}

TEST_F(MailboxCommandTest, DomainDisabledFlagMakesANewDomainRowDisabled) {
    for (const bool disabled : {false, true}) {
        const std::string domain = disabled ? "off.test" : "on.test";
        write_file("/etc/qvt/qvt.conf", "", 0644);
        ASSERT_EQ(run_process({"/bin/sh", "-c",
                               "mkdir -p /var/qmail/mailnames/" + domain + " && chown popuser:popuser /var/qmail/mailnames/" +
                                   domain + " && chmod 0700 /var/qmail/mailnames/" + domain})
                      .status,
                  0);
        ASSERT_EQ(run_sorvane({"--add-mailname", "--domain-name=" + domain, "--mailname=a"}).status, 0);
        std::vector<std::string> args = {"--add-mailbox", "--domain-name=" + domain, "--mailname=a",
                                         "--mail-addresses=a"};
        if (disabled)
            args.push_back("-D");
        const auto result = run_with(args, "", {"QVT_PASSWORD=pw"});
        EXPECT_EQ(result.status, 0) << result.err;
    }
    const std::string domains = auth_domains();
    EXPECT_NE(domains.find("off.test|1\n"), std::string::npos) << domains;
    EXPECT_NE(domains.find("on.test|0\n"), std::string::npos) << domains;
    const std::string users = auth_users();
    EXPECT_NE(users.find("a@off.test|0|1|pw\n"), std::string::npos) << users;
    EXPECT_NE(users.find("a@on.test|0|0|pw\n"), std::string::npos) << users;
}

TEST_F(MailboxCommandTest, AuthenticationStoreFailureEndsWith1WithDeliveryOn) {
    add_new_mailname();
    run_sql(kAuthDb, "CREATE TRIGGER refuse BEFORE INSERT ON users BEGIN SELECT RAISE(ABORT, 'refused'); END;");
    const auto result = run_with({"--add-mailbox", "--domain-name=example.test", "--mailname=new"},
                                 document_with_mail("new", 1048576), {"QVT_PASSWORD=pw"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err.find("pw"), std::string::npos) << result.err;
    expected.mail_tree = with_file_content(expected.mail_tree, "example.test/new/.qmail", kSeededQmail);
    expect_server_state(read_server_state(), expected);
}

TEST_F(MailboxCommandTest, WithoutDeliveryAgentTheLineIsNotWrittenButThePasswordIs) {
    add_new_mailname();
    ASSERT_EQ(run_process({"/bin/rm", "-f", "/usr/bin/deliverquota"}).status, 0);
    // A Dovecot agent on this machine is made unusable too.
    if (path_exists("/usr/lib/dovecot/dovecot-lda")) {
        install_program("/usr/lib/dovecot/dovecot-lda", "#!/bin/sh\nexit 0\n");
        ASSERT_EQ(run_process({"/bin/chmod", "0644", "/usr/lib/dovecot/dovecot-lda"}).status, 0);
    }
    const auto result = run_with({"--add-mailbox", "--domain-name=example.test", "--mailname=new"},
                                 document_with_mail("new", 1048576), {"QVT_PASSWORD=pw"});
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.err.find("Unable to detect IMAP/POP3 server type - "), std::string::npos)
        << result.err;
    std::string auth = expected.auth_users;
    for (const std::string& domain : {kDomain, kAliasOne, kAliasTwo})
        auth += auth_user_row("new", domain, "pw");
    expected.auth_users = auth_rows_sorted(auth);
    expect_server_state(read_server_state(), expected);
}

TEST_F(MailboxCommandTest, RemoveMailboxTakesTheLineAndEveryAuthenticationRowAway) {
    const auto result = run_sorvane_with_input(
        {"--remove-mailbox", "--domain-name=example.test", "--mailname=info"}, seeded_document());
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "");
    expected.mail_tree = with_file_content(expected.mail_tree, "example.test/info/.qmail", "| true\n");
    expected.auth_users =
        rows_without_addresses(expected.auth_users, addresses_at_all_domains({"info", "sales", "office"}));
    expect_server_state(read_server_state(), expected);
}

TEST_F(MailboxCommandTest, RemoveMailboxAuthenticationFailureEndsWith1) {
    run_sql(kAuthDb, "CREATE TRIGGER refuse BEFORE DELETE ON users BEGIN SELECT RAISE(ABORT, 'refused'); END;");
    const auto result = run_sorvane_with_input(
        {"--remove-mailbox", "--domain-name=example.test", "--mailname=info"}, seeded_document());
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.err.find("Unable to remove mail aliases for info@example.test\n"), std::string::npos)
        << result.err;
    expect_server_state(read_server_state(), expected);
}

TEST_F(MailboxCommandTest, SetPasswordChangesItForEveryAddressOfTheMailName) {
    const auto result = run_with({"--set-password", "--domain-name=example.test", "--mailname=john"},
                                 seeded_document(), {"QVT_PASSWORD=brand new"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "");
    std::string auth = rows_without_addresses(expected.auth_users, addresses_at_all_domains({"john", "j.doe"}));
    for (const std::string& domain : {kDomain, kAliasOne, kAliasTwo})
        for (const char* local : {"john", "j.doe"})
            auth += auth_user_row(local, domain, "brand new");
    expected.auth_users = auth_rows_sorted(auth);
    expect_server_state(read_server_state(), expected);
}

TEST_F(MailboxCommandTest, SetPasswordStoreFailureEndsWith1) {
    run_sql(kAuthDb, "CREATE TRIGGER refuse BEFORE INSERT ON users BEGIN SELECT RAISE(ABORT, 'refused'); END;");
    const auto result = run_with({"--set-password", "--domain-name=example.test", "--mailname=john"},
                                 seeded_document(), {"QVT_PASSWORD=brand new"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err.find("brand new"), std::string::npos) << result.err;
    expect_server_state(read_server_state(), expected);
}

}  // namespace
}  // namespace sorvane::test
