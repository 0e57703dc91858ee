// sorvane started in the odd process state a careless or hostile caller may
// leave: an umask of 000, SIGCHLD ignored or blocked, the password variables
// set for a command that reads no password; and children that stop or leave
// a grandchild holding a pipe that sorvane reads.
#include "e2e/domain_test_support.h"

#include <signal.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>

namespace sorvane::test {
namespace {

namespace fs = std::filesystem;

const std::string kRenamed = "renamed.test";

std::string replaced(std::string text, const std::string& from, const std::string& to) {
    for (auto at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size()))
        text.replace(at, from.size(), to);
    return text;
}

std::vector<std::string> rename_args(const std::string& from = kDomain, const std::string& to = kRenamed) {
    return {"--rename-domain", "--old-domain-name=" + from, "--new-domain-name=" + to};
}

// sorvane run by odd_process_state, which sets up state first.
ProcessResult run_sorvane_in(const std::vector<std::string>& state, const std::vector<std::string>& args,
                             const RunOptions& options = {}) {
    std::vector<std::string> argv{test_program_path("odd_process_state")};
    argv.insert(argv.end(), state.begin(), state.end());
    argv.push_back("--");
    argv.push_back(sorvane_path());
    argv.insert(argv.end(), args.begin(), args.end());
    return run_process(argv, options);
}

std::vector<std::string> lines_of(const std::string& path) {
    std::vector<std::string> lines;
    std::ifstream in(path);
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    return lines;
}

// A "/bin/sed" that runs the real one (copied aside first) after script.
void install_sed_stand_in(const std::string& script) {
    const std::string real = scratch_dir() + "/real-sed";
    fs::copy_file("/bin/sed", real, fs::copy_options::overwrite_existing);
    install_program("/bin/sed", "#!/bin/sh\n" + script + "\nexec " + real + " \"$@\"\n");
}

// Kills the grandchildren whose pids the fakes wrote into path.
void kill_recorded(const std::string& path) {
    for (const std::string& pid : lines_of(path))
        kill(std::stoi(pid), SIGKILL);
}

// ---- umask ----

// The calls of the traced process (one strace -ff file) that make a file or
// directory, or set a mode, under which a group- or world-writable entry
// would result, given the umask that the process set before each of them.
std::vector<std::string> writable_creations(const std::string& trace) {
    std::vector<std::string> found;
    mode_t mask = 0;
    for (const std::string& line : lines_of(trace)) {
        const auto call_end = line.find('(');
        if (call_end == std::string::npos)
            continue;
        const std::string call = line.substr(0, call_end);
        if (call == "umask") {
            mask = static_cast<mode_t>(std::stoul(line.substr(call_end + 1), nullptr, 8));
            continue;
        }
        const bool creates = call == "mkdir" || call == "mkdirat" || call == "creat" ||
                             line.find("O_CREAT") != std::string::npos;
        const bool sets = call == "chmod" || call == "fchmod" || call == "fchmodat";
        if (!creates && !sets)
            continue;
        const auto args_end = line.rfind(") = ");
        const auto mode_at = line.rfind(", ", args_end);
        const mode_t mode = static_cast<mode_t>(std::stoul(line.substr(mode_at + 2), nullptr, 8));
        const mode_t effective = sets ? mode : (mode & ~mask);
        if ((effective & 022) != 0)
            found.push_back(line);
    }
    return found;
}

// Runs sorvane with umask 000 inherited, under strace -ff. Result: the run,
// and the trace file of sorvane's own process in trace.
ProcessResult traced_run(const std::vector<std::string>& args, std::string& trace) {
    const std::string dir = scratch_dir() + "/trace-" + std::to_string(std::rand());
    fs::create_directories(dir);
    std::vector<std::string> argv{"/usr/bin/strace", "-ff", "-qq", "-o", dir + "/t", "-e",
                                  "trace=execve,umask,open,openat,creat,mkdir,mkdirat,chmod,fchmod,fchmodat",
                                  test_program_path("odd_process_state"), "--umask=000", "--", sorvane_path()};
    argv.insert(argv.end(), args.begin(), args.end());
    // The leak checker of a sanitizer build cannot run under a tracer.
    RunOptions options;
    options.env = {"ASAN_OPTIONS=detect_leaks=0"};
    const ProcessResult result = run_process(argv, options);
    for (const auto& entry : fs::directory_iterator(dir))
        if (read_file(entry.path()).find("execve(\"" + sorvane_path() + "\"") != std::string::npos)
            trace = entry.path();
    return result;
}

// Every entry below the trees a command writes that is group- or
// world-writable (links aside).
std::vector<std::string> writable_entries() {
    std::vector<std::string> found;
    for (const char* root : {"/var/qmail/control", "/var/qmail/users", "/var/qmail/mailnames", "/var/lib/crelm/mail",
                             "/etc/domainkeys", "/run/lock/files"})
        for (const std::string& entry : list_tree(root)) {
            const std::string path = std::string(root) + "/" + entry;
            const FileInfo info = file_info(path.back() == '/' ? path.substr(0, path.size() - 1) : path);
            if (info.type != 'l' && (info.mode & 022) != 0)
                found.push_back(path);
        }
    return found;
}

class ProcessHygieneTest : public SandboxTest {
protected:
    void SetUp() override {
        SandboxTest::SetUp();
        give_host_name();
    }
};

TEST_F(ProcessHygieneTest, UnderAnInheritedUmaskOf000NothingMadeIsEverGroupOrWorldWritable) {
    seed_empty_server();
    const std::string umasks = scratch_dir() + "/children-umask";
    install_fake("/usr/bin/killall", "umask >> " + umasks);
    install_fake("/opt/qvt/admin/sbin/crelmrc", "umask >> " + umasks);
    const std::vector<std::vector<std::string>> commands{
        {"--add-domain", "--domain-name=fresh.test"},
        {"--add-mailname", "--domain-name=fresh.test", "--mailname=info", "--disk-quota=1048576"},
        rename_args("fresh.test", "moved.test"),
        {"--turn-off-domain", "--domain-name=moved.test", "--mail-addresses=info"},
    };
    for (const auto& args : commands) {
        std::string trace;
        expect_silent_success(traced_run(args, trace));
        ASSERT_FALSE(trace.empty()) << args[0];
        EXPECT_NE(read_file(trace).find("O_CREAT"), std::string::npos) << args[0];
        EXPECT_EQ(writable_creations(trace), std::vector<std::string>{}) << args[0];
    }
    EXPECT_EQ(writable_entries(), std::vector<std::string>{});
    EXPECT_EQ(control_file("/var/qmail/control/rcpthosts"), "");
    EXPECT_EQ(file_info("/var/qmail/control/rcpthosts").mode, 0644U);
    EXPECT_EQ(file_info("/var/qmail/control/virtualdomains").mode, 0644U);
    // killall for the add and the turn-off, the service helper for the rename.
    EXPECT_EQ(lines_of(umasks), std::vector<std::string>(3, "0022"));
}

// ---- SIGCHLD ----

TEST_F(ProcessHygieneTest, WithSigchldIgnoredTheReloadNeedsNoRestart) {
    seed_empty_server();
    expect_silent_success(run_sorvane_in({"--ignore-sigchld"}, {"--add-domain", "--domain-name=fresh.test"}));
    EXPECT_EQ(fake_calls("qmail-newu"), std::vector<std::string>{kNewuCall});
    EXPECT_EQ(fake_calls("killall"), std::vector<std::string>{kReloadCall});
    EXPECT_EQ(fake_calls("crelmrc"), std::vector<std::string>{});
    EXPECT_EQ(read_file("/var/qmail/control/rcpthosts"), "fresh.test\n");
}

TEST_F(ProcessHygieneTest, WithSigchldIgnoredOrBlockedARenameCompletesAsUsual) {
    seed_server_state();
    expect_silent_success(run_sorvane(rename_args()));
    ServerState expected = read_server_state();
    expect_silent_success(run_sorvane(rename_args(kRenamed, kDomain)));
    expect_silent_success(run_sorvane_in({"--ignore-sigchld"}, rename_args()));
    expect_silent_success(run_sorvane_in({"--block-sigchld"}, rename_args(kRenamed, kDomain)));
    expect_silent_success(run_sorvane_in({"--block-sigchld"}, rename_args()));
    expected.qmail_newu_calls = repeated(kNewuCall, 5);
    expected.crelmrc_calls = repeated(kRestartCall, 5);
    expect_server_state(read_server_state(), expected);
}

// Whether the killall fake found SIGCHLD blocked and ignored (1 or 0), once the add ran with
// odd_process_state given state.
std::string child_signal_state(const std::vector<std::string>& state) {
    const std::string seen = scratch_dir() + "/signal-state";
    // Not a shell: a shell sets its own mask as it starts.
    install_program("/usr/bin/killall", "#!/usr/bin/perl\n"
                                        "open(my $in, '<', '/proc/self/status') or exit 1;\n"
                                        "open(my $out, '>>', '" + seen + "') or exit 1;\n"
                                        "while (<$in>) {\n"
                                        "    printf $out \"SIGCHLD %s %d\\n\", $1, (hex(substr($2, -8)) >> 16) & 1\n"
                                        "        if /^Sig(Blk|Ign):\\s*([0-9a-f]+)/;\n"
                                        "}\n");
    expect_silent_success(run_sorvane_in(state, {"--add-domain", "--domain-name=fresh.test"}));
    return read_file(seen);
}

TEST_F(ProcessHygieneTest, ChildrenDoNotInheritABlockedSigchld) {
    seed_empty_server();
    EXPECT_EQ(child_signal_state({"--block-sigchld"}), "SIGCHLD Blk 0\nSIGCHLD Ign 0\n");
}

TEST_F(ProcessHygieneTest, ChildrenDoNotInheritAnIgnoredSigchld) {
    seed_empty_server();
    EXPECT_EQ(child_signal_state({"--ignore-sigchld", "--block-sigchld"}), "SIGCHLD Blk 0\nSIGCHLD Ign 0\n");
}

// ---- children that stop or leave a grandchild ----

TEST_F(ProcessHygieneTest, AStoppingQmailNewuIsKilledAndTheCommandEndsWithItsStatus) {
    seed_empty_server();
    install_fake("/var/qmail/bin/qmail-newu", "kill -STOP $$");
    SyslogCapture capture;
    const ProcessResult result = run_sorvane({"--add-domain", "--domain-name=fresh.test"});
    const auto stopped = messages_starting(capture, "waitpid(");
    ASSERT_EQ(stopped.size(), 1U);
    const std::string pid = stopped[0].substr(8, stopped[0].find(')') - 8);
    EXPECT_EQ(stopped[0], "waitpid(" + pid + ")=" + pid + ": process '/var/qmail/bin/qmail-newu' stopped by signal 19");
    EXPECT_EQ(result.status, 1);
    // The log's copy on standard error names sorvane's own pid.
    const std::string own_pid = result.err.substr(8, result.err.find(']') - 8);
    EXPECT_EQ(result.err, "sorvane[" + own_pid + "]: " + stopped[0] + "\n");
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(fake_calls("killall"), std::vector<std::string>{kReloadCall});
}

// The rename edits its files itself: a "/bin/sed" that would stop is never
// run.
TEST_F(ProcessHygieneTest, TheRenameRunsNoStreamEditor) {
    seed_server_state();
    const ServerState before = read_server_state();
    install_sed_stand_in("kill -STOP $$");
    const ProcessResult result = run_sorvane(rename_args());
    expect_silent_success(result);
    EXPECT_EQ(read_file("/var/qmail/control/rcpthosts"), replaced(before.rcpthosts, kDomain, kRenamed));
    EXPECT_EQ(read_file("/var/qmail/control/virtualdomains"), replaced(before.virtualdomains, kDomain, kRenamed));
    EXPECT_EQ(read_file("/var/qmail/users/assign"), replaced(before.assign, kDomain, kRenamed));
    EXPECT_EQ(fake_calls("crelmrc"), std::vector<std::string>{kRestartCall});
}

TEST_F(ProcessHygieneTest, GrandchildrenHoldingTheErrorPipesDoNotHoldTheRename) {
    seed_server_state();
    const ServerState before = read_server_state();
    const std::string grandchildren = scratch_dir() + "/grandchildren";
    const std::string linger = "sleep 1000 >/dev/null </dev/null & echo $! >> " + grandchildren;
    install_fake("/opt/qvt/admin/sbin/crelmrc", linger);
    const ProcessResult result = run_sorvane(rename_args());
    kill_recorded(grandchildren);
    expect_silent_success(result);
    EXPECT_EQ(read_file("/var/qmail/control/rcpthosts"), replaced(before.rcpthosts, kDomain, kRenamed));
    EXPECT_EQ(read_file("/var/qmail/control/virtualdomains"), replaced(before.virtualdomains, kDomain, kRenamed));
    EXPECT_EQ(read_file("/var/qmail/users/assign"), replaced(before.assign, kDomain, kRenamed));
    EXPECT_EQ(fake_calls("crelmrc"), std::vector<std::string>{kRestartCall});
    EXPECT_EQ(lines_of(grandchildren).size(), 1U);
}

// ---- password variables ----

TEST_F(ProcessHygieneTest, NoChildOfAnyCommandSeesThePasswordVariables) {
    seed_server_state();
    const std::string runs = scratch_dir() + "/child-runs";
    const std::string leaked = scratch_dir() + "/child-env";
    const std::string dump = "echo \"$0\" >> " + runs + "; env | grep '^QVT_' >> " + leaked;
    install_fake("/usr/bin/killall", dump);
    install_fake("/opt/qvt/admin/sbin/crelmrc", dump);
    install_fake("/var/qmail/bin/qmail-newu", dump);
    install_sed_stand_in(dump);
    RunOptions options;
    options.env = {"QVT_PASSWORD=plain secret", "QVT_CRYPTED_PASSWORD=$1$abcdefgh$crypted.secret"};
    const std::string session = "--mail-addresses=" + seeded_mail_addresses();
    const std::vector<std::vector<std::string>> commands{
        {"--help"},
        {"--add-domain", "--domain-name=fresh.test"},
        {"--add-mailname", "--domain-name=fresh.test", "--mailname=info"},
        {"--add-mailbox", "--domain-name=fresh.test", "--mailname=info", "--mail-addresses=info"},
        {"--set-password", "--domain-name=fresh.test", "--mailname=info", "--mail-addresses=info"},
        rename_args(),
        {"--turn-off-domain", "--domain-name=renamed.test", session},
        {"--remove-domain", "--domain-name=fresh.test", "--mail-addresses=info"},
    };
    for (const auto& args : commands)
        EXPECT_EQ(run_sorvane(args, options).status, 0) << args[0];
    EXPECT_EQ(read_file(leaked), "");
    std::string ran;
    for (const std::string& line : lines_of(runs))
        ran += line + "\n";
    // help runs nothing; the add, mail name, mailbox, password, rename,
    // turn-off and removal commands run these.
    EXPECT_EQ(ran,
              "/var/qmail/bin/qmail-newu\n/usr/bin/killall\n"
              "/var/qmail/bin/qmail-newu\n"
              "/var/qmail/bin/qmail-newu\n/opt/qvt/admin/sbin/crelmrc\n"
              "/var/qmail/bin/qmail-newu\n/usr/bin/killall\n"
              "/var/qmail/bin/qmail-newu\n/usr/bin/killall\n");
}

}  // namespace
}  // namespace sorvane::test
