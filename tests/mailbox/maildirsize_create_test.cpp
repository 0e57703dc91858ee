// Writing maildirsize atomically: format, owner, temporary names, stale
// marking when mail arrives during the count, and cleanup on failure.
#include <dirent.h>
#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <sys/inotify.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <chrono>
#include <ctime>
#include <filesystem>

#include "mailbox/mailbox_test_support.h"
#include "mailbox/maildirsize_create.h"
#include "mailbox/maildirsize_read.h"

namespace fs = std::filesystem;

namespace sorvane::test {
namespace {

class MaildirsizeCreateTest : public SandboxTest {
protected:
    void SetUp() override {
        SandboxTest::SetUp();
        maildir = scratch_dir() + "/Maildir";
        make_maildir(maildir, {".Spam", ".Sent"});
    }

    std::string maildirsize() const { return maildir + "/maildirsize"; }

    std::string maildir;
};

std::string host_name() {
    char name[65] = {};
    gethostname(name, sizeof name - 1);
    return name;
}

TEST_F(MaildirsizeCreateTest, WritesHeaderAndCountedTotalsOwnedByTheGivenUser) {
    write_message(maildir + "/cur/1700000000.M1P2.host,S=2048:2,S", 10);
    write_message(maildir + "/.Spam/new/1700000001.M1P2.host", 300);
    ASSERT_TRUE(maildirsize_create(maildir, popuser_uid(), popuser_gid(), 1048576, 0));
    EXPECT_EQ(read_file(maildirsize()), "1048576S,0C\n        2348           2\n");
    const auto info = file_info(maildirsize());
    EXPECT_EQ(info.uid, popuser_uid());
    EXPECT_EQ(info.gid, popuser_gid());
    const mode_t mask = umask(0);
    umask(mask);
    EXPECT_EQ(info.mode, 0644u & ~mask);
    EXPECT_EQ(info.type, 'f');
    EXPECT_TRUE(names_in(maildir + "/tmp").empty());
}

TEST_F(MaildirsizeCreateTest, ReplacesAnOlderFile) {
    write_file(maildirsize(), "5S\n100 1\n");
    ASSERT_TRUE(maildirsize_create(maildir, 0, 0, 0, 0));
    EXPECT_EQ(read_file(maildirsize()), "0S,0C\n           0           0\n");
}

TEST_F(MaildirsizeCreateTest, FileOfAnIdleMailboxIsNotStale) {
    // No folder of the mailbox has changed for a while.
    const timespec hour_ago[2] = {{0, UTIME_OMIT}, {std::time(nullptr) - 3600, 0}};
    for (const char* folder : {"/cur", "/new", "/.Spam/cur", "/.Spam/new", "/.Sent/cur", "/.Sent/new"})
        ASSERT_EQ(utimensat(AT_FDCWD, (maildir + folder).c_str(), hour_ago, 0), 0);
    const time_t before = std::time(nullptr);
    ASSERT_TRUE(maildirsize_create(maildir, 0, 0, 1, 0));
    EXPECT_GE(mtime_of(maildirsize()), before);
}

TEST_F(MaildirsizeCreateTest, TemporaryNameCarriesTimePidAndHostWithoutSlashes) {
    const auto result = run_in_child([&] {
        if (unshare(CLONE_NEWUTS) != 0 || sethostname("mail/host", 9) != 0)
            return 99;
        const int watch = inotify_init1(IN_NONBLOCK);
        if (watch < 0 || inotify_add_watch(watch, (maildir + "/tmp").c_str(), IN_CREATE) < 0)
            return 98;
        const time_t before = std::time(nullptr);
        if (!maildirsize_create(maildir, 0, 0, 1, 0))
            return 97;
        const time_t after = std::time(nullptr);
        alignas(inotify_event) char events[4096];
        const ssize_t got = read(watch, events, sizeof events);
        if (got <= 0)
            return 96;
        const auto* event = reinterpret_cast<const inotify_event*>(events);
        const std::string pid_and_host = "." + std::to_string(getpid()) + ".mail_host-maildirsize";
        for (time_t t = before; t <= after; ++t)
            if (event->name == std::to_string(t) + pid_and_host)
                return 0;
        std::printf("%s\n", event->name);
        return 1;
    });
    EXPECT_EQ(result.status, 0) << result.out;
    EXPECT_TRUE(names_in(maildir + "/tmp").empty());
}

TEST_F(MaildirsizeCreateTest, PlantedLinkIsReplacedAndItsTargetUntouched) {
    const std::string target = scratch_dir() + "/precious";
    write_file(target, "keep me\n");
    fs::create_symlink(target, maildirsize());
    ASSERT_TRUE(maildirsize_create(maildir, popuser_uid(), popuser_gid(), 1, 0));
    EXPECT_EQ(file_info(maildirsize()).type, 'f');
    EXPECT_EQ(read_file(target), "keep me\n");
    EXPECT_EQ(file_info(target).uid, 0u);
}

TEST_F(MaildirsizeCreateTest, UnrecognizedEntryIsReported) {
    write_file(maildir + "/.junk", "");
    testing::internal::CaptureStderr();
    ASSERT_TRUE(maildirsize_create(maildir, 0, 0, 1, 0));
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "Bad/unrecognized entry .junk within Maildir folder " + maildir + "\n");
}

TEST_F(MaildirsizeCreateTest, FiveTakenTemporaryNamesEndWithTheAttemptsMessage) {
    // Every name the writer can choose in the next twenty seconds is taken.
    const time_t now = std::time(nullptr);
    std::vector<std::string> taken;
    for (time_t t = now; t < now + 20; ++t) {
        taken.push_back(std::to_string(t) + "." + std::to_string(getpid()) + "." + host_name() + "-maildirsize");
        write_file(maildir + "/tmp/" + taken.back(), "someone else's\n");
    }
    const auto start = std::chrono::steady_clock::now();
    testing::internal::CaptureStderr();
    errno = 0;
    EXPECT_FALSE(maildirsize_create(maildir, 0, 0, 1, 0));
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "Maximal allowed number of attempts to create a maildirsize file exceeded\n");
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::seconds(8));
    EXPECT_FALSE(path_exists(maildirsize()));
    std::sort(taken.begin(), taken.end());
    EXPECT_EQ(names_in(maildir + "/tmp"), taken);
    for (const auto& name : taken)
        EXPECT_EQ(read_file(maildir + "/tmp/" + name), "someone else's\n");
}

