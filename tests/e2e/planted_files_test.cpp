// What a mail user can plant in its own tree (a FIFO, a hard link to a file
// of root's, its home replaced by a link, a very deep chain of directories,
// a huge sparse ".qmail") against every command that works there, through
// the built program: no command hangs (ctest's timeout guards), a command
// that must refuse says why and fails, and the planted thing and what it
// points at stay as they were.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <map>
#include <regex>

#include "e2e/mailbox_state.h"

namespace sorvane::test {
namespace {

const std::string kHome = kMailnamesDir + "/example.test/info";
const std::string kDotQmail = kHome + "/.qmail";
const std::string kRootFile = "/var/qmail/root-only";
const std::string kRootText = "root only\n";
const std::string kRootDir = "/var/qmail/root-dir";
constexpr int kChainDepth = 400;
constexpr off_t kHugeSize = off_t{1} << 30;

struct Command {
    std::string name;
    std::vector<std::string> args;
    bool with_document;  // the seeded session document on standard input
};

const std::vector<Command>& commands() {
    static const std::vector<Command> all = {
        {"add-mailbox", {"--add-mailbox", "--domain-name=example.test", "--mailname=info"}, true},
        {"remove-mailbox", {"--remove-mailbox", "--domain-name=example.test", "--mailname=info"}, true},
        {"set-password", {"--set-password", "--domain-name=example.test", "--mailname=info"}, true},
        {"rename-mailname",
         {"--rename-mailname", "--domain-name=example.test", "--old-mailname=info", "--new-mailname=renamed"},
         true},
        {"remove-mailname", {"--remove-mailname", "--domain-name=example.test", "--mailname=info"}, true},
        {"get-mailbox-size", {"--get-mailbox-size", "--domain-name=example.test", "--mailname=info"}, false},
        {"set-mailbox-disk-quota",
         {"--set-mailbox-disk-quota", "--domain-name=example.test", "--mailname=info", "--disk-quota=1048576"},
         false},
        {"add-alias", {"--add-alias", "--domain-name=example.test", "--mailname=info", "--alias=newalias"}, true},
        {"remove-alias", {"--remove-alias", "--domain-name=example.test", "--mailname=info", "--alias=sales"}, true},
    };
    return all;
}

// Runs a command; launcher (say prlimit) goes before the program.
ProcessResult run_command(const Command& command, const std::vector<std::string>& launcher = {}) {
    std::vector<std::string> argv = launcher;
    argv.push_back(sorvane_path());
    argv.insert(argv.end(), command.args.begin(), command.args.end());
    RunOptions options;
    options.env = {"QVT_PASSWORD=pl4nted"};
    if (command.with_document) {
        argv.push_back("--wait-stdin");
        options.stdin_mode = RunOptions::Stdin::Pipe;
        options.input = seeded_document();
    }
    return run_process(argv, options);
}

struct Outcome {
    int status;
    std::string out;
    std::string err;
};

// The process id in log lines ("sorvane[123]: ") written as "PID".
std::string without_pids(const std::string& text) {
    static const std::regex kPid("sorvane\\[[0-9]+\\]");
    return std::regex_replace(text, kPid, "sorvane[PID]");
}

void expect_outcome(const ProcessResult& result, const Outcome& expected) {
    EXPECT_EQ(result.status, expected.status);
    EXPECT_EQ(without_pids(result.out), expected.out);
    EXPECT_EQ(without_pids(result.err), expected.err);
}

int remove_tree_by_shell(const std::string& path) {
    return run_process({"/bin/rm", "-rf", path}).status;
}

void give_to_popuser(const std::string& path) {
    ASSERT_EQ(lchown(path.c_str(), popuser_uid(), popuser_gid()), 0) << path;
}

// Every regular file below the mail names directory that holds text.
std::vector<std::string> mail_files_holding(const std::string& text) {
    std::vector<std::string> found;
    for (const std::string& entry : list_tree(kMailnamesDir)) {
        const std::string path = kMailnamesDir + "/" + entry;
        struct stat info {};
        if (lstat(path.c_str(), &info) != 0 || !S_ISREG(info.st_mode) || info.st_nlink > 1 || info.st_size > 65536)
            continue;
        if (read_file(path).find(text) != std::string::npos)
            found.push_back(entry);
    }
    return found;
}

class PlantedFilesTest : public SandboxTest {
protected:
    // A fresh seeded server for each command, with the mailbox delivery
    // agent in place.
    void fresh_server() {
        reset_sandbox();
        write_file("/etc/qvt/qvt.conf", "", 0644);
        seed_server_state();
        install_fake_deliverquota();
    }

