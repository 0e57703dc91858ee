// Where the mail authentication store and its key file live.
#pragma once

#include <string>

// Server types of the authentication store's layout.
inline constexpr int kMailServerQmail = 0;
inline constexpr int kMailServerPostfix = 1;

// Selects the database and key paths for a server type: 0 qmail, 1 postfix;
// any other type leaves the paths unchanged.
void set_mail_auth_paths(int server_type);

// The paths in force (qmail's until another type is selected).
const std::string& mail_auth_db_path();
const std::string& mail_auth_key_path();
