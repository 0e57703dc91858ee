// sorvane --batch through the built binary: the output objects hold what
// each command alone prints, a document with one bad line runs nothing,
// --stop-on-error ends the batch at the first command that fails, and a
// password reaches the store and nothing else.
#include <sys/mount.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <functional>

#include "batch/batch_support.h"
#include "e2e/server_state.h"

namespace sorvane::test {
namespace {

class BatchTest : public SandboxTest {
protected:
    void SetUp() override {
        SandboxTest::SetUp();
        seed_server_state();
    }
};

std::vector<std::string> mailname_args(const std::string& command_switch, const std::string& mailname) {
    return {command_switch, "--domain-name=" + kDomain, "--mailname=" + mailname};
}

// Commands whose output tries the escaping: sizes on standard output,
// messages with line feeds, tabs and quotes on both, a failed command.
std::vector<BatchEntry> mixed_entries() {
    return {
        {mailname_args("--get-mailbox-size", "info"), {}, {}, {}},
        {{"--no-such-command"}, {}, {}, {}},
        {mailname_args("--add-mailname", "fresh"), {}, {}, seeded_document()},
        {mailname_args("--add-mailbox", "fresh"), "fresh \"pass\"", {}, seeded_document()},
        {{"--add-domain", "--domain-name=bad name!"}, {}, {}, {}},
        {{"--add-alias", "--domain-name=" + kDomain, "--mailname=fresh"}, {}, {}, {}},
        {mailname_args("--get-mailbox-size", "fresh"), {}, {}, {}},
    };
}

// What the same commands gave one process at a time and as one batch.
struct BothWays {
    std::vector<ProcessResult> alone;
    ProcessResult batch;
    std::vector<OutputObject> objects;
};

// Runs entries one process at a time, then as one batch on a fresh copy of
// the server (prepare runs on it first); every object must hold what its
// command alone printed, and the server what the commands alone left but for
// the shared runs.
BothWays expect_batch_as_alone(const std::vector<BatchEntry>& entries, bool reload_fails = false,
                               const std::function<void()>& prepare = [] {}) {
    BothWays both;
    for (const BatchEntry& entry : entries)
        both.alone.push_back(run_entry(entry));
    const ServerState after_alone = read_server_state();
    reset_sandbox();
    seed_server_state();
    prepare();
    both.batch = run_batch(batch_document(entries));
    EXPECT_EQ(both.batch.err, "");
    both.objects = read_output_objects(both.batch.out);
    EXPECT_EQ(both.objects.size(), entries.size());
    for (std::size_t i = 0; i < both.objects.size() && i < entries.size(); ++i) {
        SCOPED_TRACE("line " + std::to_string(i + 1));
        EXPECT_EQ(both.objects[i].line, static_cast<long>(i + 1));
        EXPECT_EQ(both.objects[i].status, both.alone[i].status);
        EXPECT_EQ(without_pids(both.objects[i].out), without_pids(both.alone[i].out));
        EXPECT_EQ(without_pids(both.objects[i].err), without_pids(both.alone[i].err));
    }
    expect_server_state(read_server_state(), with_shared_runs(after_alone, reload_fails));
    return both;
}

TEST_F(BatchTest, EachOutputObjectHoldsWhatItsCommandAlonePrints) {
    const BothWays both = expect_batch_as_alone(mixed_entries());
    EXPECT_EQ(both.batch.status, 1) << "a command failed";
    // The sample is worth something only if it printed on both streams and
    // both ended 0 and not.
    ASSERT_GE(both.alone.size(), 2u);
    EXPECT_NE(both.alone[0].out, "");
    EXPECT_NE(both.alone[1].err, "");
    EXPECT_EQ(both.alone[0].status, 0);
    EXPECT_NE(both.alone[1].status, 0);
}

TEST_F(BatchTest, EveryCommandEndingZeroGivesZero) {
    const ProcessResult batch = run_batch(batch_document({
        {mailname_args("--add-mailname", "fresh"), {}, {}, seeded_document()},
        {mailname_args("--get-mailbox-size", "info"), {}, {}, {}},
    }));
    EXPECT_EQ(batch.status, 0);
    EXPECT_EQ(batch.err, "");
    const std::vector<OutputObject> objects = read_output_objects(batch.out);
    ASSERT_EQ(objects.size(), 2u);
    EXPECT_EQ(objects[0].status, 0);
    EXPECT_EQ(objects[1].status, 0);
}

TEST_F(BatchTest, ALongBatchShowsNoProgressWhenStandardErrorIsNoTerminal) {
    const std::vector<BatchEntry> entries(101, BatchEntry{{"--help-commands"}, {}, {}, {}});
    const ProcessResult batch = run_batch(batch_document(entries));
    EXPECT_EQ(batch.status, 0);
    EXPECT_EQ(batch.err, "");
    EXPECT_EQ(read_output_objects(batch.out).size(), 101u);
}

// The sandbox's /dev has no terminals: a private devpts instance gives it
// some (the test process has a mount namespace of its own).
void mount_terminals() {
    ASSERT_EQ(mount("devpts", "/dev/pts", "devpts", 0, "newinstance,ptmxmode=0666"), 0) << std::strerror(errno);
    ASSERT_EQ(symlink("/dev/pts/ptmx", "/dev/ptmx"), 0) << std::strerror(errno);
}

// What a batch of count --help-commands writes on a terminal: script(1)
// gives it one as standard error (standard output goes to a file).
std::string terminal_output(std::size_t count) {
    mount_terminals();
    const std::string document = scratch_dir() + "/document";
    write_file(document, batch_document(std::vector<BatchEntry>(count, BatchEntry{{"--help-commands"}, {}, {}, {}})));
    const std::string command = sorvane_path() + " --batch < " + document + " > " + scratch_dir() + "/out";
    const ProcessResult script = run_process({"/usr/bin/script", "-qec", command, "/dev/null"});
    EXPECT_EQ(script.status, 0) << script.err;
    EXPECT_EQ(read_output_objects(read_file(scratch_dir() + "/out")).size(), count);
    return script.out;
}

TEST_F(BatchTest, ALongBatchShowsItsProgressOnATerminal) {
    const std::string shown = terminal_output(101);
    EXPECT_NE(shown.find("\rsorvane --batch: 1 of 101 commands run"), std::string::npos) << shown;
    EXPECT_NE(shown.find("\rsorvane --batch: 101 of 101 commands run\r\n"), std::string::npos) << shown;
}

TEST_F(BatchTest, ABatchOfAHundredShowsNoProgressEvenOnATerminal) {
    EXPECT_EQ(terminal_output(100), "");
}

TEST_F(BatchTest, AnEmptyDocumentRunsNothingAndEndsZero) {
    const ServerState before = read_server_state();
    const ProcessResult batch = run_batch("");
    EXPECT_EQ(batch.status, 0);
    EXPECT_EQ(batch.out, "");
    EXPECT_EQ(batch.err, "");
    expect_server_state(read_server_state(), before);
}

struct MalformedLine {
    std::string text;
    std::string reason;
};

const std::vector<MalformedLine> kMalformedLines = {
    {"", "expected a JSON object at column 1"},
    {"not json", "expected a JSON object at column 1"},
    {"[\"--add-domain\"]", "expected a JSON object at column 1"},
    {"{}", "member \"args\" missing at column 3"},
    {"{\"args\": []}", "\"args\" is empty: the command switch comes first at column 11"},
    {"{\"args\": \"--add-domain\"}", "expected \"args\" to be an array of strings at column 10"},
    {"{\"args\": [\"--add-domain\", 5]}", "expected a string at column 27"},
    {"{\"args\": [\"--help\"], \"args\": [\"--help\"]}", "member \"args\" given twice at column 29"},
    {"{\"args\": [\"--help\"], \"user\": \"x\"}", "unknown member \"user\" at column 29"},
    {"{\"args\": [\"--help\"], \"password\": 5}", "expected \"password\" to be a string at column 34"},
    {"{\"args\": [\"--help\"], \"stdin\": null}", "expected \"stdin\" to be a string at column 31"},
    {"{\"args\": [\"--help\"], \"password\": \"a\", \"password\": \"b\"}",
     "member \"password\" given twice at column 50"},
    {"{\"args\": [\"--help\"]} {}", "text after the object at column 22"},
    {"{\"args\": [\"--help\"]", "expected ',' or '}' at column 20"},
    {"{\"args\": [\"--he\\lp\"]}", "invalid escape at column 17"},
    {"{\"args\": [\"--help\tx\"]}", "control character in a string at column 18"},
    {"{\"args\": [\"--help", "unterminated string at column 18"},
    {"{\"args\": [\"--help\\u0000\"]}", "NUL byte in an argument at column 25"},
    {"{\"args\": [\"--help\\ud800\"]}", "high surrogate without its low surrogate at column 24"},
    {"{\"args\": [\"--batch\"]}", "a batch cannot run --batch at column 22"},
};

TEST_F(BatchTest, ALineThatIsNotACommandRunsNothing) {
    const ServerState before = read_server_state();
    const std::string good_first = batch_line({mailname_args("--add-mailname", "fresh"), {}, {}, seeded_document()});
    const std::string good_last = batch_line({{"--remove-domain", "--domain-name=" + kDomain}, {}, {}, {}});
    for (const MalformedLine& malformed : kMalformedLines) {
        SCOPED_TRACE("line: " + malformed.text);
        const ProcessResult batch = run_batch(good_first + "\n" + malformed.text + "\n" + good_last + "\n");
        EXPECT_EQ(batch.status, 2);
        EXPECT_EQ(batch.out, "");
        EXPECT_EQ(batch.err, "Error: batch line 2: " + malformed.reason + "; nothing was run\n");
    }
    expect_server_state(read_server_state(), before);
}

TEST_F(BatchTest, AnUnknownBatchOptionRunsNothing) {
    const ServerState before = read_server_state();
    const ProcessResult batch =
        run_batch(batch_document({{mailname_args("--add-mailname", "fresh"), {}, {}, seeded_document()}}), {"--fast"});
    EXPECT_EQ(batch.status, 2);
    EXPECT_EQ(batch.out, "");
    EXPECT_EQ(batch.err, "Error: unknown option --fast for --batch\nUsage: sorvane --batch [--stop-on-error] < document\n");
    expect_server_state(read_server_state(), before);
}

std::vector<BatchEntry> failing_in_the_middle() {
    return {
        {mailname_args("--add-mailname", "first"), {}, {}, seeded_document()},
        {{"--no-such-command", "--domain-name=" + kDomain}, {}, {}, {}},
        {mailname_args("--add-mailname", "third"), {}, {}, seeded_document()},
    };
}

bool has_record_for(const std::string& mailname) {
    return read_file("/var/qmail/users/assign").find("=" + kDomain + "-" + mailname + ":") != std::string::npos;
}

TEST_F(BatchTest, StopOnErrorMakesTheFirstFailureTheLastCommandRun) {
    const ProcessResult batch = run_batch(batch_document(failing_in_the_middle()), {"--stop-on-error"});
    EXPECT_EQ(batch.status, 1);
    const std::vector<OutputObject> objects = read_output_objects(batch.out);
    ASSERT_EQ(objects.size(), 2u);
    EXPECT_EQ(objects[0].status, 0);
    EXPECT_NE(objects[1].status, 0);
    EXPECT_EQ(objects[1].line, 2);
    EXPECT_TRUE(has_record_for("first"));
    EXPECT_FALSE(has_record_for("third"));
}

TEST_F(BatchTest, WithoutStopOnErrorEveryCommandRuns) {
    const ProcessResult batch = run_batch(batch_document(failing_in_the_middle()));
    EXPECT_EQ(batch.status, 1);
    const std::vector<OutputObject> objects = read_output_objects(batch.out);
    ASSERT_EQ(objects.size(), 3u);
    EXPECT_NE(objects[1].status, 0);
    EXPECT_EQ(objects[2].status, 0);
    EXPECT_TRUE(has_record_for("first"));
    EXPECT_TRUE(has_record_for("third"));
}

// Commands of which all but one ask for qmail-newu, two of them for the
// reload of qmail-send too.
std::vector<BatchEntry> rebuilding_entries() {
    return {
        {{"--add-domain", "--domain-name=fresh.test"}, {}, {}, {}},
        {mailname_args("--add-mailname", "one"), {}, {}, seeded_document()},
        {mailname_args("--get-mailbox-size", "info"), {}, {}, {}},
        {mailname_args("--add-mailname", "two"), {}, {}, seeded_document()},
        {{"--remove-domain", "--domain-name=fresh.test"}, {}, {}, R"({"domain": {"name": "fresh.test", "mails": []}})"},
    };
}

TEST_F(BatchTest, OneRebuildAndOneReloadServeTheWholeBatch) {
    const ProcessResult batch = run_batch(batch_document(rebuilding_entries()));
    EXPECT_EQ(batch.status, 0) << batch.out;
    EXPECT_EQ(fake_calls("qmail-newu").size(), 1u);
    EXPECT_EQ(fake_calls("killall").size(), 1u);
    // qmail-newu ran after the last change: the table it compiled is the
    // final one (the fake leaves what it read).
    reset_sandbox();
    seed_server_state();
    install_fake("/var/qmail/bin/qmail-newu", "cat /var/qmail/users/assign > /tmp/compiled");
    run_batch(batch_document(rebuilding_entries()));
    EXPECT_EQ(read_file("/tmp/compiled"), read_file("/var/qmail/users/assign"));
    EXPECT_TRUE(has_record_for("two"));
}

TEST_F(BatchTest, EachCommandThatAskedReportsTheSharedRebuildsFailure) {
    const auto failing = [] {
        install_fake("/var/qmail/bin/qmail-newu", "echo 'qmail-newu: fatal: unable to read assign' >&2; exit 111");
    };
    failing();
    const std::vector<OutputObject> objects = expect_batch_as_alone(rebuilding_entries(), false, failing).objects;
    ASSERT_EQ(objects.size(), 5u);
    for (const std::size_t asked : {0u, 1u, 3u, 4u}) {
        EXPECT_EQ(objects[asked].status, 1) << asked;
        EXPECT_NE(objects[asked].err.find("qmail-newu: fatal: unable to read assign\n"), std::string::npos)
            << objects[asked].err;
    }
    EXPECT_EQ(objects[2].status, 0);
    EXPECT_EQ(objects[2].err, "");
    EXPECT_EQ(fake_calls("qmail-newu").size(), 1u);
}

TEST_F(BatchTest, AFailedSharedReloadGoesOnToOneRestartReportedByEachDomainCommand) {
    const auto failing = [] {
        set_fake_status("killall", 1);
        set_fake_status("crelmrc", 1);
    };
    failing();
    const std::vector<OutputObject> objects = expect_batch_as_alone(rebuilding_entries(), true, failing).objects;
    ASSERT_EQ(objects.size(), 5u);
    EXPECT_EQ(objects[0].status, 1);
    EXPECT_EQ(objects[1].status, 0) << "a mail name asks for no reload";
    EXPECT_EQ(fake_calls("killall").size(), 1u);
    EXPECT_EQ(fake_calls("crelmrc").size(), 1u);
}

TEST_F(BatchTest, WithStopOnErrorEachCommandRunsItsOwnRebuild) {
    const ProcessResult batch = run_batch(batch_document(rebuilding_entries()), {"--stop-on-error"});
    EXPECT_EQ(batch.status, 0) << batch.out;
    EXPECT_EQ(fake_calls("qmail-newu").size(), 4u);
    EXPECT_EQ(fake_calls("killall").size(), 2u);
}

TEST_F(BatchTest, EachCommandHasItsOwnPasswordOrNone) {
    const std::vector<BatchEntry> entries = {
        {mailname_args("--add-mailname", "one"), {}, {}, seeded_document()},
        {mailname_args("--add-mailbox", "one"), "first-secret", {}, seeded_document()},
        {mailname_args("--add-mailname", "two"), {}, {}, seeded_document()},
        {mailname_args("--add-mailbox", "two"), {}, {}, seeded_document()},
        {mailname_args("--set-password", "info"), "second-secret", {}, seeded_document()},
    };
    const std::vector<OutputObject> objects = read_output_objects(run_batch(batch_document(entries)).out);
    ASSERT_EQ(objects.size(), 5u);
    const std::string users = auth_users();
    EXPECT_NE(users.find(auth_user_row("one", kDomain, "first-secret")), std::string::npos) << users;
    EXPECT_NE(users.find(auth_user_row("info", kDomain, "second-secret")), std::string::npos) << users;
    EXPECT_EQ(users.find(auth_user_row("two", kDomain, "first-secret")), std::string::npos) << users;
    // The second mailbox was given no password: it fares as a process run
    // without one does, not with the password of the command before it.
    reset_sandbox();
    seed_server_state();
    ProcessResult alone;
    for (std::size_t i = 0; i < 4; ++i)
        alone = run_entry(entries[i]);
    EXPECT_EQ(objects[3].status, alone.status);
    EXPECT_EQ(objects[3].out, alone.out);
    EXPECT_EQ(objects[3].err, alone.err);
}

// The batch sets libcrypto up once before its commands fork, random
// generators included: each command must still draw random bytes of its
// own, or mailboxes given one password would be stored alike (the same IV)
// and a reader of the store could tell which share it.
TEST_F(BatchTest, MailboxesGivenOnePasswordAreEachStoredDifferently) {
    const std::string secret = "shared-secret";
    constexpr int kMailboxes = 8;
    std::vector<BatchEntry> entries;
    for (int i = 0; i < kMailboxes; ++i) {
        const std::string mailname = "same" + std::to_string(i);
        entries.push_back({mailname_args("--add-mailname", mailname), {}, {}, seeded_document()});
        entries.push_back({mailname_args("--add-mailbox", mailname), secret, {}, seeded_document()});
    }
    const ProcessResult batch = run_batch(batch_document(entries));
    ASSERT_EQ(batch.status, 0) << batch.out << batch.err;
    const ProcessResult stored = run_process(
        {"/usr/bin/sqlite3", "-batch", "/var/lib/crelm/mail/auth/passwd.db",
         "SELECT count(*), count(DISTINCT userPassword) FROM users WHERE name LIKE 'same%' AND dom_id = "
         "(SELECT id FROM domains WHERE name = '" + kDomain + "');"});
    EXPECT_EQ(stored.out, std::to_string(kMailboxes) + "|" + std::to_string(kMailboxes) + "\n") << stored.err;
    const std::string users = auth_users();
    for (int i = 0; i < kMailboxes; ++i)
        EXPECT_NE(users.find(auth_user_row("same" + std::to_string(i), kDomain, secret)), std::string::npos) << users;
}

TEST_F(BatchTest, APasswordReachesNoChildArgumentEnvironmentLogOrMessage) {
    const std::string secret = "batch-secret-8d1f";
    install_fake("/var/qmail/bin/qmail-newu",
                 "{ tr '\\0' '\\n' < /proc/$PPID/environ; tr '\\0' ' ' < /proc/$PPID/cmdline; env; echo \"$@\"; }"
                 " >> /tmp/seen-by-children");
    SyslogCapture syslog;
    const ProcessResult batch = run_batch(batch_document({
        {mailname_args("--add-mailname", "one"), {}, {}, seeded_document()},
        {mailname_args("--add-mailbox", "one"), secret, {}, seeded_document()},
        {mailname_args("--set-password", "one"), secret, {}, seeded_document()},
        {{"--rename-mailname", "--domain-name=" + kDomain, "--old-mailname=one", "--new-mailname=uno"},
         secret, {}, seeded_document()},
    }));
    EXPECT_NE(auth_users().find(auth_user_row("uno", kDomain, secret)), std::string::npos) << batch.out;
    const std::string seen = read_file("/tmp/seen-by-children");
    EXPECT_NE(seen, "") << "the children were not watched";
    EXPECT_EQ(seen.find(secret), std::string::npos) << seen;
    EXPECT_EQ(batch.out.find(secret), std::string::npos);
    EXPECT_EQ(batch.err.find(secret), std::string::npos);
    for (const std::string& record : syslog.records())
        EXPECT_EQ(record.find(secret), std::string::npos) << record;
}

}  // namespace
}  // namespace sorvane::test

