// Reading descriptor 3: the login and the password each ended by a zero
// byte, anything after them (a timestamp, more data) ignored, 512 bytes at
// most, and a descriptor that is not there told apart.
#include <fcntl.h>
#include <unistd.h>

#include "auth/checkpassword_input.h"
#include "support/sandbox.h"

namespace sorvane::test {
namespace {

using crelm::auth::CheckpasswordInput;
using crelm::auth::InputStatus;
using crelm::auth::read_checkpassword_input;

// A pipe's reading end that holds exactly bytes, then end of file.
int pipe_with(const std::string& bytes) {
    int ends[2];
    EXPECT_EQ(pipe(ends), 0);
    EXPECT_EQ(write(ends[1], bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    close(ends[1]);
    return ends[0];
}

InputStatus read_bytes(const std::string& bytes, CheckpasswordInput& input) {
    return read_checkpassword_input(pipe_with(bytes), input);
}

TEST(CheckpasswordInput, TakesLoginAndPassword) {
    CheckpasswordInput input;
    ASSERT_EQ(read_bytes(std::string("info@example.test\0Secret 1\0", 27), input), InputStatus::ok);
    EXPECT_EQ(input.login, "info@example.test");
    EXPECT_EQ(input.password, "Secret 1");
}

TEST(CheckpasswordInput, IgnoresTimestampAndMoreData) {
    CheckpasswordInput input;
    ASSERT_EQ(read_bytes(std::string("a@b.test\0pw\0" "1700000000\0more", 27), input), InputStatus::ok);
    EXPECT_EQ(input.login, "a@b.test");
    EXPECT_EQ(input.password, "pw");
}

TEST(CheckpasswordInput, EmptyLoginAndPasswordAreFields) {
    CheckpasswordInput input;
    ASSERT_EQ(read_bytes(std::string("\0\0", 2), input), InputStatus::ok);
    EXPECT_EQ(input.login, "");
    EXPECT_EQ(input.password, "");
}

TEST(CheckpasswordInput, MissingZeroBytesAreMalformed) {
    for (const std::string& bytes : {std::string(), std::string("no zero byte"), std::string("login\0pw", 8)}) {
        CheckpasswordInput input;
        EXPECT_EQ(read_bytes(bytes, input), InputStatus::malformed) << bytes.size();
    }
}

TEST(CheckpasswordInput, FiveHundredTwelveBytesAreAllowed) {
    std::string bytes = "a@b.test";
    bytes += '\0';
    bytes += std::string(512 - bytes.size() - 1, 'p');
    bytes += '\0';
    ASSERT_EQ(bytes.size(), 512U);
    CheckpasswordInput input;
    ASSERT_EQ(read_bytes(bytes, input), InputStatus::ok);
    EXPECT_EQ(input.password.size(), 512U - 10U);
}

TEST(CheckpasswordInput, MoreThanFiveHundredTwelveBytesAreRefused) {
    std::string bytes = "a@b.test";
    bytes += '\0';
    bytes += std::string(512 - bytes.size(), 'p');
    bytes += '\0';
    ASSERT_EQ(bytes.size(), 513U);
    CheckpasswordInput input;
    EXPECT_EQ(read_bytes(bytes, input), InputStatus::too_long);
    CheckpasswordInput large;
    EXPECT_EQ(read_bytes(std::string(60000, 'x'), large), InputStatus::too_long);
}

TEST(CheckpasswordInput, ClosedDescriptorIsNoDescriptor) {
    const int fd = pipe_with("a\0b\0");
    close(fd);
    CheckpasswordInput input;
    EXPECT_EQ(read_checkpassword_input(fd, input), InputStatus::no_descriptor);
}

TEST(CheckpasswordInput, DescriptorOpenOnlyForWritingIsNoDescriptor) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    CheckpasswordInput input;
    EXPECT_EQ(read_checkpassword_input(ends[1], input), InputStatus::no_descriptor);
    close(ends[0]);
}

TEST(CheckpasswordInput, DescriptorIsClosedAfterReading) {
    const int fd = pipe_with(std::string("a\0b\0", 4));
    CheckpasswordInput input;
    ASSERT_EQ(read_checkpassword_input(fd, input), InputStatus::ok);
    EXPECT_EQ(fcntl(fd, F_GETFD), -1);
}

}  // namespace
}  // namespace sorvane::test
