// What a checkpassword program reads on descriptor 3: a login name ended by
// a zero byte, a password ended by a zero byte, then (optionally) a
// timestamp ended by a zero byte and more data, 512 bytes at most in all,
// up to end of file. Only the login and the password are used.
#pragma once

#include <array>
#include <cstddef>
#include <string_view>

namespace crelm::auth {

inline constexpr int kCheckpasswordFd = 3;
inline constexpr std::size_t kCheckpasswordInputLimit = 512;

enum class InputStatus {
    ok,
    no_descriptor,  // descriptor 3 is not open for reading
    too_long,       // more than 512 bytes before end of file
    malformed,      // no zero byte after the login or after the password
    read_failed,    // a read failed (errno kept)
};

// The bytes read and the two fields found in them; the bytes are wiped when
// it goes.
struct CheckpasswordInput {
    std::array<char, kCheckpasswordInputLimit + 1> bytes{};
    std::size_t length = 0;
    std::string_view login;
    std::string_view password;

    CheckpasswordInput() = default;
    ~CheckpasswordInput();
    CheckpasswordInput(const CheckpasswordInput&) = delete;
    CheckpasswordInput& operator=(const CheckpasswordInput&) = delete;
};

// Reads fd to end of file (stopping as soon as more than the limit has
// come), closes it, and splits what came into login and password.
InputStatus read_checkpassword_input(int fd, CheckpasswordInput& input);

// Splits input.bytes[0, input.length) into login and password.
InputStatus split_checkpassword_input(CheckpasswordInput& input);

// A short text for a status other than ok, for the program's message.
const char* input_status_text(InputStatus status);

}  // namespace crelm::auth
