#include "runtime/password_input.h"

#include <crypt.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <optional>

#include "runtime/crypt_salt.h"
#include "runtime/log.h"

namespace {

constexpr std::size_t kMaxPasswordLength = 4095;

struct PasswordInput {
    std::optional<std::string> plain;    // set and not empty
    std::optional<std::string> crypted;  // set and not empty
};

// The value of an environment variable, removed from the environment and
// wiped in the environment block, which /proc/<pid>/environ shows.
std::optional<std::string> take_from_environment(const char* name) {
    char* value = std::getenv(name);
    if (value == nullptr)
        return std::nullopt;
    std::string copy(value);
    explicit_bzero(value, copy.size());
    unsetenv(name);
    if (copy.empty())
        return std::nullopt;
    return copy;
}

const PasswordInput& password_input() {
    static const PasswordInput input{take_from_environment("QVT_PASSWORD"),
                                     take_from_environment("QVT_CRYPTED_PASSWORD")};
    return input;
}

std::string md5_crypt(const std::string& password) {
    crypt_data work{};
    errno = 0;
    const char* hashed = crypt_r(password.c_str(), md5_crypt_salt().c_str(), &work);
    if (hashed == nullptr || hashed[0] == '*') {
        if (errno == 0)
            errno = EINVAL;
        report_error(1, 1, "Unable to hash the password");
    }
    std::string result(hashed);
    explicit_bzero(&work, sizeof work);
    return result;
}

std::string compute_crypted_password() {
    const PasswordInput& input = password_input();
    if (input.plain)
        return md5_crypt(*input.plain).substr(0, kMaxPasswordLength);
    if (input.crypted)
        return input.crypted->substr(0, kMaxPasswordLength);
    return md5_crypt("");
}

}  // namespace

void take_password_variables() {
    password_input();
}

const std::string& get_crypted_password() {
    static const std::string crypted = compute_crypted_password();
    return crypted;
}

const std::string& get_plain_password() {
    static const std::string plain = password_input().plain.value_or("").substr(0, kMaxPasswordLength);
    return plain;
}

int take_password(std::string& out, PasswordForm& form) {
    const PasswordInput& input = password_input();
    if (input.plain) {
        out = *input.plain;
        form = PasswordForm::Plain;
        return 0;
    }
    if (input.crypted) {
        out = *input.crypted;
        form = PasswordForm::Crypted;
        return 0;
    }
    return -1;
}
