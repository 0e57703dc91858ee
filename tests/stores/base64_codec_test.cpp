// Base64 coding of the stored password fields.
#include "stores/base64_codec.h"

#include <gtest/gtest.h>
#include <openssl/evp.h>

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

TEST(Base64CodecTest, DataLongerThanOnePieceCodesAsInOneBlock) {
    std::vector<unsigned char> data(7 * 1024 * 1024 + 2);
    for (std::size_t i = 0; i < data.size(); ++i)
        data[i] = static_cast<unsigned char>(i * 7 + i / 251);
    std::string whole((data.size() + 2) / 3 * 4 + 1, '\0');
    whole.resize(static_cast<std::size_t>(
        EVP_EncodeBlock(reinterpret_cast<unsigned char*>(whole.data()), data.data(), static_cast<int>(data.size()))));
    const std::string encoded = base64_encode(data);
    EXPECT_EQ(encoded, whole);
    EXPECT_EQ(base64_decoded_size(encoded), data.size());
    EXPECT_EQ(base64_decode(encoded), data);
}

TEST(Base64CodecTest, DecodedSizeLeavesOutThePadding) {
    EXPECT_EQ(base64_decoded_size(""), 0u);
    EXPECT_EQ(base64_decoded_size("Zg=="), 1u);
    EXPECT_EQ(base64_decoded_size("Zm8="), 2u);
    EXPECT_EQ(base64_decoded_size("Zm9v"), 3u);
    EXPECT_EQ(base64_decoded_size("="), 0u);
}

TEST(Base64CodecTest, RefusesTextThatIsNotWellFormed) {
    for (const char* text : {"Zg=", "Zg", "Z===", "====", "Zm9v\n", " Zm9v", "Zm=v", "Zm9*", "Zg==Zg=="})
        EXPECT_EQ(base64_decode(text), std::nullopt) << text;
}

}  // namespace
}  // namespace sorvane::test
