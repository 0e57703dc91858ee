// Base64 coding of the stored password fields.
#include "stores/base64_codec.h"

#include <gtest/gtest.h>

namespace sorvane::test {
namespace {

std::vector<unsigned char> bytes(std::string_view text) {
    return {text.begin(), text.end()};
}

TEST(Base64CodecTest, EncodesTheStandardTestVectorsWithPadding) {
    const std::vector<std::pair<std::string, std::string>> vectors{
        {"", ""},
        {"f", "Zg=="},
        {"fo", "Zm8="},
        {"foo", "Zm9v"},
        {"foob", "Zm9vYg=="},
        {"fooba", "Zm9vYmE="},
        {"foobar", "Zm9vYmFy"},
    };
    for (const auto& [plain, encoded] : vectors) {
        EXPECT_EQ(base64_encode(bytes(plain)), encoded) << plain;
        EXPECT_EQ(base64_decode(encoded), bytes(plain)) << encoded;
    }
}

TEST(Base64CodecTest, UsesPlusAndSlashAndNoLineBreaks) {
    const std::vector<unsigned char> data(60, 0xfb);
    const std::string encoded = base64_encode(data);
    std::string expected;
    for (int i = 0; i < 20; ++i)
        expected += "+/v7";
    EXPECT_EQ(encoded, expected);
    EXPECT_EQ(encoded.find('\n'), std::string::npos);
    EXPECT_EQ(base64_decode(encoded), data);
}

TEST(Base64CodecTest, RefusesTextThatIsNotWellFormed) {
    for (const char* text : {"Zg=", "Zg", "Z===", "====", "Zm9v\n", " Zm9v", "Zm=v", "Zm9*", "Zg==Zg=="})
        EXPECT_EQ(base64_decode(text), std::nullopt) << text;
}

}  // namespace
}  // namespace sorvane::test
