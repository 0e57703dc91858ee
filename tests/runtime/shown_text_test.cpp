// Server text as the reports show it: one line of printable ASCII in the
// text report, valid UTF-8 without a raw control byte in the JSON report.
#include "runtime/shown_text.h"

#include <gtest/gtest.h>

namespace crelm {
namespace {

TEST(ShownTextTest, PrintableAsciiStaysAndTheRestIsEscaped) {
    EXPECT_EQ(shown_text("info@a.test"), "info@a.test");
    EXPECT_EQ(shown_text("x\nsorvane --remove-domain"), "x\\nsorvane --remove-domain");
    EXPECT_EQ(shown_text("a\rb\tc"), "a\\rb\\tc");
    EXPECT_EQ(shown_text("z\x1b[8mHIDDEN\x1b[0m\x1b]0;title\a"), "z\\x1b[8mHIDDEN\\x1b[0m\\x1b]0;title\\x07");
    EXPECT_EQ(shown_text("w\xff\xfe\x7f"), "w\\xff\\xfe\\x7f");
    EXPECT_EQ(shown_text(std::string("n\0l", 3)), "n\\x00l");
    EXPECT_EQ(shown_text("b\xc3\xbc"), "b\\xc3\\xbc");
}

TEST(ShownTextTest, ABackslashIsWrittenTwiceSoThatEscapesAreUnambiguous) {
    EXPECT_EQ(shown_text("\\xff"), "\\\\xff");
    EXPECT_NE(shown_text("\\xff"), shown_text("\xff"));
}

TEST(ShownTextTest, JsonKeepsValidUtf8AndEscapesTheRest) {
    EXPECT_EQ(json_shown_string("b\xc3\xbc" "cher \xe2\x82\xac \xf0\x9f\x98\x80"),
              "\"b\xc3\xbc" "cher \xe2\x82\xac \xf0\x9f\x98\x80\"");
    EXPECT_EQ(json_shown_string("w\xff\xfe"), "\"w\\\\xff\\\\xfe\"");
    // Overlong forms, surrogates, values above U+10FFFF and cut sequences.
    EXPECT_EQ(json_shown_string("\xc0\xaf"), "\"\\\\xc0\\\\xaf\"");
    EXPECT_EQ(json_shown_string("\xed\xa0\x80"), "\"\\\\xed\\\\xa0\\\\x80\"");
    EXPECT_EQ(json_shown_string("\xf4\x90\x80\x80"), "\"\\\\xf4\\\\x90\\\\x80\\\\x80\"");
    EXPECT_EQ(json_shown_string("\xe2\x82"), "\"\\\\xe2\\\\x82\"");
}

TEST(ShownTextTest, JsonSendsControlBytesAsEscapes) {
    EXPECT_EQ(json_shown_string("a\nb\rc\td\"e"), "\"a\\nb\\rc\\td\\\"e\"");
    EXPECT_EQ(json_shown_string("z\x1b]0;t\a\x7f"), "\"z\\u001b]0;t\\u0007\\u007f\"");
    EXPECT_EQ(json_shown_string("\xc2\x9b" "1m\xc2\xa0"), "\"\\u009b1m\xc2\xa0\"");
    EXPECT_EQ(json_shown_string("\\"), "\"\\\\\\\\\"");
}

TEST(ShownTextTest, PlainJsonEscapesQuotesAndBackslashesOnly) {
    EXPECT_EQ(json_plain_string("sorvane '--phrase=a\\b \"c\"'"), "\"sorvane '--phrase=a\\\\b \\\"c\\\"'\"");
    EXPECT_EQ(json_plain_string("x\n"), "\"x\\n\"");
}

}  // namespace
}  // namespace crelm
