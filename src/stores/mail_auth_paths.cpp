#include "stores/mail_auth_paths.h"

namespace {

struct MailAuthPaths {
    std::string database = "/var/lib/crelm/mail/auth/passwd.db";
    std::string key = "/var/lib/crelm/mail/auth/passwd_db_key";
};

MailAuthPaths& paths() {
    static MailAuthPaths current;
    return current;
}

}  // namespace

void set_mail_auth_paths(int server_type) {
    if (server_type == kMailServerQmail) {
        paths().database = "/var/lib/crelm/mail/auth/passwd.db";
        paths().key = "/var/lib/crelm/mail/auth/passwd_db_key";
    } else if (server_type == kMailServerPostfix) {
        paths().database = "/var/spool/postfix/crelm/passwd.db";
        paths().key = "/var/spool/postfix/crelm/passwd_db_key";
    }
}

const std::string& mail_auth_db_path() {
    return paths().database;
}

const std::string& mail_auth_key_path() {
    return paths().key;
}
