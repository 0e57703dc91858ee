// Which assign keys would send mail of one domain to another.
//
// qmail-newu compiles assign into a table in which a "=" record is found only
// by its whole key and a "+" record by any local part that begins with its
// key; qmail-lspawn looks a local part up whole first, then by ever shorter
// beginnings, so the longest "+" key wins, and of two records with the same
// key the one nearer the top of assign wins. qmail-send turns
// "<name>@<domain>" into the local part "<domain>-<name>" (the domain's
// virtualdomains line), so everything of a domain lives below "<domain>-":
// its "=" records "<domain>-<name>" (mail names and mail aliases) and its
// "+<domain>" record for the names it does not have.
//
// Two domains therefore share local parts exactly when one name is the other
// followed by "-" and more ("a.test" and "a.test-x.com": "x.com-info@a.test"
// and "info@a.test-x.com" are both "a.test-x.com-info"); a name that merely
// begins with another ("a.testx.com") shares nothing. Such look-alike
// domains live side by side: the longer domain's "+" record wins for the
// shared local parts, which are therefore the longer domain's addresses. The
// one way to take its mail is a "=" record (found before any "+" record) of
// the shorter domain inside them, such as the mail name "x.com-info" of
// "a.test". The checks below refuse exactly that, in either order of
// creation, and two "=" records with one key. Domain names and names come in
// lower case; records belong to a domain by their home in the mail names
// tree.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace crelm::qmail {

// The first record of assign (the whole line) that the "=" key
// "<domain>-<name>" collides with: a "=" record of another domain with the
// same key, or a "+" record of another domain "<other>" whose addresses
// ("<other>-...") include the key, unless domain itself extends "<other>"
// (then domain's own, longer "+" record answers for those addresses).
// nullopt when there is none or assign cannot be read (its edits then
// report their own failure).
std::optional<std::string> mail_key_collision(const std::string& domain, const std::string& name);

// For each of names, whether some "=" record of assign, of any domain, has
// the key "<domain>-<name>" (a mail name or a mail alias), all in one read
// of assign; false when assign cannot be read.
std::vector<bool> mail_keys_in_assign(const std::string& domain, const std::vector<std::string>& names);

// The same for the domain itself: a "+" record of another home with the
// key domain, or a "=" record of another domain whose key is "<domain>-..."
// unless that domain extends domain (its own "+" record is the longer one).
// A domain that merely extends another, or is extended by one, shares
// nothing with it: qmail answers for each address by the longest "+" key.
// Records of renamed_from (the domain being renamed to domain) are left
// out; instead each of its "=" records, given the new domain's name, must
// not lie in the addresses of a domain that extends domain.
std::optional<std::string> domain_key_collision(const std::string& domain, const std::string& renamed_from = "");

// A domain alias adds no key to assign (its virtualdomains line sends its
// mail to its domain's keys), but a name that is itself a mail domain with
// records in assign would lose its mail to the alias's domain, as the later
// virtualdomains line wins. The first such record, or nullopt.
std::optional<std::string> domain_alias_collision(const std::string& alias);

}  // namespace crelm::qmail
