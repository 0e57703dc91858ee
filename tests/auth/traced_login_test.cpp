// sorvane-auth changes nothing and lets no password out: traced with strace
// (every process, every system call, environments in full), a login opens
// nothing for writing, creating or truncating, makes, removes, renames,
// links, syncs or changes the owner, mode or times of nothing, writes
// nothing anywhere before the program it runs takes over, and that
// program's arguments and environment hold no password; a refused login
// writes nothing at all. The trees it looks at are the same before and
// after.
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <set>

#include "auth/auth_support.h"
#include "support/strace_lines.h"
#include "e2e/server_state.h"
#include "stores/mail_auth_paths.h"

namespace sorvane::test {
namespace {

namespace fs = std::filesystem;

const std::string kPassword = "Info-secret 1";

const std::set<std::string> kChangingCalls{
    "creat",     "rename",    "renameat",  "renameat2",  "unlink",      "unlinkat",        "mkdir",    "mkdirat",
    "rmdir",     "chmod",     "fchmod",    "fchmodat",   "fchmodat2",   "chown",           "fchown",   "fchownat",
    "lchown",    "fsync",     "fdatasync", "sync",       "syncfs",      "sync_file_range", "truncate", "ftruncate",
    "fallocate", "link",      "linkat",    "symlink",    "symlinkat",   "utime",           "utimes",   "utimensat",
    "futimesat", "mknod",     "mknodat",   "setxattr",   "lsetxattr",   "fsetxattr",       "removexattr",
    "lremovexattr", "fremovexattr", "fork", "vfork",     "clone",       "clone3",          "socket",   "connect",
    "sendto",    "sendmsg",   "write",     "pwrite64",   "writev",      "pwritev",         "pwritev2"};
const std::set<std::string> kOpenCalls{"open", "openat", "openat2"};
const std::regex kWritingFlag("\\bO_(WRONLY|RDWR|CREAT|TRUNC)\\b");

std::vector<std::string> lines_of(const std::string& path) {
    std::vector<std::string> lines;
    std::ifstream in(path);
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    return lines;
}


struct Trace {
    ProcessResult result;
    std::vector<std::string> own_calls;  // sorvane-auth's, up to the program's execve
    std::vector<std::string> execs;      // every execve but sorvane-auth's own
};

Trace traced_login(const std::string& login, const std::string& password) {
    const std::string log = scratch_dir() + "/auth.trace";
    AuthRunOptions options;
    options.input = login_input(login, password);
    options.env = {"QVT_PASSWORD=" + password};
    options.prefix = {"/usr/bin/strace", "-f", "-qq", "-v", "-s", "65535", "-o", log};
    Trace trace{run_auth(options), {}, {}};
    bool own = true;
    for (const std::string& line : lines_of(log)) {
        const auto [call, args] = call_of(line);
        if (call == "execve" && args.rfind("\"" + sorvane_auth_path() + "\"", 0) != 0) {
            trace.execs.push_back(line);
            own = false;
        }
        if (own && !call.empty())
            trace.own_calls.push_back(line);
    }
    return trace;
}

std::vector<std::string> changing_calls(const std::vector<std::string>& calls) {
    std::vector<std::string> found;
    for (const std::string& line : calls) {
        const auto [call, args] = call_of(line);
        const std::string unquoted = without_quoted(args);
        const bool opens_for_writing = kOpenCalls.count(call) != 0 && std::regex_search(unquoted, kWritingFlag);
        if (kChangingCalls.count(call) != 0 || opens_for_writing)
            found.push_back(line);
    }
    return found;
}

std::map<std::string, std::string> tree_state() {
    std::map<std::string, std::string> state;
    for (const std::string root : {"/var/qmail", "/var/lib/crelm", "/run", "/etc/qvt"}) {
        for (auto it = fs::recursive_directory_iterator(root); it != fs::recursive_directory_iterator(); ++it) {
            struct stat info {};
            if (lstat(it->path().c_str(), &info) == 0)
                state[it->path()] = std::to_string(info.st_mode) + " " + std::to_string(info.st_uid) + ":" +
                                    std::to_string(info.st_gid) + " " + std::to_string(info.st_size) + " " +
                                    std::to_string(info.st_mtim.tv_nsec) + " " + std::to_string(info.st_ctim.tv_nsec);
        }
    }
    return state;
}

class TracedLoginTest : public SandboxTest {
protected:
    void SetUp() override {
        SandboxTest::SetUp();
        set_mail_auth_paths(kMailServerQmail);
        seed_server_state();
        compile_users_cdb();
    }
};

TEST_F(TracedLoginTest, LoginChangesNothingAndHandsNoPasswordOn) {
    const auto before = tree_state();
    const Trace trace = traced_login("sales@alias-one.test", kPassword);
    ASSERT_EQ(trace.result.status, 0) << trace.result.err;
    EXPECT_EQ(tree_state(), before);
    EXPECT_EQ(changing_calls(trace.own_calls), std::vector<std::string>{});
    ASSERT_EQ(trace.execs.size(), 1U) << trace.execs.size();
    EXPECT_EQ(call_of(trace.execs[0]).second.rfind("\"/usr/bin/env\", [\"/usr/bin/env\"], [", 0), 0U)
        << trace.execs[0];
    EXPECT_EQ(trace.execs[0].find(kPassword), std::string::npos) << trace.execs[0];
    EXPECT_NE(trace.execs[0].find("\"USER=sales@alias-one.test\""), std::string::npos) << trace.execs[0];
    EXPECT_EQ(trace.result.out.find(kPassword), std::string::npos);
}

TEST_F(TracedLoginTest, RefusedLoginWritesNothingAndRunsNothing) {
    const auto before = tree_state();
    const Trace trace = traced_login("info@example.test", "Info-secret 2");
    EXPECT_EQ(trace.result.status, 1);
    EXPECT_EQ(tree_state(), before);
    EXPECT_EQ(changing_calls(trace.own_calls), std::vector<std::string>{});
    EXPECT_EQ(trace.execs, std::vector<std::string>{});
    EXPECT_EQ(trace.result.err, "");
}

}  // namespace
}  // namespace sorvane::test
