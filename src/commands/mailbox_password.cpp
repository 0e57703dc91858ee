#include "commands/mailbox_password.h"

#include <string.h>

#include "runtime/password_input.h"
#include "stores/mail_auth_store.h"

namespace crelm::mail::sorvane_commands {

MailboxPassword::MailboxPassword(bool domain_disabled) {
    PasswordForm form = PasswordForm::Plain;
    if (take_password(text_, form) == 0 && form == PasswordForm::Crypted)
        flags_ |= kMailAuthPasswordInStoredForm;
    if (domain_disabled)
        flags_ |= kMailAuthDomainDisabled;
}

MailboxPassword::~MailboxPassword() {
    explicit_bzero(text_.data(), text_.size());
}

}  // namespace crelm::mail::sorvane_commands
