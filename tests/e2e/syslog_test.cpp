// What syslog receives from the logger.
#include <syslog.h>

#include "support/sandbox.h"

namespace sorvane::test {
namespace {

class SyslogTest : public SandboxTest {
protected:
    ProcessResult probe(const std::vector<std::string>& args, const RunOptions& options = {}) {
        std::vector<std::string> argv{test_program_path("log_probe")};
        argv.insert(argv.end(), args.begin(), args.end());
        return run_process(argv, options);
    }
};

// "<22>Nov 21 05:53:55 sorvane[4711]: text" -> the priority value 22.
int priority_of(const std::string& record) {
    return std::stoi(record.substr(1, record.find('>') - 1));
}

std::string pid_part(const ProcessResult&, const std::string& record) {
    const auto open = record.find('[');
    return record.substr(open + 1, record.find(']') - open - 1);
}

TEST_F(SyslogTest, MainsSettingsSendMailFacilityWithIdentityAndPidUpToInformational) {
    SyslogCapture capture;
    // main's settings: level 6, facility mail, LOG_PERROR (LOG_PID is added).
    const auto result = probe({"syslog", "32", "6", "sorvane"});
    ASSERT_EQ(result.status, 0);
    const auto records = capture.records();
    ASSERT_EQ(records.size(), 7u);  // debug (7) is masked
    for (int priority = 0; priority <= 6; ++priority) {
        const std::string& record = records[static_cast<std::size_t>(priority)];
        EXPECT_EQ(priority_of(record), LOG_MAIL | priority) << record;
        EXPECT_NE(record.find(" sorvane["), std::string::npos) << record;
        EXPECT_FALSE(pid_part(result, record).empty());
        EXPECT_EQ(record.substr(record.find("]: ") + 3), "message at " + std::to_string(priority));
    }
    // LOG_PERROR: syslog copies each message to standard error itself.
    EXPECT_NE(result.err.find("message at 3"), std::string::npos);
    EXPECT_EQ(result.err.find("message at 7"), std::string::npos);
}

TEST_F(SyslogTest, LevelMasksHigherPriorities) {
    SyslogCapture capture;
    ASSERT_EQ(probe({"syslog", "0", "3", "sorvane"}).status, 0);
    EXPECT_EQ(capture.messages(),
              (std::vector<std::string>{"message at 0", "message at 1", "message at 2", "message at 3"}));
}

TEST_F(SyslogTest, LevelEnvironmentIsHonouredOnlyWithBit8) {
    SyslogCapture capture;
    RunOptions options;
    options.env = {"CRELM_LOG_LEVEL=7"};
    ASSERT_EQ(probe({"syslog", "0", "3", "sorvane"}, options).status, 0);
    EXPECT_EQ(capture.messages().size(), 4u);
    ASSERT_EQ(probe({"syslog", "0", "11", "sorvane"}, options).status, 0);  // 8 | 3
    EXPECT_EQ(capture.messages().size(), 4u + 8u);
}

TEST_F(SyslogTest, MalformedLevelEnvironmentIsIgnored) {
    for (const char* value : {"", "77", "x", "8", "9", "-1"}) {
        SyslogCapture capture;
        RunOptions options;
        options.env = {std::string("CRELM_LOG_LEVEL=") + value};
        ASSERT_EQ(probe({"syslog", "0", "10", "sorvane"}, options).status, 0);  // 8 | 2
        EXPECT_EQ(capture.messages().size(), 3u) << "CRELM_LOG_LEVEL=" << value;
    }
}

TEST_F(SyslogTest, LevelEnvironmentNeverLowersTheLevel) {
    SyslogCapture capture;
    RunOptions options;
    options.env = {"CRELM_LOG_LEVEL=1"};
    ASSERT_EQ(probe({"syslog", "0", "12", "sorvane"}, options).status, 0);  // 8 | 4
    EXPECT_EQ(capture.messages().size(), 5u);
}

TEST_F(SyslogTest, TraceIdIsBuiltFromNameAndPidAndExported) {
    SyslogCapture capture;
    RunOptions options;
    options.unset_env = {"CRELM_LOG_TRACE_ID"};
    const auto result = probe({"syslog", "64", "6", "sorvane"}, options);
    ASSERT_EQ(result.status, 0);
    const auto records = capture.records();
    ASSERT_FALSE(records.empty());
    const std::string pid = pid_part(result, records[0]);
    // The probe's invocation name is log_probe: first letter upper-cased.
    const std::string trace = "L" + pid;
    EXPECT_EQ(result.out, "trace=" + trace + "\n");
    for (const std::string& text : capture.messages())
        EXPECT_EQ(text.substr(0, trace.size() + 2), trace + ": ") << text;
}

TEST_F(SyslogTest, TraceIdIsTakenFromTheEnvironment) {
    SyslogCapture capture;
    RunOptions options;
    options.env = {"CRELM_LOG_TRACE_ID=panel-42"};
    const auto result = probe({"syslog", "64", "6", "sorvane"}, options);
    ASSERT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "trace=panel-42\n");
    const auto messages = capture.messages();
    ASSERT_EQ(messages.size(), 7u);
    EXPECT_EQ(messages[3], "panel-42: message at 3");
}

TEST_F(SyslogTest, WithoutTraceOptionNoIdIsUsed) {
    SyslogCapture capture;
    RunOptions options;
    options.unset_env = {"CRELM_LOG_TRACE_ID"};
    const auto result = probe({"syslog", "0", "6", "sorvane"}, options);
    EXPECT_EQ(result.out, "trace=(unset)\n");
    EXPECT_EQ(capture.messages()[0], "message at 0");
}

TEST_F(SyslogTest, LongIdentIsCutAt63Characters) {
    SyslogCapture capture;
    const std::string ident(70, 'i');
    ASSERT_EQ(probe({"syslog", "0", "0", ident}).status, 0);
    const auto records = capture.records();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_NE(records[0].find(" " + std::string(63, 'i') + "["), std::string::npos) << records[0];
}

}  // namespace
}  // namespace sorvane::test
