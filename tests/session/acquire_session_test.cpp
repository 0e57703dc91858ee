// How a command obtains its session data, end to end through real standard
// input (tests/programs/session_acquire).
#include "support/sandbox.h"

namespace sorvane::test {
namespace {

const char* const kPrompt =
    "This command requires additional data to be passed via STDIN in JSON format.\n"
    "To get help on expected input data format call this utility with --help-stdin option.\n"
    "Type ^D (send EOF) to abort.\n";

const char* const kStdinFailure = "Failed to read and parse session mail data from STDIN. See mail log for details.\n";

const char* const kDocument = R"({"domain": {"name": "A.test", "dom_aliases": ["b.test"],
    "mails": [{"name": "John", "mbox_quota": 1, "mbox_quota_unit": "MB", "aliases": ["jd"]}]},
    "certificates": [{"name": "Web", "certfile": "/certs/Web.pem"}, {"name": "mail", "certfile": "/certs/mail.pem"}]})";

const char* const kDocumentDump =
    "mail_db_data_t = {\n  \"domain\": {\n    \"name\": \"a.test\",\n    \"dom_aliases\": [ \"b.test\" ],\n"
    "    \"mails\": [\n      {\n        \"name\": \"john\",\n        \"mbox_quota\": 1048576,\n"
    "        \"aliases\": [ \"jd\" ]\n  }\n    ]\n  },\n  \"certificates\": [\n"
    "  {\n    \"name\": \"web\",\n    \"certfile\": \"/certs/Web.pem\",\n  },\n"
    "  {\n    \"name\": \"mail\",\n    \"certfile\": \"/certs/mail.pem\",\n  }\n  ]\n}\n"
    "certificate mail /certs/mail.pem\n"
    "certificate web /certs/Web.pem\n";

class AcquireSessionTest : public SandboxTest {
protected:
    ProcessResult acquire(const std::vector<std::string>& args, const RunOptions& options = {}) {
        std::vector<std::string> argv{test_program_path("session_acquire")};
        argv.insert(argv.end(), args.begin(), args.end());
        return run_process(argv, options);
    }

    static RunOptions piped(const std::string& input) {
        RunOptions options;
        options.stdin_mode = RunOptions::Stdin::Pipe;
        options.input = input;
        return options;
    }
};

TEST_F(AcquireSessionTest, WaitStdinReadsTheDocumentAndAddsTheCertificates) {
    const ProcessResult result = acquire({"--wait-stdin"}, piped(kDocument));
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, kDocumentDump);
    EXPECT_EQ(result.err, "");
}

TEST_F(AcquireSessionTest, WaitStdinIsReadEvenWhenTheCommandNeedsNoSessionData) {
    const ProcessResult result = acquire({"--wait-stdin", "--domain-aliases=x.test"}, piped(kDocument));
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, kDocumentDump);
}

TEST_F(AcquireSessionTest, RejectedDocumentFailsWithTheParseErrorInTheLog) {
    SyslogCapture capture;
    const ProcessResult result = acquire({"--wait-stdin", "--required"}, piped(R"({"domain": {}})"));
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_NE(result.err.find(kStdinFailure), std::string::npos) << result.err;
    EXPECT_EQ(capture.messages(),
              (std::vector<std::string>{"Session mail DB info parsing error: Some required fields are missing from the "
                                        "JSON object. Check that input JSON document conforms to schema. Error occured "
                                        "at offset 12, character '}'. "}));
}

TEST_F(AcquireSessionTest, NoSessionDataWhenTheCommandDoesNotNeedIt) {
    const ProcessResult result = acquire({"--domain-aliases=x.test"}, piped(kDocument));
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "mail_db_data_t = (null)\n");
}

TEST_F(AcquireSessionTest, CommandLineListsFillTheSessionWithoutReadingStdin) {
    const ProcessResult result =
        acquire({"--required", "--domain-name=a.test", "--domain-aliases=B.test, c.test", "--mail-addresses",
                 "john,jd;mary"},
                piped(kDocument));
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out,
              "mail_db_data_t = {\n  \"domain\": {\n    \"name\": \"a.test\",\n"
              "    \"dom_aliases\": [ \"b.test\", \"c.test\" ],\n    \"mails\": [\n"
              "      {\n        \"name\": \"john\",\n        \"mbox_quota\": -1,\n        \"aliases\": [ \"jd\" ]\n  },\n"
              "      {\n        \"name\": \"mary\",\n        \"mbox_quota\": -1,\n        \"aliases\": [  ]\n  }\n"
              "    ]\n  },\n  \"certificates\": [\n  ]\n}\n");
}

TEST_F(AcquireSessionTest, OneCommandLineListIsEnough) {
    const ProcessResult result = acquire({"--required", "--domain-name=a.test", "--mail-addresses=john"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_NE(result.out.find("\"name\": \"john\""), std::string::npos);
}

TEST_F(AcquireSessionTest, DataArrivingLaterIsAwaitedAfterThePrompt) {
    RunOptions options = piped(kDocument);
    options.input_after_output = "Type ^D (send EOF) to abort.\n";
    const ProcessResult result = acquire({"--required"}, options);
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, std::string(kPrompt) + kDocumentDump);
}

TEST_F(AcquireSessionTest, EndOfInputAfterThePromptFails) {
    SyslogCapture capture;
    RunOptions options = piped("");
    options.input_after_output = "Type ^D (send EOF) to abort.\n";
    const ProcessResult result = acquire({"--required"}, options);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, kPrompt);
    EXPECT_NE(result.err.find(kStdinFailure), std::string::npos) << result.err;
    EXPECT_EQ(capture.messages(), (std::vector<std::string>{"Session mail DB info parsing error: JSON object is expected. "
                                                            "Error occured at offset 0, character '\\x00'. "}));
}

TEST_F(AcquireSessionTest, StdinAlreadyAtItsEndIsReadWithoutPrompt) {
    RunOptions options;
    options.stdin_mode = RunOptions::Stdin::Null;
    const ProcessResult result = acquire({"--required"}, options);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_NE(result.err.find(kStdinFailure), std::string::npos) << result.err;
}

}  // namespace
}  // namespace sorvane::test
