// --wait-stdin through the binary: the document on standard input is read and
// checked before the command goes on, and the command works with what it
// describes.
#include "e2e/domain_test_support.h"
#include "e2e/server_state.h"
#include "support/sandbox.h"

namespace sorvane::test {
namespace {

const std::string kDocument =
    R"({"domain": {"name": "example.test", "dom_aliases": ["alias.test"],
        "mails": [{"name": "info", "mbox_quota": 2, "mbox_quota_unit": "KB", "aliases": ["sales"]}]},
        "certificates": [{"name": "example.test", "certfile": "/etc/ssl/example.pem"}]})";

const std::string kReadFailure =
    "Fatal error: std::runtime_error(Failed to read and parse session mail data from STDIN. See mail log for "
    "details.)\n";

class WaitStdinTest : public SandboxTest {
protected:
    void SetUp() override {
        SandboxTest::SetUp();
        seed_server_state();
    }
};

TEST_F(WaitStdinTest, AcceptedDocumentLetsTheCommandGoOn) {
    expect_silent_success(run_sorvane_with_input({"--add-domain", "--domain-name=example.test", "--wait-stdin"},
                                                 kDocument));
    // The document's mail name and quota reached the quota store.
    EXPECT_EQ(quota_rows(), quota_row(kDomain, "box", "5242880B") + quota_row(kDomain, "info", "2048B") +
                                quota_row(kDomain, "john", "0B") + quota_row(kNeighbour, "info", "2097152B"));

    expect_silent_success(run_sorvane_with_input({"--remove-alias", "--domain-name=example.test", "--mailname=info",
                                                  "--alias=sales", "--wait-stdin"},
                                                 kDocument));
    EXPECT_EQ(read_file("/var/qmail/users/assign").find("=example.test-sales:"), std::string::npos);

    expect_silent_success(run_sorvane_with_input({"--set-mailbox-disk-quota", "--domain-name=example.test",
                                                  "--mailname=info", "--disk-quota=10240", "--wait-stdin"},
                                                 kDocument));
    EXPECT_EQ(quota_rows(), quota_row(kDomain, "box", "5242880B") + quota_row(kDomain, "info", "10240B") +
                                quota_row(kDomain, "john", "0B") + quota_row(kNeighbour, "info", "2097152B"));
}

TEST_F(WaitStdinTest, RefusedDocumentEndsTheCommandWithTheParseErrorInTheLog) {
    SyslogCapture capture;
    const auto before = read_server_state();
    const auto result = run_sorvane_with_input({"--turn-off-domain", "--domain-name=example.test", "--wait-stdin"},
                                               R"({"domain": {}})");
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, kReadFailure);
    const auto messages = capture.messages();
    ASSERT_FALSE(messages.empty());
    EXPECT_EQ(messages[0].rfind("Session mail DB info parsing error: Some required fields are missing", 0), 0u)
        << messages[0];
    expect_server_state(read_server_state(), before);
}

TEST_F(WaitStdinTest, EmptyStandardInputIsRefused) {
    const auto before = read_server_state();
    const auto result = run_sorvane({"--add-domain", "--domain-name=example.test", "--wait-stdin"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, kReadFailure);
    expect_server_state(read_server_state(), before);
}

TEST_F(WaitStdinTest, WithoutTheSwitchStandardInputIsLeftAlone) {
    // A command that needs no session data never looks at standard input:
    // what is there is not a document, and the command still succeeds.
    expect_silent_success(run_sorvane_with_input({"--add-domain", "--domain-name=new.example"}, "not a document"));
    EXPECT_EQ(read_file("/var/qmail/control/rcpthosts"),
              kNeighbour + "\n" + kDomain + "\n" + kAliasOne + "\n" + kAliasTwo + "\nnew.example\n");
}

}  // namespace
}  // namespace sorvane::test
