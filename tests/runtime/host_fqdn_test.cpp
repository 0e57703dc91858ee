// Detection of the host's fully qualified name, each test in a child with a
// host name of its own (a private UTS namespace) and a private /etc/hosts.
#include "runtime/host_fqdn.h"

#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cstring>

#include "runtime/logged.h"
#include "support/sandbox.h"

namespace sorvane::test {
namespace {

constexpr int kMailError = 19;  // LOG_MAIL | LOG_ERR

const std::string kAdvice =
    "It is impossible to detect the FQDN of the host.\n"
    "Please make sure that the host name is correctly specified in /etc/hosts and goes right after the host's IP "
    "address.\n"
    "Depending on your OS, you might need to set the host name in /etc/HOSTNAME or /etc/hostname.";

class HostFqdnTest : public SandboxTest {
protected:
    // Runs detect_host_fqdn with the given host name and /etc/hosts content;
    // the child writes what it found (or "-1") to a file. A buffer size of 0
    // runs known_host_fqdn instead, whose result is written after "quiet:".
    std::pair<std::string, std::vector<LogRecord>> detect(const std::string& host_name, const std::string& hosts,
                                                          std::size_t buffer_size = 256) {
        const std::string hosts_path = scratch_dir() + "/hosts";
        const std::string out_path = scratch_dir() + "/fqdn";
        write_file(hosts_path, hosts);
        const LoggedRun run = run_logged([&] {
            if (unshare(CLONE_NEWUTS | CLONE_NEWNS) != 0 || sethostname(host_name.data(), host_name.size()) != 0 ||
                mount(hosts_path.c_str(), "/etc/hosts", nullptr, MS_BIND, nullptr) != 0)
                return 99;
            if (buffer_size == 0) {
                write_file(out_path, "quiet:" + known_host_fqdn());
                return 0;
            }
            std::string buffer(buffer_size, 'X');
            const int status = detect_host_fqdn(buffer.data(), buffer.size());
            write_file(out_path, status == 0 ? std::string(buffer.c_str()) : std::to_string(status));
            return 0;
        });
        EXPECT_EQ(run.process.status, 0) << run.process.err;
        return {read_file(out_path), run.records};
    }
};

TEST_F(HostFqdnTest, CanonicalNameFromHostsFile) {
    const auto [fqdn, records] = detect("mx", "127.0.0.1 localhost\n192.0.2.7 mx.example.test mx\n");
    EXPECT_EQ(fqdn, "mx.example.test");
    EXPECT_TRUE(records.empty());
}

TEST_F(HostFqdnTest, NameThatExactlyFitsTheBuffer) {
    EXPECT_EQ(detect("mx", "192.0.2.7 mx.example.test mx\n", 16).first, "mx.example.test");
}

TEST_F(HostFqdnTest, NameTooLongForTheBufferIsReportedWithoutAdvice) {
    const auto [fqdn, records] = detect("mx", "192.0.2.7 mx.example.test mx\n", 15);
    EXPECT_EQ(fqdn, "-1");
    const std::vector<LogRecord> expected{{kMailError, "Buffer size is not enough to hold hostname"}};
    EXPECT_EQ(records, expected);
}

TEST_F(HostFqdnTest, CanonicalNameWithoutDotIsRefused) {
    const auto [fqdn, records] = detect("mx", "192.0.2.7 mx\n");
    EXPECT_EQ(fqdn, "-1");
    const std::vector<LogRecord> expected{{kMailError, "Canonname is not correct fqdn"}, {kMailError, kAdvice}};
    EXPECT_EQ(records, expected);
}

TEST_F(HostFqdnTest, UnresolvableHostNameIsReported) {
    const auto [fqdn, records] = detect("nowhere.invalid", "127.0.0.1 localhost\n");
    EXPECT_EQ(fqdn, "-1");
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[0].text.rfind("Unable to resolve fqdn: ", 0), 0u) << records[0];
    EXPECT_EQ(records[1], (LogRecord{kMailError, kAdvice}));
}

TEST_F(HostFqdnTest, KnownNameWithoutReport) {
    const auto [fqdn, records] = detect("mx", "192.0.2.7 mx.example.test mx\n", 0);
    EXPECT_EQ(fqdn, "quiet:mx.example.test");
    EXPECT_TRUE(records.empty());
}

TEST_F(HostFqdnTest, UnknownNameIsEmptyAndNotReported) {
    EXPECT_EQ(detect("nowhere.invalid", "127.0.0.1 localhost\n", 0), (std::pair<std::string, std::vector<LogRecord>>{"quiet:", {}}));
    EXPECT_EQ(detect("mx", "192.0.2.7 mx\n", 0), (std::pair<std::string, std::vector<LogRecord>>{"quiet:", {}}));
}

}  // namespace
}  // namespace sorvane::test
