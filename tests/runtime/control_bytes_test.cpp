// Control bytes: which bytes count, and how they are named in messages.
#include "runtime/control_bytes.h"

#include <gtest/gtest.h>

namespace {

TEST(ControlBytes, EveryByteBelowBlankAndDelCounts) {
    for (int byte = 0; byte < 256; ++byte) {
        const std::string text = "ab" + std::string(1, static_cast<char>(byte)) + "c";
        const bool control = byte < 0x20 || byte == 0x7f;
        EXPECT_EQ(crelm::first_control_byte(text).has_value(), control) << byte;
        if (control) {
            EXPECT_EQ(*crelm::first_control_byte(text), byte);
        }
    }
}

TEST(ControlBytes, TheFirstOneIsFound) {
    EXPECT_EQ(crelm::first_control_byte("x\x1b[8m\r\n"), 0x1b);
    EXPECT_EQ(crelm::first_control_byte(""), std::nullopt);
    EXPECT_EQ(crelm::first_control_byte("no {a,b} ! $(x) ü"), std::nullopt);
}

TEST(ControlBytes, NamesAreCEscapesOnOneLine) {
    EXPECT_EQ(crelm::control_byte_name('\t'), "\\t");
    EXPECT_EQ(crelm::control_byte_name('\n'), "\\n");
    EXPECT_EQ(crelm::control_byte_name('\r'), "\\r");
    EXPECT_EQ(crelm::control_byte_name(0x1b), "\\e");
    EXPECT_EQ(crelm::control_byte_name(0x00), "\\x00");
    EXPECT_EQ(crelm::control_byte_name(0x07), "\\x07");
    EXPECT_EQ(crelm::control_byte_name(0x7f), "\\x7f");
}

}  // namespace
