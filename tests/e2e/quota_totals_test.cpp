// Quota settings against the real delivery agent: the totals sorvane writes
// into "maildirsize" and the number --get-mailbox-size prints are the ones
// the agent finds when it recounts the same tree itself, so the agent takes
// the same delivery decisions; broken trees are refused at once.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <sstream>

#include "e2e/mailbox_state.h"

namespace fs = std::filesystem;

namespace sorvane::test {
namespace {

const char* const kAgent = "/usr/sbin/deliverquota";
// deliverquota's exit status for a message over quota (EX_NOPERM).
constexpr int kOverQuota = 77;
const std::string kHome = "/var/qmail/mailnames/example.test/info";
const std::string kMaildir = kHome + "/Maildir";
const std::string kSeededName = "1700000000.M1P1.mail.example.test";
const long long kSeeded = 51;  // the seeded message in "new"
const long long kQuota = 1000000;

struct Totals {
    long long bytes = 0;
    long long count = 0;
    bool operator==(const Totals&) const = default;
};

void PrintTo(const Totals& totals, std::ostream* out) { *out << totals.bytes << " bytes in " << totals.count; }

// A folder of the mailbox as the mail owner would have made it.
void make_owned_directory(const std::string& path) {
    fs::create_directories(path);
    ASSERT_EQ(chown(path.c_str(), popuser_uid(), popuser_gid()), 0) << path;
}

void make_folder(const std::string& folder) {
    for (const char* sub : {"", "/tmp", "/new", "/cur"})
        make_owned_directory(kMaildir + "/" + folder + sub);
}

void write_owned(const std::string& relative, std::size_t size) {
    const std::string path = kMaildir + "/" + relative;
    write_file(path, std::string(size, 'x'), 0600);
    ASSERT_EQ(chown(path.c_str(), popuser_uid(), popuser_gid()), 0) << path;
}

// A message of exactly size bytes.
std::string message_of(std::size_t size) {
    const std::string head = "From: a@example.test\nSubject: quota\n\n";
    return head + std::string(size - head.size() - 1, 'x') + "\n";
}

// The agent's own recount: a copy of the Maildir takes one delivery, and the
// agent writes the totals it counted before adding that message as the first
// line after the quota header. Without keep_maildirsize the copy has no
// "maildirsize" and the agent is given a quota, so it must count; with it,
// the agent is given none and decides itself whether to trust the file (a
// quota differing from the file's would make it count in any case).
Totals agent_recount(bool keep_maildirsize = false) {
    const std::string copy = scratch_dir() + "/agent-copy";
    fs::remove_all(copy);
    fs::copy(kMaildir, copy, fs::copy_options::recursive | fs::copy_options::copy_symlinks);
    if (!keep_maildirsize)
        fs::remove(copy + "/maildirsize");
    RunOptions options;
    options.stdin_mode = RunOptions::Stdin::Pipe;
    options.input = message_of(100);
    std::vector<std::string> command = {kAgent, copy};
    if (!keep_maildirsize)
        command.push_back("1000000000S");
    const auto delivered = run_process(command, options);
    EXPECT_EQ(delivered.status, 0) << delivered.err;
    std::istringstream lines(read_file(copy + "/maildirsize"));
    std::string header;
    Totals totals;
    std::getline(lines, header);
    lines >> totals.bytes >> totals.count;
    return totals;
}

ProcessResult set_mailbox_quota(long long quota) {
    return run_sorvane({"--set-mailbox-disk-quota", "--domain-name=example.test", "--mailname=info",
                        "--disk-quota=" + std::to_string(quota)});
}

ProcessResult mailbox_size() {
    return run_sorvane({"--get-mailbox-size", "--domain-name=example.test", "--mailname=info"});
}

std::vector<std::string> names_in(const std::string& dir) {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(dir))
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

ProcessResult deliver(std::size_t size) {
    return run_delivery_line(kHome, "| /usr/bin/deliverquota ./Maildir", message_of(size));
}

class QuotaTotalsTest : public SeededServerTest {
protected:
    void SetUp() override {
        SeededServerTest::SetUp();
        if (!install_real_deliverquota())
            GTEST_SKIP() << kAgent << " is not installed";
        // Without it the quota header is the quota itself and the mailbox
        // size is the Maildir++ size alone.
        fs::remove_all(kHome + "/@attachments");
    }

