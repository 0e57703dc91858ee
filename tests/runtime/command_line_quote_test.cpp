// Quoting for command lines a person pastes or a script runs: safe bytes
// bare, everything else in single quotes, and only printable ASCII carried.
#include "runtime/command_line_quote.h"

#include <gtest/gtest.h>

namespace {

TEST(CommandLineQuoteTest, SafeArgumentsStayBare) {
    EXPECT_EQ(command_line_quote("--domain-name=xn--bcher-kva.test"), "--domain-name=xn--bcher-kva.test");
    EXPECT_EQ(command_line_quote("--mail-addresses=info,sales%x@a.test:1/2_3+4"),
              "--mail-addresses=info,sales%x@a.test:1/2_3+4");
}

TEST(CommandLineQuoteTest, EverythingElseIsSingleQuoted) {
    EXPECT_EQ(command_line_quote(""), "''");
    EXPECT_EQ(command_line_quote("--mail-addresses=a;b"), "'--mail-addresses=a;b'");
    EXPECT_EQ(command_line_quote("--email=x@y.test{rm,-rf,--,/}"), "'--email=x@y.test{rm,-rf,--,/}'");
    EXPECT_EQ(command_line_quote("!x"), "'!x'");
    EXPECT_EQ(command_line_quote("~root"), "'~root'");
    EXPECT_EQ(command_line_quote("$(id) `id` \"a\" \\"), "'$(id) `id` \"a\" \\'");
    EXPECT_EQ(command_line_quote("don't"), "'don'\\''t'");
}

TEST(CommandLineQuoteTest, OnlyPrintableAsciiIsCarried) {
    EXPECT_TRUE(command_line_carries(""));
    EXPECT_TRUE(command_line_carries(" !\"#$%&'()*+,-./09:;<=>?@AZ[\\]^_`az{|}~"));
    for (int byte = 0; byte < 256; ++byte) {
        const std::string text(1, static_cast<char>(byte));
        EXPECT_EQ(command_line_carries(text), byte >= 0x20 && byte <= 0x7e) << byte;
    }
}

TEST(CommandLineQuoteTest, TheSafeSetIsSmall) {
    std::string safe;
    for (int byte = 0; byte < 256; ++byte)
        if (command_line_safe_byte(static_cast<unsigned char>(byte)))
            safe += static_cast<char>(byte);
    EXPECT_EQ(safe, "%+,-./0123456789:=@ABCDEFGHIJKLMNOPQRSTUVWXYZ_abcdefghijklmnopqrstuvwxyz");
}

TEST(CommandLineQuoteTest, ALineIsTheProgramAndItsQuotedArguments) {
    EXPECT_EQ(command_line("sorvane", {"--set-bounce", "--phrase=Gone; away", "--mail-addresses=;"}),
              "sorvane --set-bounce '--phrase=Gone; away' '--mail-addresses=;'");
}

}  // namespace
