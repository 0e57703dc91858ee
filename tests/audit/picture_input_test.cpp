// --expect: the picture from a file or from standard input; a refused
// document ends the audit with the reader's text and status 2.
#include <gtest/gtest.h>

#include "audit/audit_fixture.h"

namespace sorvane::test {
namespace {

using PictureInputTest = AuditTest;

const std::string kBadPicture = R"([{"domain": {"name": "example.test", "mails": [{"name": "in fo"}]}}])";
const std::string kBadPictureText =
    "Custom JSON value constraint failed: Mailname is not valid. Error occured at offset 63, character '}'. ";

ProcessResult audit_with_input(const std::vector<std::string>& args, const std::string& input) {
    RunOptions options;
    options.stdin_mode = RunOptions::Stdin::Pipe;
    options.input = input;
    return run_sorvane_audit(args, options);
}

TEST_F(PictureInputTest, ARefusedDocumentOnStandardInputEndsWithTheReadersText) {
    const ProcessResult result = audit_with_input({"--expect=-"}, kBadPicture);
    EXPECT_EQ(result.err, "sorvane-audit: STDIN: " + kBadPictureText + "\n");
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.status, 2);
}

TEST_F(PictureInputTest, ARefusedDocumentInAFileNamesTheFile) {
    write_file("/tmp/picture.json", kBadPicture, 0600);
    const ProcessResult result = run_sorvane_audit({"--expect=/tmp/picture.json"});
    EXPECT_EQ(result.err, "sorvane-audit: /tmp/picture.json: " + kBadPictureText + "\n");
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.status, 2);
}

TEST_F(PictureInputTest, AnEmptyStandardInputIsRefused) {
    const ProcessResult result = audit_with_input({"--expect=-"}, "");
    EXPECT_EQ(result.err, "sorvane-audit: STDIN: JSON array is expected. Error occured at offset 0, character "
                          "'\\x00'. \n");
    EXPECT_EQ(result.status, 2);
}

TEST_F(PictureInputTest, AMissingFileCannotBeRead) {
    const ProcessResult result = run_sorvane_audit({"--expect=/tmp/no-such-picture.json"});
    EXPECT_EQ(result.err, "sorvane-audit: cannot read /tmp/no-such-picture.json: No such file or directory\n");
    EXPECT_EQ(result.status, 2);
}

}  // namespace
}  // namespace sorvane::test
