#include "auth/checkpassword_run.h"

#include <syslog.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>

#include "auth/checkpassword_input.h"
#include "auth/exit_status.h"
#include "auth/login_address.h"
#include "auth/login_record.h"
#include "runtime/shown_text.h"
#include "auth/mail_home.h"
#include "auth/password_check.h"
#include "auth/process_guard.h"
#include "auth/reply_program.h"
#include "runtime/log.h"
#include "stores/mail_auth_paths.h"

namespace crelm::auth {

namespace {

// Messages name the login as the mail server passed it: shown escaped, so
// that no byte of it starts a new line in the mail server's log.
void say(const std::string& text) { log_message(LOG_ERR, "sorvane-auth: %s", crelm::shown_text(text).c_str()); }

// A lookup without a password: the mail server has authenticated the person
// already (or asks only for the user's fields) and wants to know whether the
// address has a usable login.
bool lookup_only() {
    const char* authorized = std::getenv("AUTHORIZED");
    return authorized != nullptr && std::strcmp(authorized, "1") == 0;
}

struct Login {
    LoginAddress address;
    bool lookup_only = false;
    int refused() const { return lookup_only ? kExitUnknownUser : kExitRefused; }
};

// The store's row, checked: 0 when the login may go on, else the exit status.
int check_record(const Login& login, std::string_view password) {
    LoginRecord record;
    std::string failure;
    switch (read_login_record(mail_auth_db_path(), login.address, record, failure)) {
    case RecordLookup::found:
        break;
    case RecordLookup::missing:
        return login.refused();
    case RecordLookup::no_password:
        if (!failure.empty())
            say(login.address.text() + ": " + failure);
        return login.refused();
    case RecordLookup::failed:
        say(failure);
        return kExitTemporary;
    }
    // The store writes 0 (enabled) or 1 (disabled); any other value is no
    // permission either.
    if (record.user_status != 0 || record.domain_status != 0)
        return login.refused();
    if (login.lookup_only)
        return 0;
    switch (check_password(password, record, mail_auth_key_path(), failure)) {
    case PasswordVerdict::match:
        return 0;
    case PasswordVerdict::mismatch:
        return kExitRefused;
    case PasswordVerdict::unusable:
        say(login.address.text() + ": " + failure);
        return kExitRefused;
    case PasswordVerdict::failed:
        say(login.address.text() + ": " + failure);
        return kExitTemporary;
    }
    return kExitTemporary;
}

int find_home(const Login& login, MailHome& home) {
    std::string failure;
    switch (find_mail_home(qmail_home_paths(), login.address, home, failure)) {
    case HomeLookup::found:
        return 0;
    case HomeLookup::missing:
        say(login.address.text() + " has a login but qmail delivers it to no mailbox (no virtual domain or no "
                                   "\"=\" record in users/assign)");
        return login.refused();
    case HomeLookup::unusable:
        say(login.address.text() + ": its record in users/assign gives root's ids or no absolute home");
        return login.refused();
    case HomeLookup::failed:
        say(failure);
        return kExitTemporary;
    }
    return kExitTemporary;
}

int check_login(char** program) {
    CheckpasswordInput input;
    const InputStatus read = read_checkpassword_input(kCheckpasswordFd, input);
    if (read != InputStatus::ok) {
        const std::string reason = read == InputStatus::read_failed ? std::string(": ") + std::strerror(errno) : "";
        say(input_status_text(read) + reason);
        return kExitMisused;
    }
    Login login;
    login.lookup_only = lookup_only();
    if (parse_login_address(input.login, login.address) != 0)
        return login.refused();
    if (const int status = check_record(login, input.password); status != 0)
        return status;
    LoginReply reply;
    reply.user = login.address.text();
    reply.lookup_only = login.lookup_only;
    if (const int status = find_home(login, reply.home); status != 0)
        return status;
    exec_reply_program(program, reply);
    say(std::string("cannot run ") + program[0] + ": " + std::strerror(errno));
    return kExitTemporary;
}

}  // namespace

int run_checkpassword(int argc, char** argv) {
    guard_process();
    log_init("stderr", LOG_INFO, LOG_MAIL, 0, "sorvane-auth");
    if (argc < 2) {
        say("usage: sorvane-auth <program> [arguments...] (run by the mail server, the login on descriptor 3)");
        return kExitMisused;
    }
    set_mail_auth_paths(kMailServerQmail);
    return check_login(argv + 1);
}

}  // namespace crelm::auth
