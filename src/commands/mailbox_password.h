// The mailbox password of a command, as the panel passes it in the
// environment, with the storage flags it goes to the authentication store
// with. The text never leaves the process: it is handed only to the store,
// which enciphers it, and it is wiped when the object goes.
#pragma once

#include <string>

namespace crelm::mail::sorvane_commands {

class MailboxPassword {
public:
    // Takes the password from QVT_PASSWORD (plain: enciphered when stored)
    // or QVT_CRYPTED_PASSWORD (stored as given). domain_disabled (-D) adds
    // the flag that makes a domain row created on the way disabled. Without
    // either variable the text is empty, which removes the user when stored.
    explicit MailboxPassword(bool domain_disabled);
    ~MailboxPassword();
    MailboxPassword(const MailboxPassword&) = delete;
    MailboxPassword& operator=(const MailboxPassword&) = delete;

    const std::string& text() const { return text_; }
    int flags() const { return flags_; }

private:
    std::string text_;
    int flags_ = 0;
};

}  // namespace crelm::mail::sorvane_commands
