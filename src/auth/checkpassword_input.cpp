#include "auth/checkpassword_input.h"

#include <fcntl.h>
#include <openssl/crypto.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace crelm::auth {

CheckpasswordInput::~CheckpasswordInput() { OPENSSL_cleanse(bytes.data(), bytes.size()); }

namespace {

// Reads until end of file or until one byte more than the limit is in.
InputStatus read_all(int fd, CheckpasswordInput& input) {
    while (input.length < input.bytes.size()) {
        const ssize_t got = ::read(fd, input.bytes.data() + input.length, input.bytes.size() - input.length);
        if (got == 0)
            return InputStatus::ok;
        if (got < 0) {
            if (errno == EINTR)
                continue;
            return errno == EBADF ? InputStatus::no_descriptor : InputStatus::read_failed;
        }
        input.length += static_cast<std::size_t>(got);
    }
    return InputStatus::too_long;
}

}  // namespace

InputStatus read_checkpassword_input(int fd, CheckpasswordInput& input) {
    input.length = 0;
    if (::fcntl(fd, F_GETFD) == -1)
        return InputStatus::no_descriptor;
    const InputStatus status = read_all(fd, input);
    const int error = errno;
    ::close(fd);
    errno = error;
    if (status != InputStatus::ok)
        return status;
    return split_checkpassword_input(input);
}

InputStatus split_checkpassword_input(CheckpasswordInput& input) {
    if (input.length > kCheckpasswordInputLimit)
        return InputStatus::too_long;
    const char* start = input.bytes.data();
    const char* end = start + input.length;
    const auto* login_end = static_cast<const char*>(std::memchr(start, '\0', input.length));
    if (login_end == nullptr)
        return InputStatus::malformed;
    const char* password_start = login_end + 1;
    const auto* password_end =
        static_cast<const char*>(std::memchr(password_start, '\0', static_cast<std::size_t>(end - password_start)));
    if (password_end == nullptr)
        return InputStatus::malformed;
    input.login = std::string_view(start, static_cast<std::size_t>(login_end - start));
    input.password = std::string_view(password_start, static_cast<std::size_t>(password_end - password_start));
    return InputStatus::ok;
}

const char* input_status_text(InputStatus status) {
    switch (status) {
    case InputStatus::ok:
        return "read";
    case InputStatus::no_descriptor:
        return "descriptor 3 is not open for reading: run it the way the mail server runs a checkpassword "
               "program";
    case InputStatus::too_long:
        return "more than 512 bytes on descriptor 3";
    case InputStatus::malformed:
        return "descriptor 3 holds no login and password each ended by a zero byte";
    case InputStatus::read_failed:
        return "reading descriptor 3 failed";
    }
    return "unknown input status";
}

}  // namespace crelm::auth
