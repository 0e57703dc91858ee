#include "auth/secret_text.h"

#include <openssl/crypto.h>

namespace crelm::auth {

SecretText::SecretText() { text_.reserve(kCapacity); }

SecretText::~SecretText() { wipe(); }

void SecretText::wipe() {
    OPENSSL_cleanse(text_.data(), text_.capacity());
    text_.clear();
}

bool SecretText::assign(std::string_view text) {
    wipe();
    if (text.size() > kCapacity)
        return false;
    text_.assign(text);
    return true;
}

}  // namespace crelm::auth
