// A batch leaves what the same commands leave one process at a time. Seeded
// random sequences of all nineteen commands (refused ones, commands whose
// steps fail, re-runs of earlier lines) are run both ways, each on a fresh
// copy of the seeded server: every control file, assign, mail tree, key
// directory, store row and call of the fixed programs, and each command's
// status and output, must be the same. The one difference a batch makes:
// qmail-newu and the reload of qmail-send run once, after its last command,
// and every command that asked for them reports that shared run.
#include <algorithm>
#include <cstdio>
#include <random>

#include "batch/batch_support.h"
#include "e2e/server_state.h"

namespace sorvane::test {
namespace {

// Picks the words of random commands from small pools, so that commands
// meet the same names often enough to act on each other's work.
class CommandPicker {
public:
    explicit CommandPicker(unsigned seed) : random_(seed) {}

    BatchEntry next() {
        BatchEntry entry;
        const std::string domain = pick({kDomain, kDomain, "fresh.test", "other.test", kNeighbour, kAliasOne});
        const std::string mailname = pick({"info", "john", "box", "new1", "new2", "sales", "Bad Name"});
        entry.args = command(domain, mailname);
        if (chance(8))
            entry.args.pop_back();  // a mandatory option left out, as often as not
        if (chance(3))
            entry.password = "pw-" + std::to_string(random_() % 1000);
        else if (chance(12))
            entry.crypted_password = "$6$saltsalt$" + std::string(86, 'a' + static_cast<char>(random_() % 26));
        entry.stdin_text = document(domain);
        return entry;
    }

    bool chance(unsigned one_in) { return random_() % one_in == 0; }
    std::size_t index(std::size_t size) { return random_() % size; }

private:
    std::string pick(const std::vector<std::string>& choices) { return choices[random_() % choices.size()]; }

    std::optional<std::string> document(const std::string& domain) {
        switch (random_() % 6) {
            case 0: return std::nullopt;
            case 1: return std::string("{\"domain\": ");
            case 2: return seeded_document(domain, {});
            default: return seeded_document(domain);
        }
    }

    std::string quota() { return pick({"10M", "-1", "5000", "2G", "0", "lots"}); }

    std::vector<std::string> domain_mode() {
        switch (random_() % 3) {
            case 0: return {"--set-bounce", "--phrase=" + pick({"Gone away.", "No such user here"})};
            case 1: return {"--set-catchall", "--email=" + pick({"info@" + kDomain, "someone@elsewhere.test"})};
            default: return {"--set-reject"};
        }
    }

    std::vector<std::string> with(std::vector<std::string> words, const std::vector<std::string>& more) {
        words.insert(words.end(), more.begin(), more.end());
        return words;
    }

    std::vector<std::string> command(const std::string& domain, const std::string& mailname) {
        const std::string d = "--domain-name=" + domain;
        const std::string m = "--mailname=" + mailname;
        const std::string alias_name = pick({"alias-two.test", "alias-three.test", "alias-four.test"});
        switch (random_() % 19) {
            case 0: return chance(2) ? std::vector<std::string>{"--add-mailname", d, m, "--disk-quota=" + quota()}
                                     : std::vector<std::string>{"--add-mailname", d, m};
            case 1: return {"--remove-mailname", d, m};
            case 2: return {"--rename-mailname", d, "--old-mailname=" + mailname,
                            "--new-mailname=" + pick({"renamed", "john", "new2"})};
            case 3: return chance(3) ? std::vector<std::string>{"--add-mailbox", d, "--mail-delivery-disabled", m}
                                     : std::vector<std::string>{"--add-mailbox", d, m};
            case 4: return {"--remove-mailbox", d, m};
            case 5: return {"--set-password", d, m};
            case 6: return {"--add-alias", d, m, "--alias=" + pick({"extra", "sales", "j.doe", "more"})};
            case 7: return {"--remove-alias", d, m, "--alias=" + pick({"extra", "sales", "j.doe", "office"})};
            case 8: return chance(2) ? std::vector<std::string>{"--add-domain", d, "--disk-quota=" + quota()}
                                     : std::vector<std::string>{"--add-domain", d};
            case 9: return {"--remove-domain", d};
            case 10: return {"--rename-domain", "--old-domain-name=" + domain,
                             "--new-domain-name=" + pick({"fresh.test", "renamed.test", kDomain})};
            case 11: return with({"--turn-on-domain", d}, domain_mode());
            case 12: return {"--turn-off-domain", d};
            case 13: return with({"--add-domain-alias", d, "--domain-alias-name=" + alias_name}, domain_mode());
            case 14: return {"--del-domain-alias", d, "--domain-alias-name=" + alias_name};
            case 15: return with({"--rename-domain-alias", d, "--old-domain-alias-name=" + alias_name,
                                  "--new-domain-alias-name=" + pick({"alias-five.test", kAliasTwo})},
                                 domain_mode());
            case 16: return chance(2) ? std::vector<std::string>{"--get-mailbox-size", "--in-blocks", d, m}
                                      : std::vector<std::string>{"--get-mailbox-size", d, m};
            case 17: return {"--set-mailbox-disk-quota", d, m, "--disk-quota=" + quota()};
            default: return {"--set-domain-disk-quota", d, "--disk-quota=" + quota()};
        }
    }

