// The mailbox password never leaves the process: no child program sees it
// in its arguments or environment (every exec traced with strace, and a
// qmail-newu that dumps what it and its parent's environment block hold),
// and no log record or message carries it, failures included.
#include <atomic>
#include <chrono>
#include <sstream>
#include <thread>

#include "e2e/mailbox_state.h"

namespace sorvane::test {
namespace {

const std::string kPassword = "S3cr3t-pw-7f1c";
const std::string kAuthDb = "/var/lib/crelm/mail/auth/passwd.db";

std::vector<std::string> lines_of(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    return lines;
}

class MailboxPasswordTest : public SeededServerTest {
protected:
    void SetUp() override {
        SeededServerTest::SetUp();
        install_fake_deliverquota();
        // qmail-newu keeps what it was given and what its parent's
        // environment block holds while it runs.
        install_fake("/var/qmail/bin/qmail-newu",
                     "d=/tmp/newu-seen; mkdir -p $d\n"
                     "env > $d/env.$$; printf '%s\\n' \"$@\" > $d/args.$$\n"
                     "tr '\\0' '\\n' < /proc/$PPID/environ > $d/parent-environ.$$\n"
                     "tr '\\0' ' ' < /proc/$PPID/cmdline > $d/parent-cmdline.$$\n");
    }

    // Runs sorvane under strace, following every child; returns the
    // program's result and leaves the trace in trace_.
    ProcessResult traced(const std::vector<std::string>& args, const std::string& input,
                         const std::string& password_variable = "QVT_PASSWORD") {
        trace_ = scratch_dir() + "/exec.trace";
        std::vector<std::string> argv = {"/usr/bin/strace", "-f", "-v", "-qq", "-s", "65535",
                                         "-e", "trace=execve", "-o", trace_, sorvane_path()};
        argv.insert(argv.end(), args.begin(), args.end());
        RunOptions options;
        options.stdin_mode = RunOptions::Stdin::Pipe;
        options.input = input;
        // The leak checker of a sanitizer build cannot work under ptrace.
        options.env = {password_variable + "=" + kPassword, "ASAN_OPTIONS=detect_leaks=0"};
        return run_process(argv, options);
    }

    // The execs after sorvane's own: what its children were started with.
    std::vector<std::string> child_execs() {
        std::vector<std::string> execs;
        for (const std::string& line : lines_of(read_file(trace_)))
            if (line.find("execve(") != std::string::npos && line.find(sorvane_path()) == std::string::npos)
                execs.push_back(line);
        return execs;
    }

    std::string trace_;
};

TEST_F(MailboxPasswordTest, RenameRunsItsChildrenWithoutThePassword) {
    const auto result = traced(
        {"--rename-mailname", "--domain-name=example.test", "--old-mailname=john", "--new-mailname=jack"},
        seeded_document());
    ASSERT_EQ(result.status, 0) << result.err;
    const auto execs = child_execs();
    int seds = 0;
    int newus = 0;
    for (const std::string& exec : execs) {
        EXPECT_EQ(exec.find(kPassword), std::string::npos) << exec;
        seds += exec.find("execve(\"/bin/sed\"") != std::string::npos;
        newus += exec.find("execve(\"/var/qmail/bin/qmail-newu\"") != std::string::npos;
    }
    EXPECT_EQ(seds, 0);
    EXPECT_EQ(newus, 1);
    // The fake qmail-newu saw neither the password nor its variables, and
    // its parent's environment block no longer holds them either.
    const auto seen = list_tree("/tmp/newu-seen");
    ASSERT_EQ(seen.size(), 4u);
    for (const std::string& file : seen) {
        const std::string content = read_file("/tmp/newu-seen/" + file);
        EXPECT_EQ(content.find(kPassword), std::string::npos) << file;
        // The parent's block may keep the variable's name; its value is wiped.
        if (file.rfind("parent-environ.", 0) != 0) {
            EXPECT_EQ(content.find("QVT_PASSWORD"), std::string::npos) << file;
        }
    }
    EXPECT_EQ(result.out.find(kPassword), std::string::npos);
    EXPECT_EQ(result.err.find(kPassword), std::string::npos);
    // The authentication rows were renamed with the password as the sign.
    EXPECT_NE(auth_users().find("jack@example.test|0|0|john's p4ss\n"), std::string::npos);
}

TEST_F(MailboxPasswordTest, CryptedPasswordDoesNotReachTheChildrenEither) {
    const auto result = traced(
        {"--rename-mailname", "--domain-name=example.test", "--old-mailname=john", "--new-mailname=jack"},
        seeded_document(), "QVT_CRYPTED_PASSWORD");
    ASSERT_EQ(result.status, 0) << result.err;
    const auto execs = child_execs();
    EXPECT_FALSE(execs.empty());
    for (const std::string& exec : execs) {
        EXPECT_EQ(exec.find(kPassword), std::string::npos) << exec;
        EXPECT_EQ(exec.find("QVT_CRYPTED_PASSWORD"), std::string::npos) << exec;
    }
}

TEST_F(MailboxPasswordTest, FailingStoresLogNoPassword) {
    SyslogCapture capture;
    // The log socket holds only a few records: keep it drained while the
    // program writes, so that it never waits for room.
    std::atomic<bool> done{false};
    std::thread drain([&] {
        while (!done) {
            capture.records();
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    });
    const auto refuse = run_process({"/usr/bin/sqlite3", kAuthDb,
                                     "CREATE TRIGGER refuse_insert BEFORE INSERT ON users BEGIN SELECT RAISE(ABORT, "
                                     "'refused'); END; CREATE TRIGGER refuse_update BEFORE UPDATE ON users BEGIN "
                                     "SELECT RAISE(ABORT, 'refused'); END;"});
    ASSERT_EQ(refuse.status, 0) << refuse.err;
    const std::vector<std::vector<std::string>> commands = {
        {"--set-password", "--domain-name=example.test", "--mailname=john"},
        {"--add-mailbox", "--domain-name=example.test", "--mailname=info", "-D"},
        {"--rename-mailname", "--domain-name=example.test", "--old-mailname=box", "--new-mailname=crate"},
    };
    for (const auto& args : commands) {
        RunOptions options;
        options.stdin_mode = RunOptions::Stdin::Pipe;
        options.input = seeded_document();
        options.env = {"QVT_PASSWORD=" + kPassword};
        const auto result = run_sorvane(args, options);
        EXPECT_EQ(result.status, 1) << args[0] << ": " << result.err;
        EXPECT_EQ(result.out.find(kPassword), std::string::npos) << args[0];
        EXPECT_EQ(result.err.find(kPassword), std::string::npos) << args[0];
        EXPECT_NE(result.err.find("refused"), std::string::npos) << args[0] << ": " << result.err;
    }
    done = true;
    drain.join();
    const auto records = capture.records();
    EXPECT_FALSE(records.empty());
    for (const std::string& record : records)
        EXPECT_EQ(record.find(kPassword), std::string::npos) << record;
}

}  // namespace
}  // namespace sorvane::test
