#include "util/line_writer.h"

#include "support/sandbox.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

namespace {

class WriteLines : public sorvane::test::SandboxTest {};

TEST_F(WriteLines, AddsANewlineOnlyWhereOneIsMissing) {
    std::FILE* stream = std::tmpfile();
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(write_lines(stream, {"a", "b\n", ""}), 0);
    std::rewind(stream);
    char text[32] = {};
    const std::size_t got = std::fread(text, 1, sizeof text - 1, stream);
    std::fclose(stream);
    EXPECT_EQ(std::string(text, got), "a\nb\n\n");
}

TEST_F(WriteLines, AFailedWriteGivesMinusOne) {
    std::FILE* stream = std::fopen("/dev/full", "w");
    ASSERT_NE(stream, nullptr);
    std::setvbuf(stream, nullptr, _IONBF, 0);
    EXPECT_EQ(write_lines(stream, {"a"}), -1);
    std::fclose(stream);
}

}  // namespace
