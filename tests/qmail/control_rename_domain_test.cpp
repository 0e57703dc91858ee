// Renaming a domain: its directory, rcpthosts, locals (by the host-name
// rule), virtualdomains, assign, the authentication store, rejectnonexist,
// the key directory and the handlers, then qmail-newu and the restart, with
// look-alike domains beside it that must stay as they are.
#include <sched.h>
#include <stdio.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include "qmail/control_files.h"
#include "qmail/control_test_support.h"
#include "stores/mail_auth_paths.h"
#include "stores/mail_auth_store.h"
#include "stores/mail_handlers_store.h"
#include "stores/store_test_support.h"

namespace sorvane::test {
namespace {

const std::string kOrder = "/tmp/.sandbox/fakes/order";
const std::vector<std::string> kNeighbours{"a-test", "axtest", "a.test.example", "aa.test"};

struct HostSetting {
    std::string host_name;
    std::string hosts;
};

// No line of the hosts file names the host: its full name is unknown.
const HostSetting kUnknownHost{"nowhere", "127.0.0.1 localhost\n"};

std::string auth_users() {
    return sqlite_cli(mail_auth_db_path(),
                      "SELECT u.name || '@' || d.name FROM users u, domains d WHERE u.dom_id = d.id "
                      "ORDER BY d.name, u.name;");
}

std::string handler_addresses() {
    return sqlite_cli(mail_handlers_db_path(), "SELECT address FROM handlers ORDER BY address;");
}

MailHandlerRecord handler_for(const std::string& address) {
    MailHandlerRecord record;
    record.name = "check";
    record.address = address;
    record.priority = 10;
    record.type = 2;
    record.queue = 1;
    record.executable = "/usr/lib/handlers/check";
    record.enabled = true;
    return record;
}

class ControlRenameDomainTest : public ControlFilesTest {
protected:
    void SetUp() override {
        ControlFilesTest::SetUp();
        for (const std::string& domain : domains()) {
            ASSERT_EQ(qmail_add_domain(domain, false), 0);
            ASSERT_EQ(qmail_add_mailname_record("info", domain), 0);
            ASSERT_EQ(qmail_add_mail_alias("info", domain, "sales"), 0);
            ASSERT_EQ(add_mail_auth_user("info", domain, "secret", 0), 0);
            ASSERT_EQ(add_mail_handler(handler_for("info@" + domain)), 0);
            ASSERT_EQ(mkdir(("/etc/domainkeys/" + domain).c_str(), 0750), 0);
            write_file("/etc/domainkeys/" + domain + "/default", "key of " + domain + "\n", 0400);
            write_file(std::string(kMailnamesPath) + "/" + domain + "/marker", domain);
        }
        ASSERT_EQ(qmail_add_domain_alias("a.test", "alias.test"), 0);
        ASSERT_EQ(qmail_add_domain_alias("a-test", "alias-of-neighbour.test"), 0);
        write_file(kRejectPath, "a.test\na-test\naxtest\nalias.test\n", 0640);
        install_fake("/var/qmail/bin/qmail-newu", "echo qmail-newu \"$@\" >> " + kOrder);
        install_fake("/opt/qvt/admin/sbin/crelmrc", "echo crelmrc \"$@\" >> " + kOrder);
        before_ = read_control_files();
    }

    static std::vector<std::string> domains() {
        std::vector<std::string> all{"a.test"};
        all.insert(all.end(), kNeighbours.begin(), kNeighbours.end());
        return all;
    }

    // The files as set up with a.test renamed to b.test wherever it is the
    // domain: the whole line in rcpthosts, either side in virtualdomains,
    // the keys and homes of its records in assign.
    static ControlFiles renamed_files(const std::string& rcpthosts, const std::string& locals) {
        std::vector<std::string> records;
        for (auto domain = kNeighbours.rbegin(); domain != kNeighbours.rend(); ++domain) {
            records.push_back(name_record(*domain, "sales", "info"));
            records.push_back(name_record(*domain, "info", "info"));
            records.push_back(plus_record(*domain));
        }
        records.push_back(name_record("b.test", "sales", "info"));
        records.push_back(name_record("b.test", "info", "info"));
        records.push_back(plus_record("b.test"));
        return ControlFiles{rcpthosts,
                            "b.test:b.test\na-test:a-test\naxtest:axtest\na.test.example:a.test.example\n"
                            "aa.test:aa.test\nalias.test:b.test\nalias-of-neighbour.test:a-test\n",
                            locals, assign_of(records)};
    }

    static std::string rcpthosts_with(const std::string& first) {
        return "localhost\n" + first + "\na-test\naxtest\na.test.example\naa.test\nalias.test\n"
                                        "alias-of-neighbour.test\n";
    }

