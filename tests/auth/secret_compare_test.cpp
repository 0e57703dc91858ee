// The password comparison: equal texts match, every other pair does not,
// whatever their lengths and wherever they differ. It compares SHA-256
// digests of equal length with CRYPTO_memcmp, so its time does not follow
// the texts (no timing is measured here: a timed test would be flaky).
#include "auth/secret_compare.h"
#include "support/sandbox.h"

namespace sorvane::test {
namespace {

using crelm::auth::same_secret;

TEST(SecretCompare, EqualTextsMatch) {
    EXPECT_TRUE(same_secret("Info-secret 1", "Info-secret 1"));
    EXPECT_TRUE(same_secret("", ""));
    EXPECT_TRUE(same_secret(std::string(512, 'x'), std::string(512, 'x')));
}

TEST(SecretCompare, DifferentTextsDoNotMatch) {
    EXPECT_FALSE(same_secret("Info-secret 1", "Info-secret 2"));
    EXPECT_FALSE(same_secret("Info-secret 1", "info-secret 1"));
    EXPECT_FALSE(same_secret("xnfo-secret 1", "Info-secret 1"));
}

TEST(SecretCompare, PrefixesAndLongerTextsDoNotMatch) {
    EXPECT_FALSE(same_secret("Info-secret", "Info-secret 1"));
    EXPECT_FALSE(same_secret("Info-secret 1", "Info-secret"));
    EXPECT_FALSE(same_secret("", "a"));
    EXPECT_FALSE(same_secret(std::string("a\0b", 3), "a"));
}

}  // namespace
}  // namespace sorvane::test
