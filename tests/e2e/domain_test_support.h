// What the domain and domain alias command tests share: the seeded server,
// the session lists that describe it, and the recorded calls a command's
// rebuild and reload leave.
#pragma once

#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "e2e/server_state.h"
#include "support/sandbox.h"

namespace sorvane::test {

// One run of qmail-newu, killall and the service helper's restart, as the
// fakes record them.
inline const std::string kNewuCall = "";
inline const std::string kReloadCall = "-1 qmail-send";
inline const std::string kRestartCall = "qmail restart";

inline std::vector<std::string> repeated(const std::string& call, std::size_t times) {
    return std::vector<std::string>(times, call);
}

// The command-line lists that describe the seeded example.test.
inline std::vector<std::string> seeded_session_lists() {
    return {"--domain-aliases=" + kAliasOne + "," + kAliasTwo, "--mail-addresses=" + seeded_mail_addresses()};
}

inline std::vector<std::string> joined(std::vector<std::string> args, const std::vector<std::string>& more) {
    args.insert(args.end(), more.begin(), more.end());
    return args;
}

// A store write that fails: a trigger refusing event (INSERT, UPDATE or
// DELETE) on table, so that the statement fails as a broken database would.
inline void refuse_store_writes(const std::string& db, const std::string& table, const std::string& event) {
    const auto result = run_process({"/usr/bin/sqlite3", "-batch", db,
                                     "CREATE TRIGGER refuse_" + event + " BEFORE " + event + " ON " + table +
                                         " BEGIN SELECT RAISE(ABORT, 'refused by the test'); END;"});
    ASSERT_EQ(result.status, 0) << result.err;
}

inline const std::string kQuotaDb = "/var/lib/crelm/mail/userdb/userdb.db";
inline const std::string kHandlersDb = "/var/lib/crelm/mail/handlers/handlers.db";
inline const std::string kAuthDb = "/var/lib/crelm/mail/auth/passwd.db";

// The lines syslog received that start with text.
inline std::vector<std::string> messages_starting(SyslogCapture& capture, const std::string& text) {
    std::vector<std::string> found;
    for (const std::string& message : capture.messages())
        if (message.rfind(text, 0) == 0)
            found.push_back(message);
    return found;
}

// Gives this test process (and the sorvane it runs) the host name mx and the
// fully qualified name mx.hosting.test, through a private host name and a
// private /etc/hosts, as a configured mail server has them.
inline void give_host_name() {
    const std::string hosts = scratch_dir() + "/hosts";
    write_file(hosts, "127.0.0.1 localhost\n192.0.2.25 mx.hosting.test mx\n", 0644);
    ASSERT_EQ(unshare(CLONE_NEWUTS), 0);
    ASSERT_EQ(sethostname("mx", 2), 0);
    ASSERT_EQ(mount(hosts.c_str(), "/etc/hosts", nullptr, MS_BIND, nullptr), 0);
}

// A run that succeeded and said nothing.
inline void expect_silent_success(const ProcessResult& result) {
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.out, "");
}

// Fixture: every test starts from the seeded server.
class DomainCommandTest : public SandboxTest {
protected:
    void SetUp() override {
        SandboxTest::SetUp();
        give_host_name();
        seed_server_state();
    }
};

}  // namespace sorvane::test