    // Runs every command on a fresh server with plant() done first, checks
    // its outcome and then untouched().
    void each_command(const std::function<void()>& plant, const std::map<std::string, Outcome>& outcomes,
                      const std::function<void(const std::string&)>& untouched,
                      const std::vector<std::string>& launcher = {}) {
        for (const Command& command : commands()) {
            SCOPED_TRACE(command.name);
            fresh_server();
            plant();
            const ProcessResult result = run_command(command, launcher);
            expect_outcome(result, outcomes.count(command.name) != 0 ? outcomes.at(command.name) : Outcome{0, "", ""});
            untouched(command.name);
        }
    }
};

void expect_root_file_untouched() {
    EXPECT_EQ(read_file(kRootFile), kRootText);
    const FileInfo info = file_info(kRootFile);
    EXPECT_EQ(info.uid, 0U);
    EXPECT_EQ(info.gid, 0U);
    EXPECT_EQ(info.mode, 0600U);
    EXPECT_EQ(mail_files_holding("root only"), std::vector<std::string>{});
}

const std::string kRenamedDotQmail = kMailnamesDir + "/example.test/renamed/.qmail";
const std::string kSeededSize = "91";

// What the delivery line's removal says when it refuses ".qmail" (reason on
// both streams; the log line on standard error only).
Outcome delivery_refused(const std::string& reason, int times) {
    Outcome outcome{1, "", ""};
    for (int i = 0; i < times; ++i) {
        outcome.out += reason;
        outcome.err += reason + "sorvane[PID]: Unable to remove old delivery strings from '" + kDotQmail + "'\n";
    }
    return outcome;
}

// The rename reports a ".qmail" it cannot edit and still succeeds, as for
// any failure of that last step.
Outcome rename_refused(const std::string& reason) {
    const std::string text = reason + "Unable to change mailname in dot-qmail in " + kRenamedDotQmail + "\n";
    return {0, text, text};
}

// The outcomes of the commands that edit ".qmail" when they refuse it
// (reason names the file: path given), the others succeeding.
std::map<std::string, Outcome> dot_qmail_refused(const std::function<std::string(const std::string&)>& reason) {
    return {
        {"add-mailbox", delivery_refused(reason(kDotQmail), 2)},
        {"remove-mailbox", delivery_refused(reason(kDotQmail), 1)},
        {"rename-mailname", rename_refused(reason(kRenamedDotQmail))},
        {"get-mailbox-size", {0, kSeededSize, ""}},
    };
}

std::string invalid_argument(const std::string& path) {
    return "Unable to open file " + path + ": Invalid argument\n\nSystem error 22: Invalid argument\n";
}

std::string several_links(const std::string& path) {
    return "Refused to edit file " + path + ": it has more than one hard link\n";
}

std::string too_large(const std::string& path) {
    return "Refused to edit file " + path + ": it is larger than 1048576 bytes\n";
}

TEST_F(PlantedFilesTest, AFifoAtDotQmailIsRefusedWithoutBlocking) {
    const auto plant = [] {
        ASSERT_EQ(unlink(kDotQmail.c_str()), 0);
        ASSERT_EQ(mkfifo(kDotQmail.c_str(), 0600), 0);
        give_to_popuser(kDotQmail);
    };
    std::map<std::string, Outcome> outcomes = dot_qmail_refused(invalid_argument);
    // The rename's own message leaves the system error out.
    outcomes["rename-mailname"] = rename_refused("Unable to open file " + kRenamedDotQmail + ": Invalid argument\n");
    each_command(plant, outcomes, [](const std::string& command) {
        if (command == "remove-mailname" || command == "rename-mailname")
            return;
        EXPECT_EQ(file_info(kDotQmail).type, '?');
        EXPECT_EQ(file_info(kDotQmail).uid, popuser_uid());
    });
}

TEST_F(PlantedFilesTest, AHardLinkToARootFileAtDotQmailIsNeitherReadNorChangedNorGivenAway) {
    const auto plant = [] {
        write_file(kRootFile, kRootText, 0600);
        ASSERT_EQ(unlink(kDotQmail.c_str()), 0);
        ASSERT_EQ(link(kRootFile.c_str(), kDotQmail.c_str()), 0);
    };
    const std::map<std::string, Outcome> outcomes = dot_qmail_refused(several_links);
    each_command(plant, outcomes, [](const std::string&) { expect_root_file_untouched(); });
}

// A directory only root may read, with mail in it, at kRootDir; its entries
// with their owners and modes.
std::vector<std::string> root_dir_picture() {
    std::vector<std::string> picture;
    for (const std::string& entry : list_tree(kRootDir)) {
        const FileInfo info = file_info(kRootDir + "/" + entry);
        picture.push_back(entry + " " + std::to_string(info.uid) + " " + std::to_string(info.mode));
    }
    return picture;
}

void make_root_dir() {
    ASSERT_EQ(mkdir(kRootDir.c_str(), 0700), 0);
    for (const std::string dir : {"/Maildir", "/Maildir/cur", "/Maildir/new", "/@attachments"})
        ASSERT_EQ(mkdir((kRootDir + dir).c_str(), 0700), 0);
    write_file(kRootDir + "/Maildir/cur/1.root,S=70000", std::string(70000, 'r'), 0600);
    write_file(kRootDir + "/@attachments/big", std::string(50000, 'a'), 0600);
}

TEST_F(PlantedFilesTest, AHomeReplacedByALinkIsNotFollowed) {
    std::vector<std::string> before;
    const auto plant = [&] {
        make_root_dir();
        before = root_dir_picture();
        ASSERT_EQ(remove_tree_by_shell(kHome), 0);
        ASSERT_EQ(symlink(kRootDir.c_str(), kHome.c_str()), 0);
        give_to_popuser(kHome);
    };
    const std::string loop = "Unable to open file " + kDotQmail +
                             ": Too many levels of symbolic links\n\nSystem error 40: Too many levels of symbolic links\n";
    const std::string sized = "Unable to measure size of " + kHome +
                              "//@attachments\nSystem error 40: Too many levels of symbolic links\n"
                              "Maildir subfolder 'cur' stat failed\nUnable to calculate Maildir++ size: Input/output error\n";
    const std::string quota = "unable to change to mbox folder " + kHome + ": Not a directory\n";
    const std::map<std::string, Outcome> outcomes = {
        {"add-mailbox", delivery_refused(loop, 2)},
        {"remove-mailbox", delivery_refused(loop, 1)},
        {"rename-mailname",
         rename_refused("Unable to open file " + kRenamedDotQmail + ": Too many levels of symbolic links\n")},
        {"get-mailbox-size", {0, sized + "0", sized}},
        {"set-mailbox-disk-quota", {1, quota, quota}},
    };
    each_command(plant, outcomes, [&](const std::string&) {
        EXPECT_EQ(root_dir_picture(), before);
        EXPECT_EQ(file_info(kRootDir).uid, 0U);
        EXPECT_EQ(file_info(kRootDir).mode, 0700U);
    });
}

// A chain of directories kChainDepth deep in the mail name's "@attachments",
// as a mail user can make it.
void make_chain() {
    int dir = open((kHome + "/@attachments").c_str(), O_RDONLY | O_DIRECTORY);
    ASSERT_GE(dir, 0);
    for (int level = 0; level < kChainDepth; ++level) {
        ASSERT_EQ(mkdirat(dir, "d", 0700), 0);
        ASSERT_EQ(fchownat(dir, "d", popuser_uid(), popuser_gid(), AT_SYMLINK_NOFOLLOW), 0);
        const int below = openat(dir, "d", O_RDONLY | O_DIRECTORY);
        close(dir);
        dir = below;
        ASSERT_GE(dir, 0);
    }
    close(dir);
}

// Each command runs with 64 descriptors at most: a walk that kept one or
// more descriptors per level would run out.
TEST_F(PlantedFilesTest, ADeepDirectoryChainIsWalkedWithFewDescriptors) {
    // Each of the 400 directories counts its own size.
    const std::map<std::string, Outcome> outcomes = {{"get-mailbox-size", {0, "24091", ""}}};
    each_command(make_chain, outcomes, [](const std::string& command) {
        if (command == "remove-mailname") {
            EXPECT_FALSE(path_exists(kHome));
        }
    }, {"/usr/bin/prlimit", "--nofile=64:64"});
}

TEST_F(PlantedFilesTest, AHugeSparseDotQmailIsRefusedUnread) {
    const auto plant = [] {
        write_file(kDotQmail, kSeededQmail, 0600);
        give_to_popuser(kDotQmail);
        ASSERT_EQ(truncate(kDotQmail.c_str(), kHugeSize), 0);
    };
    const std::map<std::string, Outcome> outcomes = dot_qmail_refused(too_large);
    each_command(plant, outcomes, [](const std::string& command) {
        if (command == "remove-mailname")
            return;
        const std::string path = command == "rename-mailname" ? kMailnamesDir + "/example.test/renamed/.qmail" : kDotQmail;
        struct stat info {};
        ASSERT_EQ(lstat(path.c_str(), &info), 0);
        EXPECT_EQ(info.st_size, kHugeSize);
        EXPECT_EQ(info.st_uid, popuser_uid());
        std::ifstream file(path);
        std::string first(kSeededQmail.size(), '\0');
        file.read(first.data(), static_cast<std::streamsize>(first.size()));
        EXPECT_EQ(first, kSeededQmail);
        EXPECT_EQ(temporaries_beside(path), std::vector<std::string>{});
    });
}

}  // namespace
}  // namespace sorvane::test
