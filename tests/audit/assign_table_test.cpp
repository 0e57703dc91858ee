// The assignment table read as qmail-newu reads it.
#include "audit/assign_table.h"

#include <gtest/gtest.h>

namespace crelm::audit {
namespace {

TEST(AssignTableTest, RecordsUpToTheEndLineAreTakenApart) {
    const AssignTable table = parse_assign(
        "=example.test-info:popuser:110:120:/var/qmail/mailnames/example.test/info:::\n"
        "+example.test:popuser:110:120:/var/qmail/mailnames/example.test:::\n"
        ".\n"
        "=after-the-end\n");
    ASSERT_EQ(table.records.size(), 2u);
    EXPECT_TRUE(table.ends_with_dot);
    EXPECT_TRUE(table.defects.empty());
    EXPECT_EQ(table.records[0].kind, '=');
    EXPECT_EQ(table.records[0].key, "example.test-info");
    EXPECT_EQ(table.records[0].user, "popuser");
    EXPECT_EQ(table.records[0].uid, "110");
    EXPECT_EQ(table.records[0].gid, "120");
    EXPECT_EQ(table.records[0].home, "/var/qmail/mailnames/example.test/info");
    EXPECT_EQ(table.records[0].line, 1u);
    EXPECT_EQ(table.records[1].kind, '+');
    EXPECT_EQ(table.records[1].key, "example.test");
    EXPECT_EQ(table.records[1].line, 2u);
}

TEST(AssignTableTest, LinesQmailNewuRefusesAreDefects) {
    const AssignTable table = parse_assign(std::string("nocolon\n:starts\n=few:a:b\n-other:a:b:c:d:e:f:\n=nul\0:a:b:c:d:e:f:\n.\n", 66));
    ASSERT_EQ(table.defects.size(), 5u);
    EXPECT_EQ(table.defects[0].why, "it has no ':'");
    EXPECT_EQ(table.defects[1].why, "it begins with ':'");
    EXPECT_EQ(table.defects[2].why, "it has fewer than the seven fields qmail-newu wants");
    EXPECT_EQ(table.defects[3].why, "it begins neither with '=' nor with '+'");
    EXPECT_EQ(table.defects[4].why, "it holds a NUL byte");
    EXPECT_EQ(table.defects[4].line, 5u);
    EXPECT_TRUE(table.records.empty());
    EXPECT_TRUE(table.ends_with_dot);
}

TEST(AssignTableTest, ATableWithoutItsEndOrItsLastNewline) {
    EXPECT_FALSE(parse_assign("+a.test:popuser:1:2:/m/a.test:::\n").ends_with_dot);
    const AssignTable cut = parse_assign("+a.test:popuser:1:2:/m/a.test:::");
    EXPECT_FALSE(cut.ends_with_dot);
    ASSERT_EQ(cut.defects.size(), 1u);
    EXPECT_EQ(cut.defects[0].why, "the last line has no newline");
    EXPECT_FALSE(parse_assign("").ends_with_dot);
}

}  // namespace
}  // namespace crelm::audit
