// --wait-stdin through the binary: the document on standard input is read and
// checked before the command goes on.
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
    static RunOptions piped(const std::string& input) {
        RunOptions options;
        options.stdin_mode = RunOptions::Stdin::Pipe;
        options.input = input;
        return options;
    }
};

TEST_F(WaitStdinTest, AcceptedDocumentLetsTheCommandGoOn) {
    for (const std::vector<std::string>& args :
         {std::vector<std::string>{"--add-domain", "--domain-name=example.test", "--wait-stdin"},
          std::vector<std::string>{"--remove-alias", "--domain-name=example.test", "--mailname=info", "--alias=sales",
                                   "--wait-stdin"},
          std::vector<std::string>{"--set-mailbox-disk-quota", "--domain-name=example.test", "--mailname=info",
                                   "--disk-quota=10", "--wait-stdin"}}) {
        const auto result = run_sorvane(args, piped(kDocument));
        const std::string expected = "Error: command " + args[0] + " is not available in this build\n";
        EXPECT_EQ(result.status, 1) << args[0];
        EXPECT_EQ(result.err, expected) << args[0];
        EXPECT_EQ(result.out, expected) << args[0];
    }
}

TEST_F(WaitStdinTest, RefusedDocumentEndsTheCommandWithTheParseErrorInTheLog) {
    SyslogCapture capture;
    const auto result =
        run_sorvane({"--turn-off-domain", "--domain-name=example.test", "--wait-stdin"}, piped(R"({"domain": {}})"));
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, kReadFailure);
    const auto messages = capture.messages();
    ASSERT_FALSE(messages.empty());
    EXPECT_EQ(messages[0].rfind("Session mail DB info parsing error: Some required fields are missing", 0), 0u)
        << messages[0];
}

TEST_F(WaitStdinTest, EmptyStandardInputIsRefused) {
    const auto result = run_sorvane({"--add-domain", "--domain-name=example.test", "--wait-stdin"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, kReadFailure);
}

TEST_F(WaitStdinTest, WithoutTheSwitchStandardInputIsLeftAlone) {
    const auto result = run_sorvane({"--add-domain", "--domain-name=example.test"}, piped("not a document"));
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "Error: command --add-domain is not available in this build\n");
}

}  // namespace
}  // namespace sorvane::test