    std::mt19937 random_;
};

std::vector<BatchEntry> random_sequence(unsigned seed, std::size_t length) {
    CommandPicker picker(seed);
    std::vector<BatchEntry> entries;
    while (entries.size() < length) {
        if (!entries.empty() && picker.chance(7))
            entries.push_back(entries[picker.index(entries.size())]);  // a re-run
        else
            entries.push_back(picker.next());
    }
    return entries;
}

// How the fixed programs behave in a run: all succeed, or all fail (each
// run of a command and the batch's shared run then go the same way).
enum class Fakes { succeed, fail };

// qmail-newu complains on standard error and fails; the reload signal fails,
// so that each reload goes on to the restart, which fails too.
void install_failing_fakes() {
    install_fake("/var/qmail/bin/qmail-newu", "echo 'qmail-newu: fatal: unable to read assign' >&2; exit 111");
    set_fake_status("killall", 1);
    set_fake_status("crelmrc", 1);
}

void fresh_server(Fakes fakes) {
    reset_sandbox();
    seed_server_state();
    if (fakes == Fakes::fail)
        install_failing_fakes();
}

void expect_same_both_ways(unsigned seed, std::size_t length, Fakes fakes) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    const std::vector<BatchEntry> entries = random_sequence(seed, length);

    fresh_server(fakes);
    std::vector<ProcessResult> alone;
    for (const BatchEntry& entry : entries)
        alone.push_back(run_entry(entry));
    const ServerState after_alone = read_server_state();

    fresh_server(fakes);
    const ProcessResult batch = run_batch(batch_document(entries));
    const ServerState after_batch = read_server_state();

    const bool any_failed = std::any_of(alone.begin(), alone.end(), [](const ProcessResult& r) { return r.status != 0; });
    EXPECT_EQ(batch.status, any_failed ? 1 : 0);
    EXPECT_EQ(batch.err, "");
    const std::vector<OutputObject> objects = read_output_objects(batch.out);
    ASSERT_EQ(objects.size(), entries.size());
    std::size_t succeeded = 0;
    for (std::size_t i = 0; i < entries.size(); ++i) {
        SCOPED_TRACE("line " + std::to_string(i + 1) + ": " + batch_line(entries[i]));
        EXPECT_EQ(objects[i].line, static_cast<long>(i + 1));
        EXPECT_EQ(objects[i].status, alone[i].status);
        EXPECT_EQ(without_pids(objects[i].out), without_pids(alone[i].out));
        EXPECT_EQ(without_pids(objects[i].err), without_pids(alone[i].err));
        succeeded += alone[i].status == 0;
    }
    expect_server_state(after_batch, with_shared_runs(after_alone, fakes == Fakes::fail));
    // The sample is worth something only if commands asked for the runs.
    EXPECT_GT(after_alone.qmail_newu_calls.size(), 1u);
    EXPECT_GT(after_alone.killall_calls.size(), 1u);
    // A sequence where everything or nothing succeeds proves little (with
    // failing rebuilds, most commands fail).
    EXPECT_GT(succeeded, fakes == Fakes::succeed ? length / 5 : 0);
    EXPECT_LT(succeeded, length);
}

// One seed a test, so that each stays well inside the suite's time limit
// in the sanitizer build too.
class BatchDifferentialTest : public SandboxTest, public ::testing::WithParamInterface<unsigned> {};

TEST_P(BatchDifferentialTest, RandomSequencesLeaveWhatSeparateProcessesLeave) {
    expect_same_both_ways(GetParam(), 60, Fakes::succeed);
}

// Every command that asked for qmail-newu or the reload reports the shared
// run's failure where it asked, and ends 1 where it would have ended 0.
TEST_P(BatchDifferentialTest, WithFailingRebuildsEveryCommandReportsTheSharedFailure) {
    expect_same_both_ways(GetParam() + 100, 40, Fakes::fail);
}

INSTANTIATE_TEST_SUITE_P(Seeds, BatchDifferentialTest, ::testing::Values(1u, 2u));

}  // namespace
}  // namespace sorvane::test
