// The mail authentication store: the SQLite database against which the mail
// server authenticates mailbox users. One row per mail domain (with its
// enabled or disabled status) and one per mail name (its password, kept
// enciphered, and its status). Paths come from set_mail_auth_paths.
//
// Names are lower-cased by the statements themselves, when stored and when
// compared. Writes open the database read-write, each a single statement in
// autocommit mode; reads open it read-only. Every handle follows the
// busy-retry rule of all mail stores.
//
// Unless said otherwise a function returns 0 on success and -1 on failure,
// after logging the failure once at error level.
#pragma once

#include <sqlite3.h>

#include <functional>
#include <string>

// Storage flags of a user write.
inline constexpr int kMailAuthPasswordInStoredForm = 1;  // store as given in cmusaslsecretPLAIN
inline constexpr int kMailAuthUserDisabled = 2;          // the user's status is 1
inline constexpr int kMailAuthDomainDisabled = 4;        // a domain row made on the way gets status 1

// Domain statuses.
inline constexpr int kMailAuthDomainStatusEnabled = 0;
inline constexpr int kMailAuthDomainStatusDisabled = 1;

// The id of domain on an open read-write handle. A domain without a row is
// inserted first, with status 1 when flags has kMailAuthDomainDisabled, else
// 0. Returns the id, or -1 after logging.
int get_mail_domain_id(const std::string& domain, sqlite3* db, int flags);

// Inserts or replaces the user's row with password as given: in
// userPassword, or in cmusaslsecretPLAIN with kMailAuthPasswordInStoredForm.
// Status 1 with kMailAuthUserDisabled. The domain row is made when missing.
int add_mail_auth_user(const std::string& mailname, const std::string& domain, const std::string& password,
                       int flags);

// Stores a password for the user: enciphered (unless flags has
// kMailAuthPasswordInStoredForm) through add_mail_auth_user. An empty
// password removes the user instead.
int set_mail_auth_password(const std::string& mailname, const std::string& domain, const std::string& password,
                           int flags);

// Deletes the user's row. The domain id is taken as get_mail_domain_id
// takes it, so an unknown domain gets its row.
int remove_mail_auth_user(const std::string& mailname, const std::string& domain);

// Renames a user within its domain; fails when new_name is taken there.
int rename_mail_auth_user(const std::string& domain, const std::string& old_name, const std::string& new_name);

// Copies a user's row (stored password and flags) to new_name at new_domain;
// the old row stays. A user without a row (a mail name without a mailbox,
// or a domain without any) has nothing to copy: 0, and nothing is written.
int move_mail_auth_user(const std::string& old_domain, const std::string& old_name, const std::string& new_domain,
                        const std::string& new_name);

struct MailAuthUser {
    std::string name;
    std::string password;  // as stored: enciphered, or the stored form when flags has bit 0
    int flags = 0;         // kMailAuthPasswordInStoredForm, kMailAuthUserDisabled, kMailAuthDomainDisabled
};

// Reads a user's row into user (read-only). -1 when the domain or the user
// is unknown or neither password column is set.
int get_mail_auth_user(const std::string& domain, const std::string& mailname, MailAuthUser& user);

// The same lookup for callers to whom a missing row is no failure: 1 with
// user filled, 0 when the domain or the user has no row (nothing logged),
// -1 after logging when the store fails or neither password column is set.
int find_mail_auth_user(const std::string& domain, const std::string& mailname, MailAuthUser& user);

// Sets the domain's status: kMailAuthDomainStatusDisabled or
// kMailAuthDomainStatusEnabled.
int set_mail_auth_domain_status(const std::string& domain, int status);

// Renames a domain; fails when new_domain has a row already.
int rename_mail_auth_domain(const std::string& old_domain, const std::string& new_domain);

// Deletes a domain; its users go with it.
int remove_mail_auth_domain(const std::string& domain);

struct MailAuthListedUser {
    std::string address;  // "name@domain"
    std::string password;  // plain text, or the stored form of cmusaslsecretPLAIN
    bool user_disabled = false;
    bool domain_disabled = false;
};

using MailAuthUserVisitor = std::function<void(const MailAuthListedUser&)>;

// Hands every user (ordered by domain, then name), or every user of that
// mail name when mailname is not empty, to visit, with the password
// deciphered. Rows without an address or without any password are skipped
// with a message; a row whose password does not decipher is skipped too and
// makes the result -1 once the listing is done.
int list_mail_auth_users(const std::string& mailname, const MailAuthUserVisitor& visit);

struct MailAuthPassword {
    std::string password;  // plain text, or the stored form of cmusaslsecretPLAIN
    bool user_disabled = false;
    bool domain_disabled = false;
};

// The user's password, deciphered, and the two disabled flags (read-only).
int get_mail_auth_user_password(const std::string& mailname, const std::string& domain, MailAuthPassword& result);

// Splits "name@domain" at its last "@". -1 after logging "Invalid mail
// address '%s'" when there is none.
int split_mail_address(const std::string& address, std::string& mailname, std::string& domain);

// Selects the layout of server_type (set_mail_auth_paths), re-creates the
// database and the key file, and sets owners and modes of the database's
// directory, the database and the key file for that server type. A missing
// owner is found before anything is replaced.
int init_mail_auth_store(int server_type);

// Asks "/opt/qvt/admin/sbin/sorvane-server --features" which mail server is
// installed: 1 postfix, 0 qmail, -1 when its output does not tell.
int detect_mail_server_type();
