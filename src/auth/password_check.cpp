#include "auth/password_check.h"

#include <crypt.h>
#include <openssl/crypto.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>

#include "auth/secret_compare.h"
#include "stores/mail_passwd_cipher.h"

namespace crelm::auth {

namespace {

std::string key_failure(const std::string& key_path) {
    if (::access(key_path.c_str(), R_OK) != 0 && errno == EACCES)
        return "cannot read the key file " + key_path + ": permission denied to uid " +
               std::to_string(::geteuid()) +
               " (it is readable by root and group nofiles only; the mail server's authentication process must "
               "run sorvane-auth as root)";
    return "cannot read the key file " + key_path;
}

PasswordVerdict check_enciphered(std::string_view offered, const SecretText& stored, const std::string& key_path,
                                 std::string& failure) {
    if (!mail_passwd_is_encrypted(stored.view())) {
        failure = "its stored password is in no form that sorvane writes";
        return PasswordVerdict::unusable;
    }
    if (!mail_passwd_cipher_init(key_path)) {
        failure = key_failure(key_path);
        return PasswordVerdict::failed;
    }
    const MailPasswdCipherHold hold;
    std::optional<std::string> plain = mail_passwd_decrypt(stored.view());
    if (!plain) {
        const bool other_key = errno == EBADMSG;
        failure = other_key ? "its stored password does not decipher with the key file " + key_path
                            : "its stored password is damaged";
        return other_key ? PasswordVerdict::failed : PasswordVerdict::unusable;
    }
    const bool same = same_secret(offered, *plain);
    OPENSSL_cleanse(plain->data(), plain->size());
    return same ? PasswordVerdict::match : PasswordVerdict::mismatch;
}

// crypt_r's work area, wiped when it goes: it holds the offered password's
// hash and what was derived on the way.
struct CryptArea {
    crypt_data data{};
    ~CryptArea() { OPENSSL_cleanse(&data, sizeof data); }
};

PasswordVerdict check_crypted(std::string_view offered, const SecretText& stored, std::string& failure) {
    SecretText plain;
    if (!plain.assign(offered))
        return PasswordVerdict::mismatch;
    const auto area = std::make_unique<CryptArea>();
    const char* hashed = crypt_r(plain.c_str(), stored.c_str(), &area->data);
    // A setting that no method knows gives no hash, or one that begins
    // with "*" and never matches a stored form.
    if (hashed == nullptr || hashed[0] == '*') {
        failure = "its stored crypted password is in no form that crypt(3) knows";
        return PasswordVerdict::unusable;
    }
    return same_secret(hashed, stored.view()) ? PasswordVerdict::match : PasswordVerdict::mismatch;
}

}  // namespace

PasswordVerdict check_password(std::string_view offered, const LoginRecord& record, const std::string& key_path,
                               std::string& failure) {
    if (record.crypted)
        return check_crypted(offered, record.stored, failure);
    return check_enciphered(offered, record.stored, key_path, failure);
}

}  // namespace crelm::auth
