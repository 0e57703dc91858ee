// sorvane-audit only reads. Every run is traced with strace (every process,
// every system call): no open for writing, creating or truncating, no call
// that makes, removes, renames, links, syncs or changes the owner, mode or
// times of anything, no socket (so no syslog), no child process and no
// program run but the audit itself. The trees the audit looks at are also
// compared entry by entry (type, mode, owner, size, times, inode) before and
// after. On the seeded server, on one where every store and file is missing,
// on one with a hot journal beside a store and on one with FIFOs in a mail
// tree.
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <sstream>

#include "audit/audit_fixture.h"
#include "support/strace_lines.h"

namespace sorvane::test {
namespace {

namespace fs = std::filesystem;

const std::string kTraceDir = "/tmp/scratch/audit-trace";
const std::string kAuthJournal = "/var/lib/crelm/mail/auth/passwd.db-journal";

// ---- the trace ----

// System calls that change the file system, sync it, or start a process.
const std::set<std::string> kChangingCalls{
    "creat",       "rename",     "renameat",     "renameat2",   "unlink",       "unlinkat",     "mkdir",
    "mkdirat",     "rmdir",      "chmod",        "fchmod",      "fchmodat",     "fchmodat2",    "chown",
    "fchown",      "fchownat",   "lchown",       "fsync",       "fdatasync",    "sync",         "syncfs",
    "sync_file_range", "truncate", "ftruncate",  "fallocate",   "link",         "linkat",       "symlink",
    "symlinkat",   "utime",      "utimes",       "utimensat",   "futimesat",    "mknod",        "mknodat",
    "setxattr",    "lsetxattr",  "fsetxattr",    "removexattr", "lremovexattr", "fremovexattr", "fork",
    "vfork",       "execveat",   "socketpair",   "sendto",      "sendmsg"};

// The one socket the audit may open: the C library's user lookup (popuser's
// ids) asks the name service cache daemon first, over a stream socket. A
// log record would need a datagram socket and /dev/log.
const std::regex kUserLookupSocket("^AF_UNIX, SOCK_STREAM\\b");
const std::regex kUserLookupConnect("sun_path=\"(/var)?/run/nscd/socket\"");

const std::set<std::string> kOpenCalls{"open", "openat", "openat2"};
const std::regex kWritingFlag("\\bO_(WRONLY|RDWR|CREAT|TRUNC)\\b");



// The lines of the trace that change something or run another program than
// own_binary (the audit, whose own execve starts the trace).
std::vector<std::string> changing_calls(const std::vector<std::string>& trace, const std::string& own_binary) {
    std::vector<std::string> found;
    for (const std::string& line : trace) {
        const auto [call, args] = call_of(line);
        const std::string unquoted = without_quoted(args);
        const bool changes = kChangingCalls.count(call) != 0 ||
                             (kOpenCalls.count(call) != 0 && std::regex_search(unquoted, kWritingFlag)) ||
                             (call == "execve" && args.rfind("\"" + own_binary + "\"", 0) != 0) ||
                             ((call == "clone" || call == "clone3") && args.find("CLONE_THREAD") == std::string::npos) ||
                             (call == "socket" && !std::regex_search(args, kUserLookupSocket)) ||
                             (call == "connect" && !std::regex_search(args, kUserLookupConnect));
        if (changes)
            found.push_back(line);
    }
    return found;
}

std::vector<std::string> lines_of(const std::string& path) {
    std::vector<std::string> lines;
    std::ifstream in(path);
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    return lines;
}

struct TracedRun {
    ProcessResult result;
    std::vector<std::string> trace;
};

// Runs sorvane-audit with args under strace, following every child, with a
// bound on its time: a read that blocked (a FIFO opened for reading without
// O_NONBLOCK waits for a writer forever) ends the run with status 124.
// With show_fd_paths, strace names the file behind each descriptor (-y).
TracedRun traced_audit(const std::vector<std::string>& args, RunOptions options = {}, bool show_fd_paths = false) {
    fs::create_directories(kTraceDir);
    const std::string log = kTraceDir + "/trace-" + std::to_string(std::rand());
    std::vector<std::string> argv{"/usr/bin/timeout", "60",          "/usr/bin/strace", "-f", "-qq",
                                  "-s",               "4096",        "-o",              log,  sorvane_audit_path()};
    if (show_fd_paths)
        argv.insert(argv.begin() + 5, "-y");
    argv.insert(argv.end(), args.begin(), args.end());
    // The leak checker of a sanitizer build cannot run under a tracer.
    options.env.push_back("ASAN_OPTIONS=detect_leaks=0");
    TracedRun run{run_process(argv, options), lines_of(log)};
    return run;
}

// ---- the trees ----

const std::vector<std::string> kWatchedRoots{"/var/qmail", "/var/lib/crelm", "/etc/domainkeys", "/etc/qvt",
                                             "/opt/qvt",   "/run",           "/tmp",            "/var/tmp",
                                             "/etc/passwd", "/etc/group"};

std::string entry_state(const struct stat& info) {
    std::ostringstream text;
    text << std::oct << info.st_mode << std::dec << " " << info.st_uid << ":" << info.st_gid << " "
         << info.st_size << " nlink " << info.st_nlink << " ino " << info.st_ino << " mtime "
         << info.st_mtim.tv_sec << "." << info.st_mtim.tv_nsec << " ctime " << info.st_ctim.tv_sec << "."
         << info.st_ctim.tv_nsec;
    return text.str();
}

// Every entry below the watched roots (the roots included, the trace
// directory left out) with its type, mode, owner, size, link count, inode
// and modification and change times.
std::map<std::string, std::string> tree_state() {
    std::map<std::string, std::string> state;
    const auto note = [&](const std::string& path) {
        struct stat info {};
        if (lstat(path.c_str(), &info) == 0)
            state[path] = entry_state(info);
    };
    for (const std::string& root : kWatchedRoots) {
        note(root);
        std::error_code ec;
        for (auto it = fs::recursive_directory_iterator(root, ec); !ec && it != fs::recursive_directory_iterator();
             it.increment(ec)) {
            if (it->path().string().rfind("/tmp/scratch", 0) == 0) {
                it.disable_recursion_pending();
                continue;
            }
            note(it->path().string());
        }
    }
    return state;
}

// What differs between two tree states, one line per entry.
std::vector<std::string> tree_changes(const std::map<std::string, std::string>& before,
                                      const std::map<std::string, std::string>& after) {
    std::vector<std::string> changes;
    for (const auto& [path, state] : before) {
        const auto now = after.find(path);
        if (now == after.end())
            changes.push_back("removed " + path);
        else if (now->second != state)
            changes.push_back("changed " + path + ": " + state + " -> " + now->second);
    }
    for (const auto& [path, state] : after)
        if (before.count(path) == 0)
            changes.push_back("added " + path);
    return changes;
}

// ---- the runs ----

const std::vector<std::vector<std::string>> kAuditRuns{
    {}, {"--json", "--repair-plan"}, {"--domain=" + kDomain}, {"--domain=neighbour.test", "--repair-plan"}};

// Runs every audit of kAuditRuns traced and expects nothing changed, then
// returns their statuses.
std::vector<int> expect_read_only_runs() {
    std::vector<int> statuses;
    for (const auto& args : kAuditRuns) {
        const auto before = tree_state();
        const TracedRun run = traced_audit(args);
        const std::string shown = ::testing::PrintToString(args);
        EXPECT_GT(run.trace.size(), 10U) << shown << ": no trace";
        EXPECT_EQ(changing_calls(run.trace, sorvane_audit_path()), std::vector<std::string>{}) << shown;
        EXPECT_EQ(tree_changes(before, tree_state()), std::vector<std::string>{}) << shown;
        EXPECT_LE(run.result.status, 2) << shown << "\n" << run.result.err;
        statuses.push_back(run.result.status);
    }
    return statuses;
}

// Kills a sorvane command as it is about to delete the authentication
// store's journal, at the end of its first commit: the store is left with a
// hot journal beside it, as after a crash.
void leave_hot_journal() {
    write_file("/etc/qvt/qvt.conf", "", 0644);
    RunOptions options;
    options.stdin_mode = RunOptions::Stdin::Pipe;
    options.input = seeded_document();
    options.env = {"ASAN_OPTIONS=detect_leaks=0"};
    const ProcessResult killed =
        run_process({"/usr/bin/strace", "-f", "-qq", "-o", "/dev/null", "-P", kAuthJournal, "-e",
                     "trace=unlink,unlinkat", "-e", "inject=unlink,unlinkat:signal=KILL", sorvane_path(),
                     "--add-alias", "--domain-name=" + kDomain, "--mailname=john", "--alias=jd"},
                    options);
    ASSERT_NE(killed.status, 0) << "the command was not killed";
    ASSERT_TRUE(path_exists(kAuthJournal)) << "the killed command left no journal: " << killed.err;
}

void plant_fifo(const std::string& path) {
    ::unlink(path.c_str());
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0) << path;
    ASSERT_EQ(chown(path.c_str(), popuser_uid(), popuser_gid()), 0) << path;
}

class ReadOnlyTest : public AuditTest {
protected:
    void SetUp() override {
        AuditTest::SetUp();
        fs::create_directories(kTraceDir);
    }
};

TEST_F(ReadOnlyTest, OnTheSeededServerNothingIsWrittenAndNoProgramRun) {
    EXPECT_EQ(expect_read_only_runs(), (std::vector<int>{0, 0, 0, 0}));
}

TEST_F(ReadOnlyTest, WithThePanelsPictureNothingIsWritten) {
    const std::string picture = scratch_dir() + "/picture.json";
    write_file(picture, "[" + seeded_document() + "]\n");
    for (const auto& args : std::vector<std::vector<std::string>>{{"--expect=" + picture}, {"--expect=-"}}) {
        const auto before = tree_state();
        RunOptions options;
        options.stdin_mode = RunOptions::Stdin::Pipe;
        options.input = "[" + seeded_document() + "]\n";
        const TracedRun run = traced_audit(args, options);
        EXPECT_EQ(changing_calls(run.trace, sorvane_audit_path()), std::vector<std::string>{}) << args[0];
        EXPECT_EQ(tree_changes(before, tree_state()), std::vector<std::string>{}) << args[0];
        EXPECT_LE(run.result.status, 2) << run.result.err;
    }
}

TEST_F(ReadOnlyTest, OnAServerWhereEverythingIsMissingNothingIsMade) {
    // The stores' and keys' trees are mount points of the sandbox: emptied.
    for (const char* path : {"/var/lib/crelm", "/etc/domainkeys"})
        for (const auto& entry : fs::directory_iterator(path))
            fs::remove_all(entry.path());
    for (const char* path : {"/var/qmail/control", "/var/qmail/users", "/var/qmail/mailnames"})
        fs::remove_all(path);
    const std::vector<int> statuses = expect_read_only_runs();
    for (int status : statuses)
        EXPECT_NE(status, 0) << "a server without assign is not clean";
    EXPECT_EQ(list_tree("/var/lib/crelm"), std::vector<std::string>{});
    EXPECT_EQ(list_tree("/etc/domainkeys"), std::vector<std::string>{});
    for (const char* path : {"/var/qmail/control", "/var/qmail/users", "/var/qmail/mailnames"})
        EXPECT_FALSE(path_exists(path)) << path;
}

// The journal of a commit that a crash cut short: sorvane's next command on
// the store rolls it back; the audit must neither roll it back nor touch the
// journal (owner, mode and times included).
TEST_F(ReadOnlyTest, AHotJournalIsLeftAsItIs) {
    ASSERT_NO_FATAL_FAILURE(leave_hot_journal());
    const std::string journal = read_file(kAuthJournal);
    const std::string store = read_file("/var/lib/crelm/mail/auth/passwd.db");
    expect_read_only_runs();
    EXPECT_EQ(read_file(kAuthJournal), journal);
    EXPECT_EQ(read_file("/var/lib/crelm/mail/auth/passwd.db"), store);
}

// FIFOs where the audit reads files of a mail tree: opened for reading
// without O_NONBLOCK, one would block the audit forever (the run's time
// bound ends it with status 124).
TEST_F(ReadOnlyTest, FifosInAMailTreeAreLeftAsTheyAre) {
    plant_fifo(kMailnamesDir + "/" + kDomain + "/info/Maildir/maildirsize");
    plant_fifo(kMailnamesDir + "/" + kDomain + "/john/.qmail");
    expect_read_only_runs();
    EXPECT_EQ(file_info(kMailnamesDir + "/" + kDomain + "/info/Maildir/maildirsize").type, '?');
    EXPECT_EQ(file_info(kMailnamesDir + "/" + kDomain + "/john/.qmail").type, '?');
}

// The changing calls of a traced --metrics run that are not the metrics
// file's replacement: creating "<file>.tmp.XXXXXX", setting its mode and
// flushing it, renaming it over the file, and flushing the directory.
// Expects exactly one such rename.
std::vector<std::string> beyond_the_metrics_file(const std::vector<std::string>& changes, const std::string& file) {
    const std::string directory = fs::path(file).parent_path().string();
    const std::string temporary = file + ".tmp.";
    const std::regex create("^AT_FDCWD(<[^>]*>)?, \"" + temporary + "[A-Za-z0-9]{6}\", O_RDWR\\|O_CREAT\\|O_EXCL");
    const std::regex on_temporary("^[0-9]+<" + temporary + "[A-Za-z0-9]{6}>, ");
    const std::regex flush_temporary("^[0-9]+<" + temporary + "[A-Za-z0-9]{6}>\\)");
    const std::regex flush_directory("^[0-9]+<" + directory + ">\\)");
    const std::regex rename("^\"" + temporary + "[A-Za-z0-9]{6}\", \"" + file + "\"\\)");
    std::vector<std::string> beyond;
    int renames = 0;
    for (const std::string& line : changes) {
        const auto [call, args] = call_of(line);
        const bool allowed = ((call == "openat" || call == "open") && std::regex_search(args, create)) ||
                             (call == "fchmod" && std::regex_search(args, on_temporary)) ||
                             (call == "fsync" &&
                              (std::regex_search(args, flush_temporary) || std::regex_search(args, flush_directory))) ||
                             (call == "rename" && std::regex_search(args, rename) && ++renames > 0);
        if (!allowed)
            beyond.push_back(line);
    }
    if (renames != 1)
        beyond.push_back(std::to_string(renames) + " renames of the metrics file");
    return beyond;
}

// --metrics writes its one file and nothing else: the only changes in the
// trace are the file's replacement, and the trees show the new file (and
// its directory's new times) only.
TEST_F(ReadOnlyTest, TheMetricsFileIsTheOneThingWritten) {
    const std::string directory = "/run/textfile";
    const std::string file = directory + "/sorvane-audit.prom";
    fs::create_directories(directory);
    for (const auto& args : std::vector<std::vector<std::string>>{{}, {"--json", "--repair-plan"}}) {
        fs::remove(file);
        const auto before = tree_state();
        std::vector<std::string> with_metrics = args;
        with_metrics.push_back("--metrics=" + file);
        const TracedRun run = traced_audit(with_metrics, {}, true);
        const std::string shown = ::testing::PrintToString(with_metrics);
        EXPECT_EQ(run.result.status, 0) << shown << "\n" << run.result.err;
        EXPECT_GT(run.trace.size(), 10U) << shown << ": no trace";
        const std::vector<std::string> changes = changing_calls(run.trace, sorvane_audit_path());
        EXPECT_GE(changes.size(), 4U) << shown;
        EXPECT_EQ(beyond_the_metrics_file(changes, file), std::vector<std::string>{}) << shown;
        std::vector<std::string> tree = tree_changes(before, tree_state());
        ASSERT_EQ(tree.size(), 2U) << ::testing::PrintToString(tree);
        EXPECT_EQ(tree[0].rfind("changed " + directory + ": ", 0), 0U) << tree[0];
        EXPECT_EQ(tree[1], "added " + file);
    }
}

// The metrics check itself: the replacement passes, anything else is kept.
TEST(ReadOnlyTraceCheck, AllowsTheMetricsFilesReplacementOnly) {
    const std::string file = "/run/textfile/sorvane-audit.prom";
    const std::vector<std::string> replacement{
        "openat(AT_FDCWD</>, \"/run/textfile/sorvane-audit.prom.tmp.Ab12Cd\", O_RDWR|O_CREAT|O_EXCL|O_CLOEXEC, 0600) = "
        "3</run/textfile/sorvane-audit.prom.tmp.Ab12Cd>",
        "fchmod(3</run/textfile/sorvane-audit.prom.tmp.Ab12Cd>, 0644) = 0",
        "fsync(3</run/textfile/sorvane-audit.prom.tmp.Ab12Cd>) = 0",
        "rename(\"/run/textfile/sorvane-audit.prom.tmp.Ab12Cd\", \"/run/textfile/sorvane-audit.prom\") = 0",
        "fsync(3</run/textfile>) = 0"};
    EXPECT_EQ(beyond_the_metrics_file(replacement, file), std::vector<std::string>{});
    const std::vector<std::string> others{
        "openat(AT_FDCWD</>, \"/run/textfile/other\", O_RDWR|O_CREAT|O_EXCL|O_CLOEXEC, 0600) = 3</run/textfile/other>",
        "rename(\"/run/textfile/sorvane-audit.prom.tmp.Ab12Cd\", \"/run/textfile/other\") = 0",
        "fsync(4</var/qmail/control/rcpthosts>) = 0",
        "unlink(\"/run/textfile/sorvane-audit.prom\") = 0"};
    std::vector<std::string> expected = others;
    expected.push_back("0 renames of the metrics file");
    EXPECT_EQ(beyond_the_metrics_file(others, file), expected);
}

// The trace check itself: each kind of change, as strace prints it, is
// caught, and the audit's own reads are not.
TEST(ReadOnlyTraceCheck, CatchesEveryKindOfChangeAndNothingElse) {
    const std::string own = "/build/sorvane-audit";
    const std::vector<std::string> changes{
        "openat(AT_FDCWD, \"/var/qmail/control/rcpthosts\", O_WRONLY|O_CLOEXEC) = 3",
        "123 openat(AT_FDCWD, \"/x\", O_RDWR|O_CREAT, 0644) = 3",
        "[pid 12] open(\"/x\", O_RDONLY|O_TRUNC) = -1 EACCES (Permission denied)",
        "openat(AT_FDCWD, \"/x\", O_RDONLY|O_CREAT|O_EXCL, 0600 <unfinished ...>",
        "creat(\"/x\", 0644) = 3",
        "renameat2(AT_FDCWD, \"/a\", AT_FDCWD, \"/b\", 0) = 0",
        "unlink(\"/var/lib/crelm/mail/auth/passwd.db-journal\") = 0",
        "mkdir(\"/run/sorvane\", 0700) = 0",
        "fchmod(3, 0600) = 0",
        "fchown(3, 0, 0) = 0",
        "fdatasync(3) = 0",
        "ftruncate(3, 0) = 0",
        "symlink(\"/a\", \"/b\") = 0",
        "utimensat(AT_FDCWD, \"/x\", NULL, 0) = 0",
        "socket(AF_UNIX, SOCK_DGRAM|SOCK_CLOEXEC, 0) = 3",
        "connect(3, {sa_family=AF_UNIX, sun_path=\"/dev/log\"}, 110) = 0",
        "socket(AF_INET, SOCK_STREAM, IPPROTO_TCP) = 3",
        "sendto(3, \"<22>sorvane-audit\", 17, MSG_NOSIGNAL, NULL, 0) = 17",
        "clone(child_stack=NULL, flags=CLONE_CHILD_CLEARTID|CLONE_CHILD_SETTID|SIGCHLD) = 9",
        "execve(\"/var/qmail/bin/qmail-newu\", [\"qmail-newu\"], 0x7ffd /* 3 vars */) = 0",
    };
    const std::vector<std::string> reads{
        "execve(\"/build/sorvane-audit\", [\"sorvane-audit\"], 0x7ffd /* 3 vars */) = 0",
        "openat(AT_FDCWD, \"/var/qmail/O_CREAT\", O_RDONLY|O_NONBLOCK|O_NOFOLLOW|O_CLOEXEC) = 3",
        "openat(AT_FDCWD, \"/var/lib/crelm/mail/auth/passwd.db\", O_RDONLY|O_NOFOLLOW|O_CLOEXEC) = 4",
        "newfstatat(3, \"\", {st_mode=S_IFIFO|0600, st_size=0, ...}, AT_EMPTY_PATH) = 0",
        "fcntl(4, F_SETLK, {l_type=F_RDLCK, l_whence=SEEK_SET, l_start=1073741824, l_len=1}) = 0",
        "<... openat resumed>) = 5",
        "socket(AF_UNIX, SOCK_STREAM|SOCK_CLOEXEC|SOCK_NONBLOCK, 0) = 4",
        "connect(4, {sa_family=AF_UNIX, sun_path=\"/var/run/nscd/socket\"}, 110) = -1 ENOENT (No such file)",
        "clone3({flags=CLONE_VM|CLONE_FS|CLONE_FILES|CLONE_SIGHAND|CLONE_THREAD, ...}, 88) = 7",
        "write(1, \"0 findings\\n\", 11) = 11",
        "+++ exited with 0 +++",
    };
    std::vector<std::string> trace = reads;
    trace.insert(trace.end(), changes.begin(), changes.end());
    EXPECT_EQ(changing_calls(trace, own), changes);
}

}  // namespace
}  // namespace sorvane::test
