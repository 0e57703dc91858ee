// main's top-level handling of whatever escapes a command.
#include "support/sandbox.h"

namespace sorvane::test {
namespace {

class TopLevelTest : public SandboxTest {
protected:
    ProcessResult probe(const std::vector<std::string>& args) {
        std::vector<std::string> argv{test_program_path("top_level_probe")};
        argv.insert(argv.end(), args.begin(), args.end());
        return run_process(argv);
    }
};

TEST_F(TopLevelTest, UtilityExceptionPrintsItsTextOnBothStreams) {
    const auto result = probe({"util"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "utility failed\n");
    EXPECT_EQ(result.err, "utility failed\n");
}

TEST_F(TopLevelTest, StandardExceptionPrintsTheDemangledTypeName) {
    const auto result = probe({"runtime"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "Fatal error: std::runtime_error(boom)\n");
    EXPECT_EQ(result.out, "Fatal error: std::runtime_error(boom)\n");
}

TEST_F(TopLevelTest, DynamicTypeIsNamedNotTheCatchType) {
    const auto result = probe({"logic"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "Fatal error: std::logic_error(bad logic)\n");
}

TEST_F(TopLevelTest, TracebackFollowsTheFatalLine) {
    const auto result = probe({"traced"});
    EXPECT_EQ(result.status, 1);
    const std::string head = "Fatal error: probe::TracedError(traced failure)\nTraceback:\n\t";
    ASSERT_EQ(result.err.substr(0, head.size()), head) << result.err;
    // Every frame line is tab-indented, and the throwing function appears
    // demangled.
    std::size_t lines = 0;
    for (std::size_t pos = head.size() - 1; pos < result.err.size(); pos = result.err.find('\n', pos) + 1) {
        EXPECT_EQ(result.err[pos], '\t');
        ++lines;
        if (result.err.find('\n', pos) == std::string::npos)
            break;
    }
    EXPECT_GE(lines, 2u);
    EXPECT_NE(result.err.find("probe::throw_traced()"), std::string::npos) << result.err;
    EXPECT_EQ(result.out, result.err);
}

TEST_F(TopLevelTest, NonStandardExceptionIsUnspecifiedWithStatus2) {
    const auto result = probe({"int"});
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.err, "UNSPECIFIED ERROR OCCURED\n");
    EXPECT_EQ(result.out, "UNSPECIFIED ERROR OCCURED\n");
}

TEST_F(TopLevelTest, HandlerStatusBecomesTheExitStatusUnchanged) {
    const auto result = probe({"none", "7"});
    EXPECT_EQ(result.status, 7);
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.out, "");
}

}  // namespace
}  // namespace sorvane::test
