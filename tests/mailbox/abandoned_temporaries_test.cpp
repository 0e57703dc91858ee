// Temporary maildirsize files left in a Maildir's "tmp" by a writer that was
// killed half-way are removed by the next writer; live writers' files,
// other hosts' files and mail in delivery are left alone.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <set>

#include "mailbox/abandoned_temporaries.h"
#include "mailbox/mailbox_test_support.h"
#include "mailbox/maildirsize_create.h"

namespace sorvane::test {
namespace {

using crelm::mailbox::maildirsize_temporary_writer;

std::string host_name() {
    char name[65] = {};
    gethostname(name, sizeof name - 1);
    return name;
}

// The id of a process that has ended (a child, reaped).
pid_t ended_process() {
    const pid_t child = fork();
    if (child == 0)
        _exit(0);
    int status = 0;
    waitpid(child, &status, 0);
    return child;
}

class AbandonedTemporariesTest : public SandboxTest {
protected:
    void SetUp() override {
        SandboxTest::SetUp();
        maildir = scratch_dir() + "/Maildir";
        make_maildir(maildir, {});
    }

    std::string in_tmp(const std::string& name) const { return maildir + "/tmp/" + name; }

    std::set<std::string> tmp_names() const {
        const auto names = names_in(maildir + "/tmp");
        return {names.begin(), names.end()};
    }

    std::string maildir;
};

TEST_F(AbandonedTemporariesTest, NamesOfThisHostsTemporaryMaildirsizeFilesGiveTheirWriter) {
    long pid = 0;
    EXPECT_TRUE(maildirsize_temporary_writer("1700000000.4242.mx.example-maildirsize", "mx.example", pid));
    EXPECT_EQ(pid, 4242);
    for (const char* other : {"1700000000.4242.other.example-maildirsize", "1700000000.4242.mx.example",
                              "1700000000.M1P2.mx.example-maildirsize", "x.4242.mx.example-maildirsize",
                              ".4242.mx.example-maildirsize", "1700000000..mx.example-maildirsize",
                              "1700000000.0.mx.example-maildirsize", "mx.example-maildirsize"})
        EXPECT_FALSE(maildirsize_temporary_writer(other, "mx.example", pid)) << other;
}

TEST_F(AbandonedTemporariesTest, TheNextWriterRemovesOnlyFilesOfEndedWritersOfThisHost) {
    const std::string host = host_name();
    const std::string dead = "1700000000." + std::to_string(ended_process()) + "." + host + "-maildirsize";
    const std::string live = "1700000001." + std::to_string(getppid()) + "." + host + "-maildirsize";
    const std::string other_host = "1700000002.1." + host + "x-maildirsize";
    const std::string delivery = "1700000003.M1P" + std::to_string(ended_process()) + "." + host;
    for (const std::string& name : {dead, live, other_host, delivery})
        write_file(in_tmp(name), "1000S\n0 0\n");
    // a link with a writer's name is removed itself; what it points at stays
    write_file(scratch_dir() + "/outside", "kept\n");
    const std::string planted = "1700000004." + std::to_string(ended_process()) + "." + host + "-maildirsize";
    ASSERT_EQ(symlink((scratch_dir() + "/outside").c_str(), in_tmp(planted).c_str()), 0);

    ASSERT_TRUE(maildirsize_create(maildir, 0, 0, 5000, 0));
    EXPECT_EQ(tmp_names(), (std::set<std::string>{live, other_host, delivery}));
    EXPECT_EQ(read_file(scratch_dir() + "/outside"), "kept\n");
    EXPECT_EQ(read_file(maildir + "/maildirsize"), "5000S,0C\n           0           0\n");
}

TEST_F(AbandonedTemporariesTest, AMaildirWithoutTmpIsPassedOver) {
    ASSERT_EQ(rmdir((maildir + "/tmp").c_str()), 0);
    const int fd = open(maildir.c_str(), O_RDONLY | O_DIRECTORY);
    ASSERT_GE(fd, 0);
    crelm::mailbox::remove_abandoned_maildirsize_temporaries(fd, host_name());
    close(fd);
    struct stat info {};
    EXPECT_NE(lstat((maildir + "/tmp").c_str(), &info), 0);
}

}  // namespace
}  // namespace sorvane::test