    // Runs the rename in a child whose host has the given name and hosts
    // file; the child's exit status is the rename's result.
    static ProcessResult rename_with_host(const HostSetting& host, const std::string& from = "a.test",
                                          const std::string& to = "b.test") {
        const std::string hosts_path = scratch_dir() + "/hosts";
        write_file(hosts_path, host.hosts);
        return run_in_child([&] {
            if (unshare(CLONE_NEWUTS | CLONE_NEWNS) != 0 ||
                sethostname(host.host_name.data(), host.host_name.size()) != 0 ||
                mount(hosts_path.c_str(), "/etc/hosts", nullptr, MS_BIND, nullptr) != 0)
                return 99;
            return qmail_rename_domain(from, to);
        });
    }

    void expect_stores_and_keys_renamed() const {
        EXPECT_EQ(auth_users(), "info@a-test\ninfo@a.test.example\ninfo@aa.test\ninfo@axtest\ninfo@b.test\n");
        EXPECT_EQ(handler_addresses(), "info@a-test\ninfo@a.test.example\ninfo@aa.test\ninfo@axtest\ninfo@b.test\n");
        EXPECT_FALSE(path_exists("/etc/domainkeys/a.test"));
        EXPECT_EQ(read_file("/etc/domainkeys/b.test/default"), "key of a.test\n");
        EXPECT_EQ(read_file("/etc/domainkeys/a-test/default"), "key of a-test\n");
        EXPECT_FALSE(path_exists(std::string(kMailnamesPath) + "/a.test"));
        EXPECT_EQ(read_file(std::string(kMailnamesPath) + "/b.test/marker"), "a.test");
    }

    // Everything renamed for a host of unknown name, qmail-newu and the
    // restart run once.
    void expect_fully_renamed() const {
        EXPECT_EQ(read_control_files(), renamed_files(rcpthosts_with("b.test"), "localhost\n"));
        expect_dot_last();
        EXPECT_EQ(read_file(kRejectPath), "b.test\na-test\naxtest\nalias.test\n");
        expect_stores_and_keys_renamed();
        EXPECT_EQ(read_file(kOrder), "qmail-newu\ncrelmrc qmail restart\n");
    }

    static void expect_root_owned_0644(const char* path) {
        const FileInfo info = file_info(path);
        EXPECT_EQ(info.uid, 0u) << path;
        EXPECT_EQ(info.gid, 0u) << path;
        EXPECT_EQ(info.mode, 0644u) << path;
    }

    ControlFiles before_;
};

TEST_F(ControlRenameDomainTest, EverythingFollowsTheRenameAndLookAlikeDomainsStay) {
    const ProcessResult run = rename_with_host(kUnknownHost);
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(read_control_files(), renamed_files(rcpthosts_with("b.test"), "localhost\n"));
    expect_dot_last();
    EXPECT_EQ(read_file(kRejectPath), "b.test\na-test\naxtest\nalias.test\n");
    for (const char* path : {kRcptHostsPath, kVirtualDomainsPath, kAssignPath, kRejectPath})
        expect_root_owned_0644(path);
    expect_stores_and_keys_renamed();
    EXPECT_EQ(read_file(kOrder), "qmail-newu\ncrelmrc qmail restart\n");
    EXPECT_EQ(list_tree("/var/qmail/control"),
              (std::vector<std::string>{"locals", "rcpthosts", "rejectnonexist", "virtualdomains"}));
    EXPECT_EQ(list_tree("/var/qmail/users"), std::vector<std::string>{"assign"});
}

TEST_F(ControlRenameDomainTest, UpperCaseNamesAreTakenInLowerCase) {
    const ProcessResult run = rename_with_host(kUnknownHost, "A.TEST", "B.Test");
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(read_control_files(), renamed_files(rcpthosts_with("b.test"), "localhost\n"));
    expect_stores_and_keys_renamed();
}

TEST_F(ControlRenameDomainTest, WhenTheOldNameIsTheHostsItStaysAcceptedAndLocal) {
    const ProcessResult run = rename_with_host({"mx", "127.0.0.1 localhost\n192.0.2.7 A.test mx\n"});
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(read_control_files(), renamed_files(rcpthosts_with("b.test") + "a.test\n", "localhost\na.test\n"));
    expect_stores_and_keys_renamed();
}

TEST_F(ControlRenameDomainTest, WhenTheNewNameIsTheHostsItsOldLinesGoFirst) {
    write_file(kRcptHostsPath, "b.test\n" + read_file(kRcptHostsPath));
    write_file(kLocalsPath, "localhost\nb.test\n");
    const ProcessResult run = rename_with_host({"mx", "192.0.2.7 b.test mx\n"});
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(read_control_files(), renamed_files(rcpthosts_with("b.test"), "localhost\n"));
}

TEST_F(ControlRenameDomainTest, AnUnknownHostLeavesLocalsAlone) {
    write_file(kLocalsPath, "localhost\na.test\n");
    EXPECT_EQ(rename_with_host(kUnknownHost).status, 0);
    EXPECT_EQ(read_file(kLocalsPath), "localhost\na.test\n");
}

TEST_F(ControlRenameDomainTest, AMissingMailDirectoryChangesNothing) {
    const ProcessResult run = rename_with_host(kUnknownHost, "missing.test", "b.test");
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.out, "Mail directory /var/qmail/mailnames/missing.test not exists.\n");
    EXPECT_EQ(read_control_files(), before_);
    EXPECT_FALSE(path_exists(kOrder));
}

TEST_F(ControlRenameDomainTest, ARenameInterruptedAfterItsDirectoryIsFinishedByTheNextRun) {
    const std::string mailnames = kMailnamesPath;
    ASSERT_EQ(rename((mailnames + "/a.test").c_str(), (mailnames + "/b.test").c_str()), 0);
    const ProcessResult run = rename_with_host(kUnknownHost);
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.out, "Mail directory /var/qmail/mailnames/a.test not exists.\n");
    expect_fully_renamed();
}

