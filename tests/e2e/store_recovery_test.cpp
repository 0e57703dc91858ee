// A command killed while it commits a change of the authentication store
// leaves the store's file half written and its hot journal beside it. The
// same command run again must succeed and end in the state of a run that
// was never interrupted.
#include <functional>

#include "e2e/mailbox_state.h"

namespace sorvane::test {
namespace {

const std::string kAuthJournal = "/var/lib/crelm/mail/auth/passwd.db-journal";

// Runs sorvane under strace, which kills it when it is about to delete the
// authentication store's journal: the end of its first commit there, after
// the changed pages have reached the database file.
ProcessResult run_killed_at_auth_commit(const std::vector<std::string>& args, const std::string& input,
                                        const std::vector<std::string>& env = {}) {
    std::vector<std::string> argv = {"/usr/bin/strace", "-f", "-qq", "-o", "/dev/null", "-P", kAuthJournal,
                                     "-e", "trace=unlink,unlinkat", "-e", "inject=unlink,unlinkat:signal=KILL",
                                     sorvane_path()};
    argv.insert(argv.end(), args.begin(), args.end());
    RunOptions options;
    options.stdin_mode = RunOptions::Stdin::Pipe;
    options.input = input;
    // The leak checker of a sanitizer build cannot work under ptrace.
    options.env = env;
    options.env.push_back("ASAN_OPTIONS=detect_leaks=0");
    return run_process(argv, options);
}

ProcessResult run_with(const std::vector<std::string>& args, const std::string& input,
                       const std::vector<std::string>& env) {
    RunOptions options;
    options.stdin_mode = RunOptions::Stdin::Pipe;
    options.input = input;
    options.env = env;
    return run_sorvane(args, options);
}

class StoreRecoveryTest : public SeededServerTest {
protected:
    // After prepare, kills one run of the command in its first
    // authentication commit, runs it again, and compares the outcome with
    // one run of the command on a freshly seeded and prepared server.
    void expect_killed_run_finished_by_the_next(const std::vector<std::string>& args,
                                                const std::vector<std::string>& env = {},
                                                const std::function<void()>& prepare = [] {}) {
        prepare();
        const ProcessResult killed = run_killed_at_auth_commit(args, seeded_document(), env);
        ASSERT_NE(killed.status, 0) << "the run was not killed";
        ASSERT_TRUE(path_exists(kAuthJournal)) << "the killed run left no journal";

        const ProcessResult again = run_with(args, seeded_document(), env);
        EXPECT_EQ(again.status, 0) << again.err;
        EXPECT_EQ(again.out, "");
        EXPECT_EQ(again.err, "");
        EXPECT_FALSE(path_exists(kAuthJournal));
        const ServerState finished = read_server_state();

        reset_sandbox();
        write_file("/etc/qvt/qvt.conf", "", 0644);
        seed_server_state();
        prepare();
        ASSERT_EQ(run_with(args, seeded_document(), env).status, 0);
        expect_server_state(finished, read_server_state());
    }
};

// Copying the mail name's authentication record reads it first, through a
// read-only handle, which meets the journal the killed run left.
TEST_F(StoreRecoveryTest, AddAliasKilledInAnAuthenticationCommitIsFinishedByTheNextRun) {
    expect_killed_run_finished_by_the_next({"--add-alias", "--domain-name=example.test", "--mailname=john",
                                            "--alias=jd"});
}

TEST_F(StoreRecoveryTest, SetPasswordKilledInAnAuthenticationCommitIsFinishedByTheNextRun) {
    expect_killed_run_finished_by_the_next({"--set-password", "--domain-name=example.test", "--mailname=john"},
                                           {"QVT_PASSWORD=n3w-Passw0rd"});
}

void remove_johns_mailbox() {
    const ProcessResult removed = run_sorvane_with_input(
        {"--remove-mailbox", "--domain-name=example.test", "--mailname=john"}, seeded_document());
    ASSERT_EQ(removed.status, 0) << removed.err;
}

TEST_F(StoreRecoveryTest, AddMailboxKilledInAnAuthenticationCommitIsFinishedByTheNextRun) {
    expect_killed_run_finished_by_the_next({"--add-mailbox", "--domain-name=example.test", "--mailname=john"},
                                           {"QVT_PASSWORD=n3w-Passw0rd"}, remove_johns_mailbox);
}

}  // namespace
}  // namespace sorvane::test
