#include "util/strict_number.h"

#include <gtest/gtest.h>

namespace {

TEST(StrictNumber, ReadsPlainDecimalNumbers) {
    EXPECT_EQ(parse_strict_number("0"), 0);
    EXPECT_EQ(parse_strict_number("7"), 7);
    EXPECT_EQ(parse_strict_number("4711"), 4711);
    EXPECT_EQ(parse_strict_number("2147483647"), 2147483647);
}

TEST(StrictNumber, RefusesLeadingZeroSignsBlanksAndTrailingText) {
    EXPECT_EQ(parse_strict_number("00"), -1);
    EXPECT_EQ(parse_strict_number("0123"), -1);
    EXPECT_EQ(parse_strict_number("-1"), -1);
    EXPECT_EQ(parse_strict_number("+1"), -1);
    EXPECT_EQ(parse_strict_number(" 1"), -1);
    EXPECT_EQ(parse_strict_number("1 "), -1);
    EXPECT_EQ(parse_strict_number("12a"), -1);
    EXPECT_EQ(parse_strict_number(""), -1);
}

TEST(StrictNumber, RefusesNumbersAboveTheLargestInt) {
    EXPECT_EQ(parse_strict_number("2147483648"), -1);
    EXPECT_EQ(parse_strict_number("99999999999999999999"), -1);
}

}  // namespace