TEST_F(MaildirsizeCreateTest, LinkedTmpIsNotWrittenThrough) {
    const std::string elsewhere = scratch_dir() + "/elsewhere";
    fs::create_directory(elsewhere);
    fs::remove_all(maildir + "/tmp");
    fs::create_directory_symlink(elsewhere, maildir + "/tmp");
    testing::internal::CaptureStderr();
    EXPECT_FALSE(maildirsize_create(maildir, 0, 0, 1, 0));
    EXPECT_EQ(errno, ENOTDIR);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "Maildir folder " + maildir + " has no tmp directory: Not a directory\n");
    EXPECT_TRUE(names_in(elsewhere).empty());
    EXPECT_FALSE(path_exists(maildirsize()));
}

// maildir reached through "./" steps so that its path is length bytes long
// or just under.
std::string padded_path(const std::string& maildir, std::size_t length) {
    std::string padding;
    while (padding.size() + maildir.size() + 2 <= length)
        padding += "./";
    return padding + maildir;
}

TEST_F(MaildirsizeCreateTest, CountFailureLeavesNoTemporaryFile) {
    // The Maildir's own folders fit the path buffer, its subfolders' do not:
    // the count fails once the temporary file is made.
    ASSERT_EQ(chdir(scratch_dir().c_str()), 0);
    const std::string long_maildir = padded_path("Maildir", 4090);
    ASSERT_LT(long_maildir.size() + 4, 4096u);
    testing::internal::CaptureStderr();
    errno = 0;
    EXPECT_FALSE(maildirsize_create(long_maildir, 0, 0, 1, 0));
    EXPECT_EQ(errno, ENAMETOOLONG);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "Maildir subfolder 'cur' name too long to fit the allowed buffer\n");
    EXPECT_TRUE(names_in(maildir + "/tmp").empty());
    EXPECT_FALSE(path_exists(maildirsize()));
}

