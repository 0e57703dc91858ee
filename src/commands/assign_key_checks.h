// Refusals made before a command changes anything: names whose assign keys
// would mix the mail of two domains, and a rename onto a mail name that is
// already there. Each is true when the command must stop with status 1,
// after the reason has been logged (error priority, copied to standard
// error). Names come as the options give them: domains in lower-case ASCII,
// mail names lower-cased.
#pragma once

#include <string>

namespace crelm::mail::sorvane_commands {

// The "=" key "<domain>-<name>" of a mail name or mail alias: "Unable to use
// %s@%s: its assign key '%s' collides with the record '%s' of another
// domain".
bool refuse_mail_key(const std::string& domain, const std::string& name);

// The "+" key of domain (renamed_from: the domain that becomes domain, whose
// own records do not count): "Unable to use domain %s: its addresses collide
// with the record '%s' of another domain in assign".
bool refuse_domain_key(const std::string& domain, const std::string& renamed_from = "");

// A domain alias that is a mail domain of its own in assign: "Unable to use
// domain alias %s: it is a mail domain with the record '%s' in assign".
bool refuse_domain_alias(const std::string& alias);

// new_mailname at domain when it has an assign record, a home or a quota
// record that old_mailname has too, i.e. when it is a mail name of its own
// (a rename killed half-way leaves each of them at one of the two names,
// and is finished by running it again): "Unable to rename %s@%s to %s@%s:
// %s@%s already has %s" ("a record in assign", "a home directory", "a quota
// record").
bool refuse_existing_mailname(const std::string& domain, const std::string& old_mailname,
                              const std::string& new_mailname);

}  // namespace crelm::mail::sorvane_commands
