#include "stores/mail_auth_cipher.h"

#include "runtime/log.h"
#include "stores/mail_auth_paths.h"
#include "stores/mail_passwd_cipher.h"

#include <syslog.h>

std::optional<std::string> apply_password_cipher(PasswordCipherDirection direction, const std::string& text,
                                                 const std::string& mailname, const std::string& domain) {
    const char* at = domain.empty() ? "" : "@";
    if (!mail_passwd_cipher_init(mail_auth_key_path())) {
        log_message(LOG_ERR, "Failed to initialize password cipher context (for mail address '%s%s%s')",
                    mailname.c_str(), at, domain.c_str());
        return std::nullopt;
    }
    const MailPasswdCipherHold hold;
    const bool encrypt = direction == PasswordCipherDirection::Encrypt;
    std::optional<std::string> result = encrypt ? mail_passwd_encrypt(text) : mail_passwd_decrypt(text);
    if (!result)
        log_message(LOG_ERR, "Failed to %s password for mail address '%s%s%s'", encrypt ? "encrypt" : "decrypt",
                    mailname.c_str(), at, domain.c_str());
    return result;
}
