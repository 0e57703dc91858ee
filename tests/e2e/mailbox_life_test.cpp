// A mailbox's whole life on the seeded server, with real deliveries: add the
// mail name with a quota, its mailbox with a password, two aliases; deliver
// through the ".qmail" line with the real deliverquota; size; a quota below
// the usage refuses the next message, no limit takes it again; a new
// password; a rename that the aliases, ".qmail", home, stores and deliveries
// follow; then the mailbox and the mail name go, and nothing of them stays.
#include <sys/stat.h>

#include <filesystem>
#include <sstream>

#include "e2e/mailbox_state.h"

namespace fs = std::filesystem;

namespace sorvane::test {
namespace {

// deliverquota's exit status for a message over quota.
constexpr int kOverQuota = 77;

std::string document_with(const std::string& name, const std::vector<std::string>& aliases, long long quota) {
    std::string mail = R"(, {"name": ")" + name + R"(", "mbox_quota": )" + std::to_string(quota) + R"(, "aliases": [)";
    for (std::size_t i = 0; i < aliases.size(); ++i)
        mail += (i ? ", \"" : "\"") + aliases[i] + "\"";
    mail += "]}";
    std::string document = seeded_document();
    document.insert(document.size() - 3, mail);
    return document;
}

ProcessResult run(const std::vector<std::string>& args, const std::string& input,
                  const std::vector<std::string>& env = {}) {
    RunOptions options;
    options.stdin_mode = RunOptions::Stdin::Pipe;
    options.input = input;
    options.env = env;
    return run_sorvane(args, options);
}

// The home that assign gives the address local@example.test.
std::string assigned_home(const std::string& local) {
    const std::string assign = read_file("/var/qmail/users/assign");
    const std::string key = "=example.test-" + local + ":";
    const std::size_t at = assign.find("\n" + key) != std::string::npos ? assign.find("\n" + key) + 1
                                                                         : (assign.rfind(key, 0) == 0 ? 0 : std::string::npos);
    if (at == std::string::npos)
        return "";
    const std::string line = assign.substr(at, assign.find('\n', at) - at);
    std::vector<std::string> fields;
    std::istringstream in(line);
    for (std::string field; std::getline(in, field, ':');)
        fields.push_back(field);
    return fields.size() > 4 ? fields[4] : "";
}

// Delivers message to local@example.test as qmail would: the home from
// assign, then each program line of its ".qmail" in turn, stopping at the
// first that fails. Returns the status of the last line run.
int deliver(const std::string& local, const std::string& message) {
    const std::string home = assigned_home(local);
    EXPECT_FALSE(home.empty()) << "no assign record for " << local;
    if (home.empty())
        return -1;
    std::istringstream lines(read_file(home + "/.qmail"));
    int status = 0;
    for (std::string line; std::getline(lines, line);) {
        if (line.rfind("|", 0) != 0)
            continue;
        const auto result = run_delivery_line(home, line, message);
        status = result.status;
        if (status != 0)
            break;
    }
    return status;
}

std::vector<std::string> delivered(const std::string& home) {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(home + "/Maildir/new"))
        names.push_back(entry.path().filename());
    std::sort(names.begin(), names.end());
    return names;
}

long long delivered_bytes(const std::string& home) {
    long long bytes = 0;
    for (const auto& name : delivered(home))
        bytes += static_cast<long long>(fs::file_size(home + "/Maildir/new/" + name));
    return bytes;
}

// The listing without the delivered messages and the agent-updated
// "maildirsize" of one home (both checked on their own).
std::string tree_without_deliveries(const std::string& listing, const std::string& home) {
    return without_lines(without_lines(listing, home + "/Maildir/new/"), home + "/Maildir/maildirsize ");
}

std::string auth_rows_sorted(const std::string& rows) {
    std::vector<std::pair<std::string, std::string>> keyed;
    std::istringstream in(rows);
    for (std::string line; std::getline(in, line);) {
        const std::string address = line.substr(0, line.find('|'));
        const std::size_t at = address.find('@');
        keyed.emplace_back(address.substr(at + 1) + "\t" + address.substr(0, at), line + "\n");
    }
    std::sort(keyed.begin(), keyed.end());
    std::string out;
    for (const auto& each : keyed)
        out += each.second;
    return out;
}

std::string auth_rows_for(const std::vector<std::string>& locals, const std::string& password) {
    std::string rows;
    for (const std::string& domain : {kDomain, kAliasOne, kAliasTwo})
        for (const std::string& local : locals)
            rows += auth_user_row(local, domain, password);
    return rows;
}

// Everything but the authentication rows, whose deciphering is the slow
// part of a read; they are compared at the steps that change them.
ServerState read_state_but_auth(const ServerState& expected) {
    ServerState state;
    state.rcpthosts = control_file("/var/qmail/control/rcpthosts");
    state.virtualdomains = control_file("/var/qmail/control/virtualdomains");
    state.locals = control_file("/var/qmail/control/locals");
    state.rejectnonexist = control_file("/var/qmail/control/rejectnonexist");
    state.assign = control_file("/var/qmail/users/assign");
    state.mail_tree = mail_tree_listing();
    state.key_dirs = key_dirs_listing();
    state.quota_rows = quota_rows();
    state.handler_rows = handler_rows();
    state.auth_domains = auth_domains();
    state.auth_users = expected.auth_users;
    state.qmail_newu_calls = fake_calls("qmail-newu");
    state.killall_calls = fake_calls("killall");
    state.crelmrc_calls = fake_calls("crelmrc");
    return state;
}

class MailboxLifeTest : public SeededServerTest {};

TEST_F(MailboxLifeTest, FromCreationToRemovalWithRealDeliveries) {
    if (!install_real_deliverquota())
        GTEST_SKIP() << "/usr/sbin/deliverquota is not installed";
    const ServerState seeded = expected;
    const std::string message = "From: sender@neighbour.test\nSubject: life\n\n" + std::string(2000, 'm') + "\n";
    const std::string life_home = "/var/qmail/mailnames/example.test/life";
    const std::string vita_home = "/var/qmail/mailnames/example.test/vita";

    // 1. The mail name, with a quota of 100000 bytes.
    auto result = run_sorvane({"--add-mailname", "--domain-name=example.test", "--mailname=life", "--disk-quota=100000"});
    ASSERT_EQ(result.status, 0) << result.err;
    expected.assign = mailname_record(kDomain, "life", "life") + expected.assign;
    expected.mail_tree = with_lines(expected.mail_tree,
                                    new_mail_tree_lines(kDomain, "life", "| true\n",
                                                        maildirsize_text(quota_header("life", 100000), 0, 0)));
    expected.quota_rows = sorted_lines(expected.quota_rows + quota_row(kDomain, "life", "100000B"));
    expected.qmail_newu_calls = {""};
    expect_server_state(read_state_but_auth(expected), expected);
    // Without a mailbox mail is accepted and dropped.
    EXPECT_EQ(deliver("life", message), 0);
    EXPECT_TRUE(delivered(life_home).empty());

    // 2. The mailbox, with a password.
    result = run({"--add-mailbox", "--domain-name=example.test", "--mailname=life"},
                 document_with("life", {}, 100000), {"QVT_PASSWORD=first secret"});
    ASSERT_EQ(result.status, 0) << result.err;
    expected.mail_tree = with_file_content(expected.mail_tree, "example.test/life/.qmail", kSeededQmail);
    expected.auth_users = auth_rows_sorted(expected.auth_users + auth_rows_for({"life"}, "first secret"));
    expect_server_state(read_state_but_auth(expected), expected);

    // 3. Two aliases.
    for (const std::string alias : {"l1", "l2"}) {
        result = run({"--add-alias", "--domain-name=example.test", "--mailname=life", "--alias=" + alias},
                     document_with("life", {}, 100000));
        ASSERT_EQ(result.status, 0) << result.err;
        expected.assign = mailname_record(kDomain, alias, "life") + expected.assign;
        expected.auth_users = auth_rows_sorted(expected.auth_users + auth_rows_for({alias}, "first secret"));
        expected.qmail_newu_calls.push_back("");
    }
    expect_server_state(read_server_state(), expected);

    // 4. Deliveries to the mail name and to each alias land in its Maildir.
    for (const std::string local : {"life", "l1", "l2"})
        EXPECT_EQ(deliver(local, message), 0) << local;
    EXPECT_EQ(delivered(life_home).size(), 3u);
    ServerState now = read_state_but_auth(expected);
    EXPECT_EQ(tree_without_deliveries(now.mail_tree, "example.test/life"),
              tree_without_deliveries(expected.mail_tree, "example.test/life"));
    now.mail_tree = expected.mail_tree;
    expect_server_state(now, expected);

    // 5. The size counts what was delivered.
    result = run_sorvane({"--get-mailbox-size", "--domain-name=example.test", "--mailname=life"});
    ASSERT_EQ(result.status, 0) << result.err;
    struct stat attachments {};
    ASSERT_EQ(lstat((life_home + "/@attachments").c_str(), &attachments), 0);
    EXPECT_EQ(result.out, std::to_string(attachments.st_size + delivered_bytes(life_home)));

    // 6. A quota below the usage: the next message is refused.
    result = run_sorvane(
        {"--set-mailbox-disk-quota", "--domain-name=example.test", "--mailname=life", "--disk-quota=5000"});
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(read_file(life_home + "/Maildir/maildirsize"),
              maildirsize_text(quota_header("life", 5000), delivered_bytes(life_home), 3));
    EXPECT_EQ(deliver("life", message), kOverQuota);
    EXPECT_EQ(delivered(life_home).size(), 3u);
    expected.quota_rows = sorted_lines(without_lines(expected.quota_rows, "example.test|life|") +
                                       quota_row(kDomain, "life", "5000B"));

    // 7. No limit: delivered again.
    result = run_sorvane(
        {"--set-mailbox-disk-quota", "--domain-name=example.test", "--mailname=life", "--disk-quota=-1"});
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(deliver("l1", message), 0);
    EXPECT_EQ(delivered(life_home).size(), 4u);
    expected.quota_rows = sorted_lines(without_lines(expected.quota_rows, "example.test|life|") +
                                       quota_row(kDomain, "life", "0B"));

    // 8. A new password for every address.
    result = run({"--set-password", "--domain-name=example.test", "--mailname=life"},
                 document_with("life", {"l1", "l2"}, -1), {"QVT_PASSWORD=second secret"});
    ASSERT_EQ(result.status, 0) << result.err;
    expected.auth_users = auth_rows_sorted(
        rows_without_addresses(expected.auth_users, addresses_at_all_domains({"life", "l1", "l2"})) +
        auth_rows_for({"life", "l1", "l2"}, "second secret"));
    EXPECT_EQ(auth_users(), expected.auth_users);
    EXPECT_EQ(quota_rows(), expected.quota_rows);

    // 9. Rename: the aliases, ".qmail", home, stores and deliveries follow.
    result = run({"--rename-mailname", "--domain-name=example.test", "--old-mailname=life", "--new-mailname=vita"},
                 document_with("life", {"l1", "l2"}, -1), {"QVT_PASSWORD=second secret"});
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_FALSE(path_exists(life_home));
    EXPECT_EQ(delivered(vita_home).size(), 4u);
    for (const std::string local : {"vita", "l1", "l2"}) {
        EXPECT_EQ(assigned_home(local), vita_home) << local;
        EXPECT_EQ(deliver(local, message), 0) << local;
    }
    EXPECT_EQ(delivered(vita_home).size(), 7u);
    EXPECT_EQ(assigned_home("life"), "");
    EXPECT_EQ(read_file(vita_home + "/.qmail"), kSeededQmail);
    EXPECT_EQ(file_info(vita_home + "/.qmail").mode, 0600u);
    const std::string quotas = quota_rows();
    EXPECT_NE(quotas.find("example.test|vita|0B\n"), std::string::npos) << quotas;
    EXPECT_EQ(quotas.find("|life|"), std::string::npos) << quotas;
    EXPECT_EQ(auth_users(),
              auth_rows_sorted(rows_without_addresses(expected.auth_users, addresses_at_all_domains({"life"})) +
                               auth_rows_for({"vita"}, "second secret")));

    // 10. The mailbox goes: no delivery line, no authentication rows.
    result = run({"--remove-mailbox", "--domain-name=example.test", "--mailname=vita"},
                 document_with("vita", {"l1", "l2"}, -1));
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(read_file(vita_home + "/.qmail"), "| true\n");
    EXPECT_EQ(auth_users(), seeded.auth_users);
    EXPECT_EQ(deliver("vita", message), 0);
    EXPECT_EQ(delivered(vita_home).size(), 7u);

    // 11. The mail name goes, and nothing of it stays.
    result = run({"--remove-mailname", "--domain-name=example.test", "--mailname=vita"},
                 document_with("vita", {"l1", "l2"}, -1));
    ASSERT_EQ(result.status, 0) << result.err;
    // qmail-newu ran once per command that changed assign, and no reload.
    ServerState end = seeded;
    end.qmail_newu_calls = std::vector<std::string>(5, "");
    expect_server_state(read_server_state(), end);
}

}  // namespace
}  // namespace sorvane::test
