// Where the mail of a login's address lands, found the way qmail finds it:
// the address's domain gives its prefix in control/virtualdomains (a domain
// alias gives its domain's), "<prefix>-<local part>" is the local user whose
// exact "=" record in the compiled table users/cdb (users/assign while no
// table is compiled) names the mail owner's ids and the home. A mail alias's
// record names its mail name's home, so an alias reaches that mailbox.
#pragma once

#include <sys/types.h>

#include <string>

#include "auth/login_address.h"

namespace crelm::auth {

struct MailHome {
    uid_t uid = 0;
    gid_t gid = 0;
    std::string home;
};

struct MailHomePaths {
    std::string virtualdomains;
    std::string users_cdb;
    std::string users_assign;
};

// qmail's own files under /var/qmail.
MailHomePaths qmail_home_paths();

enum class HomeLookup {
    found,
    missing,  // no virtual domain, or no exact record: qmail delivers no mailbox there
    unusable, // a record that gives root's ids or a home that is not an absolute path
    failed,   // a file could not be read (why in failure)
};

HomeLookup find_mail_home(const MailHomePaths& paths, const LoginAddress& address, MailHome& home,
                          std::string& failure);

}  // namespace crelm::auth