TEST_F(ControlRenameDomainTest, AFinishedRenameRunAgainChangesNothingMore) {
    const std::string mailnames = kMailnamesPath;
    ASSERT_EQ(rename((mailnames + "/a.test").c_str(), (mailnames + "/b.test").c_str()), 0);
    ASSERT_EQ(rename_with_host(kUnknownHost).status, 1);
    ASSERT_EQ(unlink(kOrder.c_str()), 0);
    const ProcessResult run = rename_with_host(kUnknownHost);
    EXPECT_EQ(run.status, 1);
    expect_fully_renamed();
}

TEST_F(ControlRenameDomainTest, AFileInPlaceOfTheNewMailDirectoryChangesNothing) {
    const std::string mailnames = kMailnamesPath;
    ASSERT_EQ(rename((mailnames + "/a.test").c_str(), (mailnames + "/elsewhere").c_str()), 0);
    write_file(mailnames + "/b.test", "not a directory");
    const ProcessResult run = rename_with_host(kUnknownHost);
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.out, "Mail directory /var/qmail/mailnames/a.test not exists.\n");
    EXPECT_EQ(read_control_files(), before_);
    EXPECT_FALSE(path_exists(kOrder));
}

TEST_F(ControlRenameDomainTest, AnExistingNewMailDirectoryChangesNothing) {
    const ProcessResult run = rename_with_host(kUnknownHost, "a.test", "aa.test");
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.out, "Mail directory /var/qmail/mailnames/aa.test already exists.\n");
    EXPECT_EQ(read_control_files(), before_);
    EXPECT_FALSE(path_exists(kOrder));
}

TEST_F(ControlRenameDomainTest, ATakenNameInTheAuthenticationStoreStopsAfterTheControlFiles) {
    ASSERT_EQ(add_mail_auth_user("info", "b.test", "secret", 0), 0);
    const ProcessResult run = rename_with_host(kUnknownHost);
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(read_control_files(), renamed_files(rcpthosts_with("b.test"), "localhost\n"));
    EXPECT_EQ(read_file(kRejectPath), "a.test\na-test\naxtest\nalias.test\n");
    EXPECT_EQ(read_file("/etc/domainkeys/a.test/default"), "key of a.test\n");
    EXPECT_FALSE(path_exists("/etc/domainkeys/b.test"));
    EXPECT_FALSE(path_exists(kOrder));
}

TEST_F(ControlRenameDomainTest, WithoutRejectnonexistTheRestGoesOn) {
    ASSERT_EQ(unlink(kRejectPath), 0);
    EXPECT_EQ(rename_with_host(kUnknownHost).status, 0);
    EXPECT_FALSE(path_exists(kRejectPath));
    expect_stores_and_keys_renamed();
}

TEST_F(ControlRenameDomainTest, FailingHandlersAreReportedAndQmailStillTakesUpTheTables) {
    const std::string handlers = mail_handlers_db_path();
    ASSERT_EQ(unlink(handlers.c_str()), 0);
    ASSERT_EQ(mkdir(handlers.c_str(), 0755), 0);
    const ProcessResult run = rename_with_host(kUnknownHost);
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.out, "Unable to move domain handlers from a.test to b.test\n");
    EXPECT_EQ(read_file("/etc/domainkeys/b.test/default"), "key of a.test\n");
    EXPECT_EQ(read_file(kOrder), "qmail-newu\ncrelmrc qmail restart\n");
}

TEST_F(ControlRenameDomainTest, AFailingQmailNewuOrRestartMakesTheResultOne) {
    set_fake_status("qmail-newu", 111);
    EXPECT_EQ(rename_with_host(kUnknownHost).status, 1);
    EXPECT_EQ(read_file(kOrder), "qmail-newu\ncrelmrc qmail restart\n");
    EXPECT_EQ(read_control_files(), renamed_files(rcpthosts_with("b.test"), "localhost\n"));
}

}  // namespace
}  // namespace sorvane::test
