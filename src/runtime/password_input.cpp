#include "runtime/password_input.h"

#include <cstdlib>
#include <cstring>
#include <optional>

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

}  // namespace

void take_password_variables() {
    password_input();
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
