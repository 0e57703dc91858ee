// MD5 hex digests, checked against the system's md5sum.
#include "runtime/md5_hex.h"

#include <cstring>

#include "support/sandbox.h"

namespace sorvane::test {
namespace {

class Md5HexTest : public SandboxTest {};

std::string md5sum_of(const std::string& content) {
    const std::string path = scratch_dir() + "/md5-input";
    write_file(path, content);
    const auto result = run_process({"/usr/bin/md5sum", path});
    EXPECT_EQ(result.status, 0) << result.err;
    return result.out.substr(0, 32);
}

TEST_F(Md5HexTest, DigestOfBothTextsEqualsMd5sumOfTheirConcatenation) {
    char out[kMd5HexSize];
    ASSERT_EQ(md5_hex("/var/qmail/control/", "virtualdomains", out), 0);
    EXPECT_EQ(std::string(out), md5sum_of("/var/qmail/control/virtualdomains"));
    EXPECT_EQ(std::strlen(out), 32u);
}

TEST_F(Md5HexTest, AbsentAndEmptyTextsCountAsEmpty) {
    char out[kMd5HexSize];
    const std::string empty_digest = md5sum_of("");
    ASSERT_EQ(md5_hex(nullptr, nullptr, out), 0);
    EXPECT_EQ(std::string(out), empty_digest);
    ASSERT_EQ(md5_hex("", "", out), 0);
    EXPECT_EQ(std::string(out), empty_digest);
    ASSERT_EQ(md5_hex("abc", nullptr, out), 0);
    EXPECT_EQ(std::string(out), md5sum_of("abc"));
    ASSERT_EQ(md5_hex(nullptr, "abc", out), 0);
    EXPECT_EQ(std::string(out), md5sum_of("abc"));
}

TEST_F(Md5HexTest, StringFormGivesTheSameLowerCaseDigits) {
    const std::string binary("a\0b\xff\n", 5);
    EXPECT_EQ(md5_hex(binary), md5sum_of(binary));
    EXPECT_EQ(md5_hex("/etc/", "passwd"), md5sum_of("/etc/passwd"));
    EXPECT_EQ(md5_hex("abc"), "900150983cd24fb0d6963f7d28e17f72");
    EXPECT_EQ(md5_hex(std::string(100000, 'q')), md5sum_of(std::string(100000, 'q')));
}

}  // namespace
}  // namespace sorvane::test
