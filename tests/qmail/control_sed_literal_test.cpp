// Names put into sed scripts select exactly the lines that hold them
// literally: checked by running the real sed on lines that a pattern taken
// as a regular expression, or a replacement taken as sed text, would also
// change.
#include "qmail/sed_scripts.h"

#include "qmail/control_test_support.h"

namespace sorvane::test {
namespace {

std::string sed(const std::vector<std::string>& scripts, const std::string& input) {
    return run_sed(scripts, input);
}

class SedLiteralTest : public SandboxTest {};

TEST_F(SedLiteralTest, PatternCharactersAreEscaped) {
    EXPECT_EQ(sed_pattern_literal("a.b[c]*^$\\|d", '|'), "a\\.b\\[c\\]\\*\\^\\$\\\\\\|d");
    EXPECT_EQ(sed_pattern_literal("a/b", '/'), "a\\/b");
    EXPECT_EQ(sed_pattern_literal("x+y?{1}(o'neil)", '|'), "x+y?{1}(o'neil)");
}

TEST_F(SedLiteralTest, ReplacementCharactersAreEscaped) {
    EXPECT_EQ(sed_replacement_literal("a&b\\c|d.e", '|'), "a\\&b\\\\c\\|d.e");
    EXPECT_EQ(sed_append_literal("a\\b.c"), "a\\\\b.c");
}

TEST_F(SedLiteralTest, ADottedDomainMatchesOnlyItself) {
    const std::string lines = "a.test\na-test\naXtest\na.test.example\naa.test\n";
    EXPECT_EQ(sed({sed_substitute("a.test", "b.test", Anchor::whole)}, lines),
              "b.test\na-test\naXtest\na.test.example\naa.test\n");
    EXPECT_EQ(sed({sed_substitute("a.test:", "b.test:", Anchor::start),
                   sed_substitute(":a.test", ":b.test", Anchor::end)},
                  "a.test:a.test\na-test:a-test\naXtest:a.test\nalias.test:aXtest\n"),
              "b.test:b.test\na-test:a-test\naXtest:b.test\nalias.test:aXtest\n");
}

TEST_F(SedLiteralTest, MailNamesWithSpecialCharactersMatchOnlyThemselves) {
    const std::string lines = "=d-a.b:/m/d/a.b:::\n=d-axb:/m/d/axb:::\n=d-a&b:/m/d/a&b:::\n"
                              "=d-o'neil:/m/d/o'neil:::\n=d-x+y:/m/d/x+y:::\n=d-xxy:/m/d/xxy:::\n";
    EXPECT_EQ(sed({sed_substitute("/m/d/a.b:::", "/m/d/n&w\\|:::", Anchor::end)}, lines),
              "=d-a.b:/m/d/n&w\\|:::\n=d-axb:/m/d/axb:::\n=d-a&b:/m/d/a&b:::\n"
              "=d-o'neil:/m/d/o'neil:::\n=d-x+y:/m/d/x+y:::\n=d-xxy:/m/d/xxy:::\n");
    EXPECT_EQ(sed({sed_substitute("/m/d/x+y:::", "/m/d/z:::", Anchor::end),
                   sed_substitute("/m/d/a&b:::", "/m/d/q:::", Anchor::end),
                   sed_substitute("/m/d/o'neil:::", "/m/d/r:::", Anchor::end)},
                  lines),
              "=d-a.b:/m/d/a.b:::\n=d-axb:/m/d/axb:::\n=d-a&b:/m/d/q:::\n"
              "=d-o'neil:/m/d/r:::\n=d-x+y:/m/d/z:::\n=d-xxy:/m/d/xxy:::\n");
}

TEST_F(SedLiteralTest, DeletingAndAppendingALineTakeTheNameLiterally) {
    EXPECT_EQ(sed({"/^" + sed_pattern_literal("a.test", '/') + "$/d"}, "a.test\na-test\naXtest\n"),
              "a-test\naXtest\n");
    EXPECT_EQ(sed({"$ a\\" + sed_append_literal("t\\est.a")}, "x\n"), "x\nt\\est.a\n");
    EXPECT_EQ(sed({"$ a\\" + sed_append_literal("test.example")}, "x\n"), "x\ntest.example\n");
}

}  // namespace
}  // namespace sorvane::test