    // Sets the quota, then expects the agent's recount in "maildirsize" and
    // from --get-mailbox-size, and that recount to be expected.
    void expect_agreement(const Totals& expected) {
        const Totals agent = agent_recount();
        EXPECT_EQ(agent, expected) << "the agent's recount";
        const auto set = set_mailbox_quota(kQuota);
        EXPECT_EQ(set.status, 0) << set.err;
        EXPECT_EQ(set.err, "");
        EXPECT_EQ(read_file(kMaildir + "/maildirsize"), maildirsize_text(kQuota, agent.bytes, agent.count));
        const auto size = mailbox_size();
        EXPECT_EQ(size.status, 0) << size.err;
        EXPECT_EQ(size.out, std::to_string(agent.bytes));
    }
};

TEST_F(QuotaTotalsTest, FoldersCountWithOrWithoutTheMarker) {
    write_owned(".Spam/cur/1700000001.M1P1.h,S=1000:2,S", 10);
    make_folder(".Archive");  // no "maildirfolder" in it
    write_owned(".Archive/cur/1700000002.M1P1.h,S=2000:2,S", 10);
    write_owned(".Archive/new/1700000003.M1P1.h", 300);
    expect_agreement({kSeeded + 1000 + 2000 + 300, 4});
}

TEST_F(QuotaTotalsTest, TrashedMessagesAreLeftOut) {
    write_owned("cur/1700000001.M1P1.h,S=400:2,ST", 10);
    write_owned("new/1700000002.M1P1.h:2,T", 500);
    write_owned(".Spam/cur/1700000003.M1P1.h,S=700:2,FT", 10);
    write_owned("cur/1700000004.M1P1.h,S=600:2,S", 10);
    write_owned("cur/1700000005.M1P1.h,S=800:2,S:2,T", 10);  // flags end at the ":"
    write_owned("cur/1700000006.M1P1.h,S=900:2,aT", 10);     // and at a small letter
    expect_agreement({kSeeded + 600 + 800 + 900, 4});
}

TEST_F(QuotaTotalsTest, TrashFolderIsLeftOut) {
    write_owned(".Trash/cur/1700000001.M1P1.h,S=5000:2,S", 10);
    write_owned(".Trash/new/1700000002.M1P1.h", 800);
    make_folder(".Trash.Old");  // a folder of its own
    write_owned(".Trash.Old/cur/1700000003.M1P1.h,S=90:2,S", 10);
    expect_agreement({kSeeded + 90, 2});
}

TEST_F(QuotaTotalsTest, SizesInNamesAreReadAsTheAgentReadsThem) {
    write_owned("cur/1700000001.M1P1.h:2,S", 77);            // no size: the file's own
    write_owned("cur/1700000002.M1P1.h,S=12x:2,S", 44);      // the leading digits
    write_owned("cur/1700000003.M1P1.h,S=abc:2,S", 33);      // no digits: 0
    write_owned("cur/1700000004.M1P1.h,S=10,S=20:2,S", 66);  // the last one
    write_owned("cur/1700000005.M1P1.h,S=10,S=:2,S", 55);    // the last one, empty: 0
    write_owned("cur/1700000006.M1P1.h,S=5:2,,S=7", 88);     // none after the ":"
    write_owned("cur/1700000007.M1P1.h:2,,S=9", 99);         // so none here
    write_owned("cur/.1700000008.M1P1.h,S=1000", 10);        // a dot name is no message
    expect_agreement({kSeeded + 77 + 12 + 0 + 20 + 0 + 5 + 99, 8});
}

TEST_F(QuotaTotalsTest, MaildirsizeOf5120BytesOrMoreIsRecounted) {
    write_owned("cur/1700000001.M1P1.h,S=1000:2,S", 10);
    // Fresh, but so long that the agent recounts rather than sums it.
    std::string text = "1000000S,0C\n        9999           9\n";
    while (text.size() < 5120)
        text += "0 0\n";
    write_file(kMaildir + "/maildirsize", text, 0644);
    ASSERT_EQ(chown((kMaildir + "/maildirsize").c_str(), popuser_uid(), popuser_gid()), 0);
    const Totals agent = agent_recount(true);
    EXPECT_EQ(agent, (Totals{kSeeded + 1000, 2}));
    const auto size = mailbox_size();
    EXPECT_EQ(size.status, 0) << size.err;
    EXPECT_EQ(size.out, std::to_string(agent.bytes));
}

TEST_F(QuotaTotalsTest, MaildirsizeJustUnder5120BytesIsSummed) {
    std::string text = "1000000S,0C\n        9999           9\n";
    while (text.size() < 5113)
        text += "0 0\n";
    text += "0   0\n";
    ASSERT_EQ(text.size(), 5119u);
    write_file(kMaildir + "/maildirsize", text, 0644);
    const Totals agent = agent_recount(true);
    EXPECT_EQ(agent, (Totals{9999, 9}));
    EXPECT_EQ(mailbox_size().out, "9999");
}

TEST_F(QuotaTotalsTest, FullMailboxRefusesAMessage) {
    make_folder(".Archive");
    write_owned(".Archive/cur/1700000001.M1P1.h,S=1949:2,S", 10);
    ASSERT_EQ(agent_recount(), (Totals{2000, 2}));
    ASSERT_EQ(set_mailbox_quota(2000).status, 0);
    const auto refused = deliver(900);
    EXPECT_EQ(refused.status, kOverQuota) << refused.err;
    EXPECT_EQ(names_in(kMaildir + "/new"), std::vector<std::string>{kSeededName});
}

TEST_F(QuotaTotalsTest, EmptyMailboxAcceptsAMessage) {
    fs::remove(kMaildir + "/new/" + kSeededName);
    write_owned(".Trash/cur/1700000001.M1P1.h,S=5000:2,S", 10);
    write_owned("cur/1700000002.M1P1.h,S=3000:2,ST", 10);
    ASSERT_EQ(agent_recount(), (Totals{0, 0}));
    ASSERT_EQ(set_mailbox_quota(1000).status, 0);
    const auto accepted = deliver(200);
    EXPECT_EQ(accepted.status, 0) << accepted.err;
    const auto delivered = names_in(kMaildir + "/new");
    ASSERT_EQ(delivered.size(), 1u);
    EXPECT_EQ(fs::file_size(kMaildir + "/new/" + delivered[0]), 200u);
}

// Runs a quota setting and expects it to end at once with message (on
// standard error, repeated on standard output) and status 1.
void expect_refused_at_once(const std::vector<std::string>& args, const std::string& message) {
    const auto start = std::chrono::steady_clock::now();
    const auto result = run_sorvane(args);
    const auto elapsed = std::chrono::steady_clock::now() - start;
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, message + "\n");
    EXPECT_EQ(result.out, message + "\n");
    // A retry loop waits 2 seconds between attempts.
    EXPECT_LT(elapsed, std::chrono::milliseconds(1500));
}

const std::vector<std::string> kSetMailboxQuota = {"--set-mailbox-disk-quota", "--domain-name=example.test",
                                                   "--mailname=info", "--disk-quota=5000"};

TEST_F(QuotaTotalsTest, MissingTmpIsRefusedAtOnce) {
    fs::remove_all(kMaildir + "/tmp");
    expect_refused_at_once(kSetMailboxQuota,
                           "Maildir folder " + kMaildir + " has no tmp directory: No such file or directory");
    EXPECT_FALSE(path_exists(kMaildir + "/maildirsize"));
}

TEST_F(QuotaTotalsTest, MissingTmpIsRefusedAtOnceByTheDomainQuota) {
    fs::remove_all(kMaildir + "/tmp");
    expect_refused_at_once({"--set-domain-disk-quota", "--domain-name=example.test", "--disk-quota=5000",
                            "--mail-addresses=info"},
                           "Maildir folder " + kMaildir + " has no tmp directory: No such file or directory");
    EXPECT_FALSE(path_exists(kMaildir + "/maildirsize"));
}

TEST_F(QuotaTotalsTest, FolderWithoutCurIsRefusedAtOnce) {
    fs::remove_all(kMaildir + "/.Spam/cur");
    expect_refused_at_once(kSetMailboxQuota, "Maildir folder " + kMaildir +
                                                 "/.Spam has no cur directory: No such file or directory");
    EXPECT_FALSE(path_exists(kMaildir + "/maildirsize"));
}

TEST_F(QuotaTotalsTest, MaildirsizeThatIsNotARegularFileIsRefusedAtOnce) {
    const std::string path = kMaildir + "/maildirsize";
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    expect_refused_at_once(kSetMailboxQuota, path + " is not a regular file");
    struct stat st {};
    ASSERT_EQ(lstat(path.c_str(), &st), 0);
    EXPECT_TRUE(S_ISFIFO(st.st_mode));

    fs::remove(path);
    fs::create_directory(path);
    expect_refused_at_once(kSetMailboxQuota, path + " is not a regular file");
    EXPECT_TRUE(fs::is_directory(path));
}

TEST_F(QuotaTotalsTest, MaildirsizeThatIsADirectoryIsRefusedAtOnceByAddMailname) {
    const std::string maildir = "/var/qmail/mailnames/example.test/john/Maildir";
    fs::create_directory(maildir + "/maildirsize");
    expect_refused_at_once({"--add-mailname", "--domain-name=example.test", "--mailname=john", "--disk-quota=4096"},
                           maildir + "/maildirsize is not a regular file");
    EXPECT_TRUE(fs::is_directory(maildir + "/maildirsize"));
}

}  // namespace
}  // namespace sorvane::test
