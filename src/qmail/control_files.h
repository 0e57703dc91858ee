// qmail's control files (rcpthosts, virtualdomains, locals, rejectnonexist)
// and the user assignment table: the lines this system owns in them, and
// the order in which they change. Results are as listed; failures are
// reported once, and the ones called fatal end the program.
#pragma once

#include <string>

// Adds the domain: its directory, "+" record, rcpthosts and virtualdomains
// lines (off set: only the virtualdomains line is taken out). 0 or -1.
int qmail_add_domain(const std::string& domain, bool off);
// Removes the domain's lines, authentication rows, assign records and
// directory tree. 0 or -1.
int qmail_remove_domain(const std::string& domain);
// Takes the domain out of rcpthosts and virtualdomains, disables it in the
// authentication store. 0 or -1.
int qmail_domain_off(const std::string& domain);
// Puts it back in both files, enables it in the authentication store. 0 or -1.
int qmail_domain_on(const std::string& domain);
// Removes the domain from locals ("Unable to remove domain record from
// locals."). 0 or -1.
int qmail_remove_from_locals(const std::string& domain);

// Domain aliases: rcpthosts, "<alias>:<domain>" in virtualdomains, locals;
// removal also removes the alias's ".qmail-default". 0 (failures fatal).
int qmail_add_domain_alias(const std::string& domain, const std::string& alias);
int qmail_remove_domain_alias(const std::string& domain, const std::string& alias);

// The "=" record of a mail name at the top of assign. 0 (failures fatal).
int qmail_add_mailname_record(const std::string& mailname, const std::string& domain);
// Mail aliases: "=<domain>-<alias>" records pointing at the mail name's
// home. 0 (failures fatal).
int qmail_add_mail_alias(const std::string& mailname, const std::string& domain, const std::string& alias);
int qmail_remove_mail_alias(const std::string& mailname, const std::string& domain, const std::string& alias);

// Renames a mail name in assign, its home, its aliases' records and its
// ".qmail"; a non-empty auth_rename renames the authentication records too.
// 0 or -1.
int qmail_rename_mailname(const std::string& old_mailname, const std::string& domain,
                          const std::string& new_mailname, const std::string& auth_rename);
// Renames a domain in the directory tree, the control files, assign, the
// authentication store, rejectnonexist, the key directory and the handlers,
// then runs qmail-newu and restarts qmail. 0 or 1.
int qmail_rename_domain(const std::string& old_domain, const std::string& new_domain);
