// A delivery agent reads and extends the maildirsize that sorvane wrote.
#include <filesystem>

#include "mailbox/mailbox_test_support.h"
#include "mailbox/maildir_size.h"
#include "mailbox/maildirsize_read.h"
#include "mailbox/message_size.h"

namespace fs = std::filesystem;

namespace sorvane::test {
namespace {

const char* const kDeliverquota = "/usr/sbin/deliverquota";
// deliverquota's exit status for a message over quota (EX_NOPERM).
constexpr int kOverQuota = 77;

class DeliverquotaPeerTest : public SandboxTest {
protected:
    void SetUp() override {
        SandboxTest::SetUp();
        if (!path_exists(kDeliverquota))
            GTEST_SKIP() << kDeliverquota << " is not installed";
        mailbox = make_mailbox("example.test", "info");
        fs::remove_all(mailbox + "/@attachments");
        maildir = mailbox + "/Maildir";
    }

    ProcessResult deliver(std::size_t body_size) {
        RunOptions options;
        options.stdin_mode = RunOptions::Stdin::Pipe;
        options.input = "From: a@example.test\nSubject: test\n\n" + std::string(body_size, 'x') + "\n";
        return run_process({kDeliverquota, maildir}, options);
    }

    std::string mailbox;
    std::string maildir;
};

TEST_F(DeliverquotaPeerTest, MessageOverTheQuotaIsRefusedAndOneThatFitsIsAccepted) {
    ASSERT_TRUE(maildir_size("example.test", "info", 5000));
    ASSERT_EQ(read_file(maildir + "/maildirsize"), "5000S,0C\n           0           0\n");

    const auto refused = deliver(10000);
    EXPECT_EQ(refused.status, kOverQuota) << refused.err;
    EXPECT_TRUE(names_in(maildir + "/new").empty());

    const auto accepted = deliver(100);
    ASSERT_EQ(accepted.status, 0) << accepted.err;
    const auto delivered = names_in(maildir + "/new");
    ASSERT_EQ(delivered.size(), 1u);
    const auto size = crelm::mailbox::size_from_message_name(delivered[0]);
    ASSERT_TRUE(size.has_value()) << delivered[0];
    EXPECT_EQ(*size, static_cast<long long>(fs::file_size(maildir + "/new/" + delivered[0])));

    const std::string text = read_file(maildir + "/maildirsize");
    const std::string ours = "5000S,0C\n           0           0\n";
    ASSERT_EQ(text.substr(0, ours.size()), ours);
    EXPECT_NE(text.size(), ours.size()) << "no delta line appended";

    long long bytes = 0;
    long long count = 0;
    ASSERT_TRUE(maildirsize_read(maildir, bytes, count, Recount::Never));
    EXPECT_EQ(bytes, *size);
    EXPECT_EQ(count, 1);
}

TEST_F(DeliverquotaPeerTest, ZeroQuotaRefusesEveryMessage) {
    ASSERT_TRUE(maildir_size("example.test", "info", 0));
    EXPECT_EQ(deliver(1).status, kOverQuota);
    EXPECT_TRUE(names_in(maildir + "/new").empty());
}

TEST_F(DeliverquotaPeerTest, NoLimitAcceptsALargeMessage) {
    ASSERT_TRUE(maildir_size("example.test", "info", -1));
    EXPECT_EQ(deliver(200000).status, 0);
    EXPECT_EQ(names_in(maildir + "/new").size(), 1u);
}

}  // namespace
}  // namespace sorvane::test
