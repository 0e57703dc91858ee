// How commands read the session data. Every query first checks that the
// session is filled; if not it logs "Session mail DB info is not filled in
// call to <name>(). Probably a programming error." and returns -1.
// Names are compared exactly (case matters; stored names are lower case).
// A query about a domain other than the session's domain succeeds with no
// list (std::nullopt), which is not the same as an empty list.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

using SessionNameList = std::optional<std::vector<std::string>>;

// 0, with the session's domain name when alias is one of its domain aliases
// and std::nullopt otherwise; -1 when the session is not filled.
int get_domain_by_domainalias(std::string_view alias, std::optional<std::string>& domain);

// 0 with the names of all mails of domain; -1 when the session is not filled.
int get_mailnames_by_domain(std::string_view domain, SessionNameList& mailnames);

// 0 with the aliases of mailname@domain, std::nullopt when the mail is
// unknown or has none; -1 when the session is not filled.
int get_aliases_by_mailname(std::string_view mailname, std::string_view domain, SessionNameList& aliases);

// 0 with the domain aliases of domain; -1 when the session is not filled or
// has no domain name ("Session mail DB info has missing domain name in call
// to get_domaliases_by_domain(). Probably a programming error.").
int get_domaliases_by_domain(std::string_view domain, SessionNameList& domain_aliases);

// 0 with the mailing lists of domain; -1 when the session is not filled.
int get_maillists_by_domain(std::string_view domain, SessionNameList& maillists);

// Not available with session data: always throws std::runtime_error
// "Function append_active_domaliases_by_domain is not implemented for JSON/STDIN".
int append_active_domaliases_by_domain(std::string_view domain, SessionNameList& domain_aliases);

// Writes every mail's quota (in bytes) for domain into the mailbox quota
// store. Returns 1 on success and 0 on failure (the reverse of the queries
// above, on purpose): session not filled, another domain ("Session mail DB
// info is invalid, expected one for domain '%s', got '%s'"), or a store
// failure ("Unable to set default mbox quota for domain '%s' (processing
// '%s')"; the mails before it stay stored).
int store_default_mbox_quota(std::string_view domain);

// Writes the session quota of mailname@domain into the mailbox quota store;
// a mail not in the session is logged ("Mailbox '%s' not found in session
// mail DB.") and gets quota 0. Returns the store's result (1 written, 0 not),
// 0 when the session is not filled.
int rm_mbox_quota(std::string_view domain, std::string_view mailname);
