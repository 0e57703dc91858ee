// --get-mailbox-size through the built binary: digits only, against du and
// the delivery agent's own count on generated Maildirs, and on a tree with
// planted links, FIFOs and device files (neither followed nor opened).
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <filesystem>
#include <sstream>

#include "e2e/mailbox_state.h"

namespace fs = std::filesystem;

namespace sorvane::test {
namespace {

const std::string kHome = "/var/qmail/mailnames/example.test/info";
const std::string kMaildir = kHome + "/Maildir";
const long long kSeededBytes = 51;  // the seeded message

long long apparent_size(const std::string& path) {
    struct stat st {};
    EXPECT_EQ(lstat(path.c_str(), &st), 0) << path;
    return st.st_size;
}

long long du_bytes(const std::string& path) {
    const auto result = run_process({"/usr/bin/du", "-sb", path});
    EXPECT_EQ(result.status, 0) << result.err;
    return std::stoll(result.out);
}

void write_owned(const std::string& path, const std::string& content) {
    write_file(path, content, 0600);
    ASSERT_EQ(chown(path.c_str(), popuser_uid(), popuser_gid()), 0);
}

struct Generated {
    long long bytes = 0;        // every message
    long long trash_bytes = 0;  // those in .Trash
    int trash_count = 0;
};

// Messages in the Maildir and its four folders, every third name without a
// size in it, and a few files in "@attachments".
Generated generate_messages(int count) {
    const char* folders[] = {"", ".Sent", ".Trash", ".Spam", ".Drafts"};
    Generated generated;
    for (int i = 0; i < count; ++i) {
        const std::string folder = folders[i % 5];
        const std::string sub = i % 4 == 0 ? "new" : "cur";
        const std::string body = "Subject: m" + std::to_string(i) + "\n\n" + std::string(100 + (i * 37) % 3000, 'x');
        std::string name = std::to_string(1700000100 + i) + ".M" + std::to_string(i) + "P1.gen";
        if (i % 3 != 0)
            name += ",S=" + std::to_string(body.size());
        if (sub == "cur")
            name += ":2,S";
        write_owned(kMaildir + "/" + folder + (folder.empty() ? "" : "/") + sub + "/" + name, body);
        generated.bytes += static_cast<long long>(body.size());
        if (folder == ".Trash") {
            generated.trash_bytes += static_cast<long long>(body.size());
            ++generated.trash_count;
        }
    }
    for (int i = 0; i < 5; ++i)
        write_owned(kHome + "/@attachments/part-" + std::to_string(i), std::string(500 * (i + 1), 'a'));
    return generated;
}

ProcessResult mailbox_size(const std::vector<std::string>& extra = {}) {
    std::vector<std::string> args = {"--get-mailbox-size", "--domain-name=example.test", "--mailname=info"};
    args.insert(args.end(), extra.begin(), extra.end());
    return run_sorvane(args);
}

class MailboxSizeTest : public SeededServerTest {};

TEST_F(MailboxSizeTest, PrintsOnlyDigitsWithoutANewline) {
    const auto result = mailbox_size();
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, std::to_string(apparent_size(kHome + "/@attachments") + kSeededBytes));
    EXPECT_EQ(result.err, "");
}

TEST_F(MailboxSizeTest, InBlocksCountsOnlyTheAttachmentsInBlocks) {
    write_owned(kHome + "/@attachments/one", std::string(5000, 'a'));
    struct stat dir {};
    struct stat file {};
    ASSERT_EQ(lstat((kHome + "/@attachments").c_str(), &dir), 0);
    ASSERT_EQ(lstat((kHome + "/@attachments/one").c_str(), &file), 0);
    const long long blocks = (dir.st_blocks * 512 + 1023) / 1024 + (file.st_blocks * 512 + 1023) / 1024;
    const auto result = mailbox_size({"--in-blocks"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, std::to_string(blocks + kSeededBytes));
}

TEST_F(MailboxSizeTest, MaildirsizeIsReadWhenItIsThere) {
    write_owned(kMaildir + "/maildirsize", "1000S,0C\n        7000           3\n         500           1\n");
    const auto result = mailbox_size();
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, std::to_string(apparent_size(kHome + "/@attachments") + 7500));
}

TEST_F(MailboxSizeTest, AgreesWithDuAndWithTheDeliveryAgentsOwnCount) {
    if (!install_real_deliverquota())
        GTEST_SKIP() << "/usr/sbin/deliverquota is not installed";
    const Generated generated = generate_messages(400);
    // deliverquota counts the Maildir itself when it finds no maildirsize,
    // then adds the message it delivers.
    const std::string message = "From: a@example.test\nSubject: count\n\nhello\n";
    const auto delivered = run_delivery_line(kHome, "| /usr/bin/deliverquota ./Maildir 1000000000S", message);
    ASSERT_EQ(delivered.status, 0) << delivered.err;
    long long agent_bytes = 0;
    long long agent_count = 0;
    const std::string text = read_file(kMaildir + "/maildirsize");
    std::istringstream lines(text.substr(text.find('\n') + 1));
    long long size = 0;
    long long number = 0;
    while (lines >> size >> number) {
        agent_bytes += size;
        agent_count += number;
    }
    // The agent leaves Trash out of its quota, and so does the mailbox size.
    EXPECT_EQ(agent_count, 402 - generated.trash_count);
    EXPECT_EQ(agent_bytes,
              generated.bytes - generated.trash_bytes + kSeededBytes + static_cast<long long>(message.size()));
    fs::remove(kMaildir + "/maildirsize");

    const auto result = mailbox_size();
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, std::to_string(du_bytes(kHome + "/@attachments") + agent_bytes));
}

