// Reading the batch document and writing the output objects, in process.
#include <gtest/gtest.h>

#include <string>

#include "commands/batch_document.h"
#include "commands/batch_output.h"

namespace crelm::mail::sorvane_commands {
namespace {

TEST(BatchDocumentTest, ReadsEveryMemberOfALine) {
    BatchCommand command;
    std::string reason;
    ASSERT_TRUE(parse_batch_line(
        R"( {"stdin": "{\"a\": 1}\n", "args": ["--add-mailbox", "--mailname=a\/b", "\u00e9\ud83d\ude00"],)"
        R"( "password": "p\"w", "crypted_password": "$6$x"} )",
        command, reason))
        << reason;
    EXPECT_EQ(command.args, (std::vector<std::string>{"--add-mailbox", "--mailname=a/b", "\xc3\xa9\xf0\x9f\x98\x80"}));
    EXPECT_EQ(command.password, "p\"w");
    EXPECT_EQ(command.crypted_password, "$6$x");
    EXPECT_EQ(command.stdin_text, "{\"a\": 1}\n");
}

TEST(BatchDocumentTest, OptionalMembersStayUnsetWhenMissing) {
    BatchCommand command;
    std::string reason;
    ASSERT_TRUE(parse_batch_line(R"({"args": ["--help"]})", command, reason));
    EXPECT_FALSE(command.password);
    EXPECT_FALSE(command.crypted_password);
    EXPECT_FALSE(command.stdin_text);
}

TEST(BatchDocumentTest, NumbersLinesAndTakesALastLineWithoutItsLineFeed) {
    const BatchDocument document = parse_batch_document("{\"args\": [\"a\"]}\n{\"args\": [\"b\"]}");
    ASSERT_EQ(document.failed_line, 0u) << document.reason;
    ASSERT_EQ(document.commands.size(), 2u);
    EXPECT_EQ(document.commands[1].line, 2u);
    EXPECT_EQ(document.commands[1].args.front(), "b");
}

TEST(BatchDocumentTest, ABadLineLeavesNoCommand) {
    const BatchDocument document = parse_batch_document("{\"args\": [\"a\"], \"password\": \"x\"}\n\n{\"args\": [\"b\"]}\n");
    EXPECT_EQ(document.failed_line, 2u);
    EXPECT_EQ(document.reason, "expected a JSON object at column 1");
    EXPECT_TRUE(document.commands.empty());
}

TEST(BatchDocumentTest, WipingForgetsThePasswords) {
    BatchCommand command;
    command.password = "secret";
    command.crypted_password = "hash";
    command.wipe_passwords();
    EXPECT_FALSE(command.password);
    EXPECT_FALSE(command.crypted_password);
}

TEST(BatchOutputTest, EscapesEverythingIntoPrintableAscii) {
    EXPECT_EQ(json_quoted("a\"b\\c\n\t\r\b\f\x01\x7f"), R"("a\"b\\c\n\t\r\b\f\u0001\u007f")");
    EXPECT_EQ(json_quoted("\xc3\xa9"), R"("\u00e9")");
    EXPECT_EQ(json_quoted("\xf0\x9f\x98\x80"), R"("\ud83d\ude00")");
}

TEST(BatchOutputTest, BytesThatAreNotUtf8ReadAsReplacementCharacters) {
    EXPECT_EQ(json_quoted("\xff"), R"("\ufffd")");
    EXPECT_EQ(json_quoted("\xc3"), R"("\ufffd")");
    EXPECT_EQ(json_quoted("\xc0\xaf"), R"("\ufffd\ufffd")");       // overlong
    EXPECT_EQ(json_quoted("\xed\xa0\x80"), R"("\ufffd\ufffd\ufffd")");  // a surrogate
}

TEST(BatchOutputTest, WritesTheObjectOnOneLine) {
    EXPECT_EQ(batch_output_object(3, 1, "out\n", ""),
              "{\"line\": 3, \"status\": 1, \"stdout\": \"out\\n\", \"stderr\": \"\"}\n");
}

}  // namespace
}  // namespace crelm::mail::sorvane_commands
