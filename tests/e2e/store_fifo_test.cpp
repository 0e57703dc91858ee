// Something other than a plain file at a path under the stores' root-only
// directories (the password key, a database's journal or write-ahead log):
// a FIFO there would block the first open or read for ever. Each command
// that meets one ends at once with status 1 and says which path it is. The
// timeout around each run only turns a hang into a failure; it is no wait.
#include <sys/stat.h>
#include <unistd.h>

#include "e2e/domain_test_support.h"
#include "e2e/mailbox_state.h"

namespace sorvane::test {
namespace {

const std::string kKeyFile = "/var/lib/crelm/mail/auth/passwd_db_key";

// A command and what it must be given to reach its store.
struct StoreCommand {
    std::vector<std::string> args;
    bool with_document = false;
};

StoreCommand add_mailname() {
    return {{"--add-mailname", "--domain-name=example.test", "--mailname=new", "--disk-quota=1048576"}};
}
StoreCommand set_password() {
    return {{"--set-password", "--domain-name=example.test", "--mailname=john"}, true};
}
StoreCommand add_mailbox() {
    return {{"--add-mailbox", "--domain-name=example.test", "--mailname=info"}, true};
}
StoreCommand turn_off_domain() {
    return {joined({"--turn-off-domain", "--domain-name=example.test"}, seeded_session_lists())};
}

class StoreFifoTest : public SeededServerTest {
protected:
    void SetUp() override {
        SeededServerTest::SetUp();
        install_fake_deliverquota();
    }

    // Runs the command with a FIFO at path; it must end promptly with
    // status 1 and the message naming path.
    void expect_refused_at(const std::string& path, const StoreCommand& command) {
        ::unlink(path.c_str());
        ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0) << path;
        RunOptions options;
        options.stdin_mode = RunOptions::Stdin::Pipe;
        options.input = command.with_document ? seeded_document() : std::string();
        options.env = {"QVT_PASSWORD=n3w-pass"};
        std::vector<std::string> args = {"/usr/bin/timeout", "-s", "KILL", "60", sorvane_path()};
        args.insert(args.end(), command.args.begin(), command.args.end());
        const auto result = run_process(args, options);
        ::unlink(path.c_str());
        EXPECT_EQ(result.status, 1) << command.args[0] << " at " << path << ": " << result.err;
        EXPECT_NE(result.err.find(path + " is a fifo, not a regular file"), std::string::npos)
            << command.args[0] << ": " << result.err;
    }
};

TEST_F(StoreFifoTest, FifoAtTheKeyFile) {
    const std::string key = read_file(kKeyFile);
    for (const StoreCommand& command : {set_password(), add_mailbox()}) {
        expect_refused_at(kKeyFile, command);
        write_file(kKeyFile, key, 0600);
    }
}

TEST_F(StoreFifoTest, FifoAtTheQuotaStoresJournals) {
    for (const std::string suffix : {"-journal", "-wal"})
        expect_refused_at(kQuotaDb + suffix, add_mailname());
}

TEST_F(StoreFifoTest, FifoAtTheAuthenticationStoresJournals) {
    for (const std::string suffix : {"-journal", "-wal"}) {
        expect_refused_at(kAuthDb + suffix, set_password());
        expect_refused_at(kAuthDb + suffix, add_mailbox());
    }
}

TEST_F(StoreFifoTest, FifoAtTheHandlersStoresJournals) {
    for (const std::string suffix : {"-journal", "-wal"})
        expect_refused_at(kHandlersDb + suffix, turn_off_domain());
}

TEST_F(StoreFifoTest, FifoAtADatabaseItself) {
    expect_refused_at(kQuotaDb, add_mailname());
}

// A link at the key file is not followed either.
TEST_F(StoreFifoTest, LinkAtTheKeyFileIsRefused) {
    const std::string copy = kKeyFile + ".copy";
    write_file(copy, read_file(kKeyFile), 0600);
    ASSERT_EQ(::unlink(kKeyFile.c_str()), 0);
    ASSERT_EQ(::symlink(copy.c_str(), kKeyFile.c_str()), 0);
    RunOptions options;
    options.stdin_mode = RunOptions::Stdin::Pipe;
    options.input = seeded_document();
    options.env = {"QVT_PASSWORD=n3w-pass"};
    const auto result = run_sorvane(set_password().args, options);
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.err.find(kKeyFile + " is a symbolic link, not a regular file"), std::string::npos) << result.err;
}

}  // namespace
}  // namespace sorvane::test