TEST_F(MailboxSizeTest, PlantedLinksFifosAndDevicesAreNeitherFollowedNorOpened) {
    // Something big outside the mailbox that a followed link would count.
    const std::string outside = scratch_dir() + "/big";
    write_file(outside, std::string(1 << 20, 'b'));
    fs::create_directories(scratch_dir() + "/bigdir");
    write_file(scratch_dir() + "/bigdir/inner", std::string(1 << 20, 'c'));

    fs::create_symlink(outside, kMaildir + "/cur/1700000200.M1P1.link:2,S");
    ASSERT_EQ(mkfifo((kMaildir + "/new/1700000201.M1P1.fifo").c_str(), 0600), 0);
    ASSERT_EQ(mknod((kMaildir + "/.Spam/cur/1700000202.M1P1.dev:2,S").c_str(), S_IFCHR | 0600, makedev(1, 3)), 0);
    fs::remove_all(kMaildir + "/.Trash");
    fs::create_directory_symlink(scratch_dir() + "/bigdir", kMaildir + "/.Trash");
    fs::create_directory_symlink(scratch_dir() + "/bigdir", kHome + "/@attachments/linked");
    ASSERT_EQ(mkfifo((kHome + "/@attachments/pipe").c_str(), 0600), 0);
    ASSERT_EQ(mknod((kHome + "/@attachments/device").c_str(), S_IFCHR | 0600, makedev(1, 3)), 0);

    const auto result = mailbox_size();
    EXPECT_EQ(result.status, 0) << result.err;
    // Each planted entry counts as what lstat says of it; du does the same
    // for "@attachments" (links not followed, FIFOs and devices 0 bytes).
    const long long maildir = kSeededBytes + apparent_size(kMaildir + "/cur/1700000200.M1P1.link:2,S") +
                              apparent_size(kMaildir + "/new/1700000201.M1P1.fifo") +
                              apparent_size(kMaildir + "/.Spam/cur/1700000202.M1P1.dev:2,S");
    EXPECT_EQ(result.out, std::to_string(du_bytes(kHome + "/@attachments") + maildir));
    EXPECT_LT(std::stoll(result.out), 1 << 20);
}

}  // namespace
}  // namespace sorvane::test