// Expects maildirsize_create to fail at once with message and error, and to
// leave the Maildir without a maildirsize and with an empty tmp.
void expect_refused_at_once(const std::string& maildir, const std::string& message, int error) {
    const auto start = std::chrono::steady_clock::now();
    testing::internal::CaptureStderr();
    errno = 0;
    EXPECT_FALSE(maildirsize_create(maildir, 0, 0, 1, 0));
    EXPECT_EQ(errno, error);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), message + "\n");
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
}

TEST_F(MaildirsizeCreateTest, MissingTmpCurOrNewOfTheMaildirIsRefusedAtOnce) {
    for (const std::string which : {"tmp", "cur", "new"}) {
        fs::rename(maildir + "/" + which, scratch_dir() + "/kept");
        expect_refused_at_once(
            maildir, "Maildir folder " + maildir + " has no " + which + " directory: No such file or directory",
            ENOENT);
        EXPECT_FALSE(path_exists(maildirsize()));
        fs::rename(scratch_dir() + "/kept", maildir + "/" + which);
    }
}

TEST_F(MaildirsizeCreateTest, SubfolderWithoutCurOrNewIsRefusedAtOnce) {
    fs::remove_all(maildir + "/.Spam/cur");
    write_file(maildir + "/.Spam/cur", "");
    expect_refused_at_once(maildir, "Maildir folder " + maildir + "/.Spam has no cur directory: Not a directory",
                           ENOTDIR);
    fs::remove(maildir + "/.Spam/cur");
    fs::create_directory(maildir + "/.Spam/cur");
    make_maildir(maildir + "/.Trash");
    fs::remove_all(maildir + "/.Trash/new");
    expect_refused_at_once(
        maildir, "Maildir folder " + maildir + "/.Trash has no new directory: No such file or directory", ENOENT);
    EXPECT_TRUE(names_in(maildir + "/tmp").empty());
    EXPECT_FALSE(path_exists(maildirsize()));
}

TEST_F(MaildirsizeCreateTest, MaildirsizeThatIsNoRegularFileIsRefusedAtOnce) {
    ASSERT_EQ(mkfifo(maildirsize().c_str(), 0600), 0);
    expect_refused_at_once(maildir, maildirsize() + " is not a regular file", EINVAL);
    EXPECT_TRUE(fs::is_fifo(maildirsize()));
    fs::remove(maildirsize());
    fs::create_directory(maildirsize());
    expect_refused_at_once(maildir, maildirsize() + " is not a regular file", EINVAL);
    EXPECT_TRUE(fs::is_directory(maildirsize()));
    EXPECT_TRUE(names_in(maildir + "/tmp").empty());
}

TEST_F(MaildirsizeCreateTest, RelativeMaildirIsNamedByItsAbsolutePath) {
    ASSERT_EQ(chdir(scratch_dir().c_str()), 0);
    fs::remove_all(maildir + "/tmp");
    expect_refused_at_once("./Maildir",
                           "Maildir folder " + maildir + " has no tmp directory: No such file or directory", ENOENT);
}

TEST_F(MaildirsizeCreateTest, TemporaryFileThatCannotBeMadeIsNotTriedAgain) {
    // tmp stays a directory but takes no new file.
    const std::string tmp = maildir + "/tmp";
    ASSERT_EQ(mount(tmp.c_str(), tmp.c_str(), nullptr, MS_BIND, nullptr), 0) << std::strerror(errno);
    ASSERT_EQ(mount(nullptr, tmp.c_str(), nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr), 0)
        << std::strerror(errno);
    const auto start = std::chrono::steady_clock::now();
    testing::internal::CaptureStderr();
    errno = 0;
    EXPECT_FALSE(maildirsize_create(maildir, 0, 0, 1, 0));
    EXPECT_EQ(errno, EROFS);
    const std::string err = testing::internal::GetCapturedStderr();
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
    const std::string prefix = "Unable to create " + tmp + "/";
    const std::string suffix = "." + std::to_string(getpid()) + "." + host_name() +
                               "-maildirsize: Read-only file system\n";
    EXPECT_TRUE(err.starts_with(prefix) && err.ends_with(suffix)) << err;
    EXPECT_EQ(err.size(), prefix.size() + std::to_string(std::time(nullptr)).size() + suffix.size()) << err;
    EXPECT_FALSE(path_exists(maildirsize()));
    ASSERT_EQ(umount(tmp.c_str()), 0);
}

