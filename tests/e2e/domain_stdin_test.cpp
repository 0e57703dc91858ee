// The domain and domain alias commands that need the picture of the domain:
// the document on standard input, the command-line lists, a document that
// comes late, and standard input at its end.
#include "e2e/domain_test_support.h"

namespace sorvane::test {
namespace {

const std::string kPrompt =
    "This command requires additional data to be passed via STDIN in JSON format.\n"
    "To get help on expected input data format call this utility with --help-stdin option.\n"
    "Type ^D (send EOF) to abort.\n";
const std::string kRefused =
    "Fatal error: std::runtime_error(Failed to read and parse session mail data from STDIN. See mail log for "
    "details.)\n";

// The seeded example.test as the lists give it: mail names without quotas of
// their own.
std::string lists_document() {
    std::string mails;
    for (const SeededMail& mail : seeded_mails()) {
        std::string aliases;
        for (const std::string& alias : mail.aliases)
            aliases += (aliases.empty() ? "\"" : ", \"") + alias + "\"";
        mails += (mails.empty() ? "" : ", ") + std::string(R"({"name": ")") + mail.name + R"(", "aliases": [)" +
                 aliases + "]}";
    }
    return R"({"domain": {"name": "example.test", "dom_aliases": ["alias-one.test", "alias-two.test"], "mails": [)" +
           mails + "]}}";
}

struct DataCommand {
    const char* name;
    std::vector<std::string> args;
};

std::ostream& operator<<(std::ostream& out, const DataCommand& command) {
    return out << command.name;
}

class DomainStdinTest : public DomainCommandTest, public ::testing::WithParamInterface<DataCommand> {
protected:
    // The state a run with the command-line lists leaves, from a fresh seed.
    ServerState state_with_lists() {
        const auto result = run_sorvane(joined(GetParam().args, seeded_session_lists()));
        EXPECT_EQ(result.status, 0) << result.err;
        ServerState state = read_server_state();
        reset_sandbox();
        seed_server_state();
        return state;
    }
};

TEST_P(DomainStdinTest, DocumentWithWaitStdinActsAsTheLists) {
    const ServerState expected = state_with_lists();
    const auto result = run_sorvane_with_input(joined(GetParam().args, {"--wait-stdin"}), lists_document());
    expect_silent_success(result);
    expect_server_state(read_server_state(), expected);
}

TEST_P(DomainStdinTest, DocumentArrivingLateIsPromptedForThenRead) {
    const ServerState expected = state_with_lists();
    RunOptions options;
    options.stdin_mode = RunOptions::Stdin::Pipe;
    options.input = lists_document();
    options.input_after_output = "Type ^D (send EOF) to abort.\n";
    const auto result = run_sorvane(GetParam().args, options);
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, kPrompt);
    EXPECT_EQ(result.err, "");
    expect_server_state(read_server_state(), expected);
}

TEST_P(DomainStdinTest, StandardInputAtItsEndIsRefusedAndNothingChanges) {
    SyslogCapture capture;
    const auto result = run_sorvane(GetParam().args);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, kRefused);
    expect_server_state(read_server_state(), seeded_server_state());
    const auto parse_errors = messages_starting(capture, "Session mail DB info parsing error: ");
    EXPECT_EQ(parse_errors.size(), 1u);
}

INSTANTIATE_TEST_SUITE_P(
    DataCommands, DomainStdinTest,
    ::testing::Values(
        DataCommand{"RemoveDomain", {"--remove-domain", "--domain-name=example.test"}},
        DataCommand{"TurnOffDomain", {"--turn-off-domain", "--domain-name=example.test"}},
        DataCommand{"TurnOnDomain", {"--turn-on-domain", "--domain-name=example.test", "--set-reject"}},
        DataCommand{"SetDomainDiskQuota",
                    {"--set-domain-disk-quota", "--domain-name=example.test", "--disk-quota=2048"}},
        DataCommand{"AddDomainAlias",
                    {"--add-domain-alias", "--domain-name=example.test", "--domain-alias-name=alias-three.test",
                     "--set-reject"}},
        DataCommand{"DelDomainAlias",
                    {"--del-domain-alias", "--domain-name=example.test", "--domain-alias-name=alias-two.test"}},
        DataCommand{"RenameDomainAlias",
                    {"--rename-domain-alias", "--domain-name=example.test", "--old-domain-alias-name=alias-two.test",
                     "--new-domain-alias-name=alias-new.test", "--set-bounce"}}),
    [](const ::testing::TestParamInfo<DataCommand>& info) { return std::string(info.param.name); });

// The commands that do not need the picture read standard input only when
// --wait-stdin asks for it.
class DomainNoDataTest : public DomainCommandTest {};

TEST_F(DomainNoDataTest, AddAndRenameLeaveStandardInputAlone) {
    expect_silent_success(run_sorvane_with_input({"--add-domain", "--domain-name=new.example"}, "not a document"));
    expect_silent_success(run_sorvane_with_input(
        {"--rename-domain", "--old-domain-name=new.example", "--new-domain-name=newer.example"}, "not a document"));
}

}  // namespace
}  // namespace sorvane::test
