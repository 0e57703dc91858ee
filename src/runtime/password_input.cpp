#include "runtime/password_input.h"

#include <cstdlib>
#include <cstring>
#include <optional>
#include <utility>

namespace {

constexpr std::size_t kMaxPasswordLength = 4095;

struct PasswordInput {
    std::optional<std::string> plain;    // set and not empty
    std::optional<std::string> crypted;  // set and not empty
    std::string plain_cut;               // plain (or empty), cut to the longest accepted
};

PasswordInput make_input(std::optional<std::string> plain, std::optional<std::string> crypted) {
    PasswordInput input{std::move(plain), std::move(crypted), {}};
    input.plain_cut = input.plain.value_or("").substr(0, kMaxPasswordLength);
    return input;
}

void wipe(std::optional<std::string>& value) {
    if (value)
        explicit_bzero(value->data(), value->size());
    value.reset();
}

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

PasswordInput& password_input() {
    static PasswordInput input =
        make_input(take_from_environment("QVT_PASSWORD"), take_from_environment("QVT_CRYPTED_PASSWORD"));
    return input;
}

}  // namespace

void take_password_variables() {
    password_input();
}

void replace_password_input(std::optional<std::string> plain, std::optional<std::string> crypted) {
    PasswordInput& input = password_input();
    wipe(input.plain);
    wipe(input.crypted);
    explicit_bzero(input.plain_cut.data(), input.plain_cut.size());
    if (plain && plain->empty())
        plain.reset();
    if (crypted && crypted->empty())
        crypted.reset();
    input = make_input(std::move(plain), std::move(crypted));
}

const std::string& get_plain_password() {
    return password_input().plain_cut;
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