TEST_F(MaildirsizeCreateTest, WriteFailureLeavesNoTemporaryFile) {
    write_message(maildir + "/cur/a,S=123456789:2,", 0);
    const auto result = run_in_child([&] {
        // Files may not grow beyond 40 bytes: the 49 bytes of maildirsize
        // fail with EFBIG, while the message itself still fits its capture.
        signal(SIGXFSZ, SIG_IGN);
        const rlimit limit{40, 40};
        setrlimit(RLIMIT_FSIZE, &limit);
        return maildirsize_create(maildir, 0, 0, 9223372036854775807LL, 0) ? 0 : errno;
    });
    EXPECT_EQ(result.status, EFBIG);
    EXPECT_EQ(result.err, "unable to write data to file\n");
    EXPECT_EQ(result.out, "unable to write data to file\n");
    EXPECT_TRUE(names_in(maildir + "/tmp").empty());
    EXPECT_FALSE(path_exists(maildirsize()));
}

TEST_F(MaildirsizeCreateTest, MissingMaildirFails) {
    testing::internal::CaptureStderr();
    EXPECT_FALSE(maildirsize_create(scratch_dir() + "/none", 0, 0, 1, 0));
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "Unable to open Maildir folder " + scratch_dir() + "/none: No such file or directory\n");
}

// Whether process pid has a descriptor open on path.
bool has_open(pid_t pid, const std::string& path) {
    const std::string fd_dir = "/proc/" + std::to_string(pid) + "/fd";
    DIR* dir = opendir(fd_dir.c_str());
    if (dir == nullptr)
        return false;
    bool found = false;
    while (const dirent* entry = readdir(dir)) {
        char target[4096];
        const ssize_t n = readlinkat(dirfd(dir), entry->d_name, target, sizeof target);
        if (n > 0 && std::string(target, static_cast<std::size_t>(n)) == path)
            found = true;
    }
    closedir(dir);
    return found;
}

// A second process delivers a message into new/ as soon as the writer has
// the big cur/ folder open for counting, i.e. while the count is running.
pid_t deliver_during_count(const std::string& maildir) {
    const pid_t counter = getpid();
    const pid_t pid = fork();
    if (pid != 0)
        return pid;
    while (!has_open(counter, maildir + "/cur"))
        if (access((maildir + "/maildirsize").c_str(), F_OK) == 0)
            _exit(1);  // the count ended before the delivery could happen
    const std::string message = maildir + "/new/1800000000.M9P9.host,S=5";
    FILE* file = std::fopen(message.c_str(), "w");
    _exit(file != nullptr && std::fclose(file) == 0 ? 0 : 2);
}

TEST_F(MaildirsizeCreateTest, MailArrivingDuringTheCountMakesTheFileStale) {
    // Names without a size: each one is examined, so the count takes a while.
    for (int i = 0; i < 40000; ++i)
        write_file(maildir + "/cur/" + std::to_string(i), "");
    const pid_t deliverer = deliver_during_count(maildir);
    const time_t before = std::time(nullptr);
    const bool written = maildirsize_create(maildir, 0, 0, 1000, 0);
    const time_t after = std::time(nullptr);
    int status = 0;
    waitpid(deliverer, &status, 0);
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "no delivery during the count";
    ASSERT_TRUE(written);
    struct stat st;
    ASSERT_EQ(lstat(maildirsize().c_str(), &st), 0);
    EXPECT_GE(st.st_mtime, before - 960);
    EXPECT_LE(st.st_mtime, after - 960);
    EXPECT_GE(st.st_atime, before);
    EXPECT_TRUE(path_exists(maildir + "/new/1800000000.M9P9.host,S=5"));
}

TEST_F(MaildirsizeCreateTest, WrittenFileIsReadBack) {
    write_message(maildir + "/cur/a,S=100:2,", 0);
    ASSERT_TRUE(maildirsize_create(maildir, 0, 0, 5000, 0));
    write_message(maildir + "/cur/b,S=1:2,", 0);
    long long bytes = 0, count = 0;
    ASSERT_TRUE(maildirsize_read(maildir, bytes, count, Recount::Never));
    EXPECT_EQ(bytes, 100);
    EXPECT_EQ(count, 1);
}

}  // namespace
}  // namespace sorvane::test
