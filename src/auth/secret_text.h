// Text that holds a secret (a password, a stored password form): its bytes
// are wiped when it goes, and it never reallocates, so that no copy is left
// behind in freed memory.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace crelm::auth {

class SecretText {
public:
    // Room for every secret the login check handles (the protocol's 512-byte
    // input, a stored form of a password of that length).
    static constexpr std::size_t kCapacity = 2048;

    SecretText();
    ~SecretText();
    SecretText(const SecretText&) = delete;
    SecretText& operator=(const SecretText&) = delete;

    // Replaces the text; false (and the text emptied) when it does not fit.
    bool assign(std::string_view text);
    void wipe();

    std::string_view view() const { return text_; }
    const char* c_str() const { return text_.c_str(); }
    bool empty() const { return text_.empty(); }

private:
    std::string text_;
};

}  // namespace crelm::auth
