// The whole panel life of a domain: add it, give it a mail name and a
// domain alias, turn it off and on, rename the domain and the alias, remove
// the alias and the domain. Every file and store after each step, and
// nothing of the domain left at the end.
#include <algorithm>

#include "e2e/domain_test_support.h"
#include "stores/mailbox_quota_db.h"

namespace sorvane::test {
namespace {

const std::string kLife = "life.test";
const std::string kRenamed = "life-renamed.test";
const std::string kAlias = "life-alias.test";
const std::string kAlias2 = "life-alias2.test";
const std::string kPassword = "Life's pass";

class DomainLifeTest : public SandboxTest {
protected:
    void SetUp() override {
        SandboxTest::SetUp();
        give_host_name();
        seed_empty_server();
    }

    // What the panel and the mail name commands would have made meanwhile:
    // the domain's key directory, and the mail name info (alias sales) with
    // its mailbox.
    static void add_mail_name_and_keys() {
        seed_key_dir(kLife);
        seed_mail_tree(kLife, "info");
        write_file("/var/qmail/users/assign", mailname_record(kLife, "sales", "info") +
                                                  mailname_record(kLife, "info", "info") +
                                                  read_file("/var/qmail/users/assign"));
        ASSERT_TRUE(crelm::mail::MailboxQuotaDb().setQuota(kLife, "info", 1048576));
        for (const std::string local : {"info", "sales"}) {
            seed_auth_user(local, kLife, kPassword);
            seed_handler(local + "@" + kLife);
        }
    }

    static std::vector<std::string> session(const std::string& aliases) {
        if (aliases.empty())
            return {"--mail-addresses=info,sales"};
        return {"--domain-aliases=" + aliases, "--mail-addresses=info,sales"};
    }