namespace sorvane::test {
namespace {

// The README's example, smaller: a new domain, enabled, with its mail names
// and mailboxes in one batch, then the audit finds it in step.
class BatchNewDomainTest : public SandboxTest {
protected:
    void SetUp() override {
        SandboxTest::SetUp();
        seed_empty_server();
    }
};

TEST_F(BatchNewDomainTest, ANewDomainWithItsMailboxesInOneRunAuditsClean) {
    const std::string domain = "shop.example";
    const std::string d = "--domain-name=" + domain;
    const std::string data = R"({"domain": {"name": ")" + domain + R"(", "mails": []}})";
    std::vector<BatchEntry> entries = {
        {{"--add-domain", d}, {}, {}, {}},
        {{"--turn-on-domain", d, "--set-reject"}, {}, {}, data},
    };
    constexpr int kMailboxes = 20;
    for (int i = 1; i <= kMailboxes; ++i) {
        const std::string m = "--mailname=user" + std::to_string(i);
        entries.push_back({{"--add-mailname", d, m}, {}, {}, data});
        entries.push_back({{"--add-mailbox", d, m}, "pw-" + std::to_string(i), {}, data});
    }
    const ProcessResult batch = run_batch(batch_document(entries));
    EXPECT_EQ(batch.status, 0) << batch.out;
    EXPECT_EQ(fake_calls("qmail-newu").size(), 1u);
    EXPECT_EQ(batch.err, "");
    const std::vector<OutputObject> objects = read_output_objects(batch.out);
    ASSERT_EQ(objects.size(), entries.size());
    for (const OutputObject& object : objects)
        EXPECT_EQ(object.status, 0) << "line " << object.line << ": " << object.err;
    const std::string users = auth_users();
    EXPECT_NE(users.find(auth_user_row("user20", domain, "pw-20")), std::string::npos) << users;

    const ProcessResult audit = run_sorvane_audit({"--domain=" + domain});
    EXPECT_EQ(audit.status, 0) << audit.out << audit.err;
    EXPECT_EQ(audit.err, "");
}

}  // namespace
}  // namespace sorvane::test
