// Shell quoting: the class table, both quoting forms, the plain-text test,
// and proof against /bin/sh that quoted text comes back byte for byte.
#include "runtime/shell_quote.h"

#include <random>
#include <stdexcept>

#include "support/sandbox.h"

namespace sorvane::test {
namespace {

class ShellQuoteTest : public SandboxTest {};

// What /bin/sh prints for: printf %s <quoted>
std::string printed_by_shell(const std::string& quoted) {
    const auto result = run_process({"/bin/sh", "-c", "printf %s " + quoted});
    EXPECT_EQ(result.status, 0) << quoted << ": " << result.err;
    return result.out;
}

TEST_F(ShellQuoteTest, ClassTableMarksEscapedBytesAndControlBytes) {
    const std::string_view table = shell_char_classes();
    ASSERT_EQ(table.size(), 256u);
    const std::string escaped = "\t \"#$&'()*;<>?[\\`|~{}!^";
    for (int byte = 0; byte < 256; ++byte) {
        char expected = '-';
        if (byte != 0 && escaped.find(static_cast<char>(byte)) != std::string::npos)
            expected = '*';
        else if (byte < 0x20 || byte == 0x7f)
            expected = 'n';
        EXPECT_EQ(table[static_cast<std::size_t>(byte)], expected) << byte;
        EXPECT_EQ(shell_char_class(static_cast<unsigned char>(byte)), expected) << byte;
    }
}

TEST_F(ShellQuoteTest, EscapeFormCoversBashOnlySyntaxAndControlBytes) {
    EXPECT_EQ(shell_escape("{a,b}"), "\\{a,b\\}");
    EXPECT_EQ(shell_escape("!x^y"), "\\!x\\^y");
    EXPECT_EQ(shell_escape("x\r{touch,pwned}"), "x'\r'\\{touch,pwned\\}");
    EXPECT_EQ(shell_escape("a\x1b[8mb\x7f"), "a'\x1b'\\[8mb'\x7f'");
    EXPECT_FALSE(shell_is_plain("a\rb"));
    EXPECT_FALSE(shell_is_plain("{a,b}"));
}

TEST_F(ShellQuoteTest, EscapeFormBackslashesAndQuotesNewlines) {
    EXPECT_EQ(shell_escape(""), "");
    EXPECT_EQ(shell_escape("plain-text_1.2,ü"), "plain-text_1.2,ü");
    EXPECT_EQ(shell_escape("No such user; go away"), "No\\ such\\ user\\;\\ go\\ away");
    EXPECT_EQ(shell_escape("a\nb"), "a'\n'b");
    EXPECT_EQ(shell_escape("it's $HOME"), "it\\'s\\ \\$HOME");
}

TEST_F(ShellQuoteTest, QuoteFormWrapsInSingleQuotes) {
    EXPECT_EQ(shell_quote(""), "''");
    EXPECT_EQ(shell_quote("a b"), "'a b'");
    EXPECT_EQ(shell_quote("it's"), "'it'\\''s'");
    EXPECT_EQ(shell_quote("''"), "''\\'''\\'''");
}

TEST_F(ShellQuoteTest, EveryByteComesBackThroughTheShell) {
    for (int byte = 1; byte < 256; ++byte) {
        const std::string text(1, static_cast<char>(byte));
        EXPECT_EQ(printed_by_shell(shell_escape(text)), text) << "escape, byte " << byte;
        EXPECT_EQ(printed_by_shell(shell_quote(text)), text) << "quote, byte " << byte;
    }
}

TEST_F(ShellQuoteTest, AllBytesInOneTextComeBackThroughTheShell) {
    std::string text;
    for (int byte = 1; byte < 256; ++byte)
        text += static_cast<char>(byte);
    EXPECT_EQ(printed_by_shell(shell_escape(text)), text);
    EXPECT_EQ(printed_by_shell(shell_quote(text)), text);
}

TEST_F(ShellQuoteTest, RandomTextsComeBackThroughTheShell) {
    std::mt19937 generator(20261121);
    std::uniform_int_distribution<int> byte(1, 255);
    std::uniform_int_distribution<int> length(0, 40);
    const std::string specials = "'\"\\$`\n\t ;&|<>()*?[]~#{}!=%-";
    std::uniform_int_distribution<std::size_t> special(0, specials.size() - 1);
    for (int round = 0; round < 200; ++round) {
        std::string text;
        for (int i = length(generator); i > 0; --i)
            text += (i % 2) ? static_cast<char>(byte(generator)) : specials[special(generator)];
        EXPECT_EQ(printed_by_shell(shell_escape(text)), text) << "escape: " << text;
        EXPECT_EQ(printed_by_shell(shell_quote(text)), text) << "quote: " << text;
    }
}

TEST_F(ShellQuoteTest, PlainTextHasOnlyOrdinaryBytes) {
    EXPECT_TRUE(shell_is_plain(static_cast<const char*>(nullptr)));
    EXPECT_TRUE(shell_is_plain(""));
    EXPECT_TRUE(shell_is_plain("user.name-1@example.com"));
    EXPECT_TRUE(shell_is_plain(std::string_view("ü%+=,:")));
    EXPECT_FALSE(shell_is_plain("a b"));
    EXPECT_FALSE(shell_is_plain("a\nb"));
    EXPECT_FALSE(shell_is_plain(std::string_view("x|y")));
}

TEST_F(ShellQuoteTest, RequirePlainThrowsOnAnyOtherByte) {
    EXPECT_TRUE(shell_require_plain("plain"));
    EXPECT_TRUE(shell_require_plain(static_cast<const char*>(nullptr)));
    try {
        shell_require_plain("rm -rf");
        FAIL() << "no exception";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "Internal error: bad escape_chars value");
    }
    EXPECT_THROW(shell_require_plain(std::string_view("a;b")), std::runtime_error);
}

}  // namespace
}  // namespace sorvane::test