    static std::string users_at(const std::string& domain, int status = 0) {
        return "info@" + domain + "|0|" + std::to_string(status) + "|" + kPassword + "\n" + "sales@" + domain + "|0|" +
               std::to_string(status) + "|" + kPassword + "\n";
    }
    static std::string handlers_at(const std::string& domain, bool enabled = true) {
        return handler_row("info@" + domain, enabled) + handler_row("sales@" + domain, enabled);
    }
    // The handler rows of both addresses at each of two domains, in the
    // readers' order (by address).
    static std::string handlers_at(const std::string& first, const std::string& second) {
        std::vector<std::string> addresses;
        for (const std::string local : {"info", "sales"})
            for (const auto& domain : {first, second})
                addresses.push_back(local + "@" + domain);
        std::sort(addresses.begin(), addresses.end());
        std::string rows;
        for (const auto& address : addresses)
            rows += handler_row(address);
        return rows;
    }
    static std::string key_copy(const std::string& from, const std::string& to) {
        return to + "/ d 0:0 0750\n" + to + "/default f 0:0 0600 private key of " + from + "\\n\n";
    }
    static std::string tree(const std::string& domain, const std::string& qmail_default) {
        return sorted_lines(default_delivery_lines() + domain_tree_lines(domain, qmail_default, {"info"}));
    }
    static std::string records(const std::string& domain) {
        return mailname_record(domain, "sales", "info") + mailname_record(domain, "info", "info") +
               domain_record(domain) + ".\n";
    }
};

TEST_F(DomainLifeTest, AddAliasOffOnRenameRenameAliasRemoveAliasRemove) {
    ServerState expected = read_server_state();

    // Added: the domain bounces unknown names.
    expect_silent_success(run_sorvane({"--add-domain", "--domain-name=life.test"}));
    expected.rcpthosts = kLife + "\n";
    expected.virtualdomains = kLife + ":" + kLife + "\n";
    expected.rejectnonexist = "";
    expected.assign = domain_record(kLife) + ".\n";
    expected.mail_tree = sorted_lines(default_delivery_lines() + domain_dir_lines(kLife, kDefaultBounce));
    expected.qmail_newu_calls = {kNewuCall};
    expected.killall_calls = {kReloadCall};
    expect_server_state(read_server_state(), expected);

    add_mail_name_and_keys();
    expected.assign = records(kLife);
    expected.mail_tree = tree(kLife, kDefaultBounce);
    expected.key_dirs = key_dir_lines(kLife);
    expected.quota_rows = quota_row(kLife, "info", "1048576B");
    expected.handler_rows = handlers_at(kLife);
    expected.auth_domains = auth_domain_row(kLife);
    expected.auth_users = users_at(kLife);

    // A domain alias: its lines, the handlers, keys and rows of the domain.
    expect_silent_success(run_sorvane(joined(
        {"--add-domain-alias", "--domain-name=life.test", "--domain-alias-name=life-alias.test", "--set-bounce"},
        session(kAlias))));
    expected.rcpthosts = kLife + "\n" + kAlias + "\n";
    expected.virtualdomains = kLife + ":" + kLife + "\n" + kAlias + ":" + kLife + "\n";
    expected.key_dirs = sorted_lines(key_copy(kLife, kAlias) + key_dir_lines(kLife));
    expected.handler_rows = handlers_at(kAlias, kLife);
    expected.auth_domains = auth_domain_row(kAlias) + auth_domain_row(kLife);
    expected.auth_users = users_at(kAlias) + users_at(kLife);
    expected.qmail_newu_calls = repeated(kNewuCall, 2);
    expected.killall_calls = repeated(kReloadCall, 2);
    expect_server_state(read_server_state(), expected);

    // Off: no longer local, unknown names rejected, the alias gone.
    expect_silent_success(run_sorvane(joined({"--turn-off-domain", "--domain-name=life.test"}, session(kAlias))));
    expected.rcpthosts = "";
    expected.virtualdomains = "";
    expected.rejectnonexist = kLife + "\n";
    expected.key_dirs = key_dir_lines(kLife);
    expected.handler_rows = handlers_at(kLife, false);
    expected.auth_domains = auth_domain_row(kLife, 1);
    expected.auth_users = users_at(kLife, 1);
    expected.qmail_newu_calls = repeated(kNewuCall, 3);
    expected.killall_calls = repeated(kReloadCall, 3);
    expect_server_state(read_server_state(), expected);

    // On with a catch-all: the alias is back.
    expect_silent_success(run_sorvane(joined({"--turn-on-domain", "--domain-name=life.test", "--set-catchall",
                                              "--email=owner@elsewhere.test"},
                                             session(kAlias))));
    expected.rcpthosts = kLife + "\n" + kAlias + "\n";
    expected.virtualdomains = kLife + ":" + kLife + "\n" + kAlias + ":" + kLife + "\n";
    expected.rejectnonexist = "";
    expected.mail_tree = tree(kLife, "&owner@elsewhere.test\n");
    expected.key_dirs = sorted_lines(key_copy(kLife, kAlias) + key_dir_lines(kLife));
    expected.handler_rows = handlers_at(kAlias, kLife);
    expected.auth_domains = auth_domain_row(kAlias) + auth_domain_row(kLife);
    expected.auth_users = users_at(kAlias) + users_at(kLife);
    expected.qmail_newu_calls = repeated(kNewuCall, 4);
    expected.killall_calls = repeated(kReloadCall, 4);
    expect_server_state(read_server_state(), expected);

    // The domain renamed: files, tree, keys, quota, handler and
    // authentication rows follow; qmail is restarted.
    expect_silent_success(
        run_sorvane({"--rename-domain", "--old-domain-name=life.test", "--new-domain-name=life-renamed.test"}));
    expected.rcpthosts = kRenamed + "\n" + kAlias + "\n";
    expected.virtualdomains = kRenamed + ":" + kRenamed + "\n" + kAlias + ":" + kRenamed + "\n";
    expected.assign = records(kRenamed);
    expected.mail_tree = tree(kRenamed, "&owner@elsewhere.test\n");
    expected.key_dirs = sorted_lines(key_copy(kLife, kAlias) + key_copy(kLife, kRenamed));
    expected.quota_rows = quota_row(kRenamed, "info", "1048576B");
    expected.handler_rows = handlers_at(kAlias, kRenamed);
    expected.auth_domains = auth_domain_row(kAlias) + auth_domain_row(kRenamed);
    expected.auth_users = users_at(kAlias) + users_at(kRenamed);
    expected.qmail_newu_calls = repeated(kNewuCall, 5);
    expected.crelmrc_calls = {kRestartCall};
    expect_server_state(read_server_state(), expected);

    // The alias renamed.
    expect_silent_success(run_sorvane(joined({"--rename-domain-alias", "--domain-name=life-renamed.test",
                                              "--old-domain-alias-name=life-alias.test",
                                              "--new-domain-alias-name=life-alias2.test", "--set-bounce"},
                                             session(kAlias))));
    expected.rcpthosts = kRenamed + "\n" + kAlias2 + "\n";
    expected.virtualdomains = kRenamed + ":" + kRenamed + "\n" + kAlias2 + ":" + kRenamed + "\n";
    expected.key_dirs = sorted_lines(key_copy(kLife, kAlias2) + key_copy(kLife, kRenamed));
    expected.handler_rows = handlers_at(kAlias2, kRenamed);
    expected.auth_domains = auth_domain_row(kAlias2) + auth_domain_row(kRenamed);
    expected.auth_users = users_at(kAlias2) + users_at(kRenamed);
    expected.qmail_newu_calls = repeated(kNewuCall, 6);
    expected.killall_calls = repeated(kReloadCall, 5);
    expect_server_state(read_server_state(), expected);

    // The alias removed.
    expect_silent_success(run_sorvane(joined(
        {"--del-domain-alias", "--domain-name=life-renamed.test", "--domain-alias-name=life-alias2.test"},
        session(kAlias2))));
    expected.rcpthosts = kRenamed + "\n";
    expected.virtualdomains = kRenamed + ":" + kRenamed + "\n";
    expected.key_dirs = key_copy(kLife, kRenamed);
    expected.handler_rows = handlers_at(kRenamed);
    expected.auth_domains = auth_domain_row(kRenamed);
    expected.auth_users = users_at(kRenamed);
    expected.qmail_newu_calls = repeated(kNewuCall, 7);
    expected.killall_calls = repeated(kReloadCall, 6);
    expect_server_state(read_server_state(), expected);

    // The domain removed: nothing of it is left.
    expect_silent_success(run_sorvane(joined({"--remove-domain", "--domain-name=life-renamed.test"}, session(""))));
    expected.rcpthosts = "";
    expected.virtualdomains = "";
    expected.assign = ".\n";
    expected.mail_tree = default_delivery_lines();
    expected.key_dirs = "";
    expected.quota_rows = "";
    expected.handler_rows = "";
    expected.auth_domains = "";
    expected.auth_users = "";
    expected.qmail_newu_calls = repeated(kNewuCall, 8);
    expected.killall_calls = repeated(kReloadCall, 7);
    expect_server_state(read_server_state(), expected);
}

}  // namespace
}  // namespace sorvane::test
