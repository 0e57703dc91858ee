// qmail's control files (rcpthosts, virtualdomains, locals, rejectnonexist)
// and the user assignment table: the lines this system owns in them, and
// the order in which they change. Results are as listed; failures are
// reported once (on standard error and standard output), and the ones
// called fatal end the program with status 1.
//
// Domain names are written in their ASCII (IDNA) form, mail names and
// aliases lower-cased; a domain that does not convert is fatal
// ("idn_toascii() failed: %s"). Lines are changed under each file's lock;
// a line that must be there once is taken out and put back, so a failed
// removal is only reported. New assign records go to the top, so that its
// closing "." stays last; assign gets mode 0644 after each change.
#pragma once

#include <string>

// Adds the domain: its directory, "+" record, rcpthosts and virtualdomains
// lines (off set: only the virtualdomains line is taken out). 0, or -1 when
// popuser is unknown ("Unable to get popuser user info: %s\n") or the
// directory cannot be made (the domain is removed again first). An empty
// domain is fatal ("empty domain"), and so is a record or line that cannot
// be written ("Unable to add default string to assign file for mail
// domain"; after removing the domain again: "Unable to add domain record to
// rcpthosts.", "Unable to add record to virtualdomains.").
int qmail_add_domain(const std::string& domain, bool off);
// Removes the domain's lines, authentication rows, assign records (every
// record whose home is in the domain's directory, and its "+" record) and
// directory tree. 0, or -1 when the authentication store fails (assign and
// the tree are then left as they are), or after all the steps when the
// domain's rcpthosts line could not be taken out ("Unable to remove domain
// from rcpthosts file") or its tree not removed. Fatal: "empty maildomain", "Unable
// to remove domain from virtualdomains file", "error while deleting from
// file assign", "Unable to remove domain mailbox record from assign file".
int qmail_remove_domain(const std::string& domain);
// Takes the domain out of rcpthosts and virtualdomains, disables it in the
// authentication store. The store step runs whatever the files gave; 0, or
// -1 when a step failed ("Unable to remove domain mailbox record from assign
// file" for rcpthosts, after which virtualdomains is left alone, "ERROR:
// Unable to remove record from virtualdomains file", or the store's failure).
int qmail_domain_off(const std::string& domain);
// Puts it back in both files (once each), enables it in the authentication
// store; the store step runs whatever the files gave. 0, or -1 ("Unable to
// add record to rcpthosts.", after which virtualdomains is left alone,
// "Unable to add record to virtualdomains.", or the store's failure). A line that cannot
// be taken out before it is appended again is reported and the steps go on,
// but the result is -1: the file may now hold the line twice, which a
// second run puts right.
int qmail_domain_on(const std::string& domain);
// Removes the domain from locals ("Unable to remove domain record from
// locals."). 0 or -1.
int qmail_remove_from_locals(const std::string& domain);

// Domain aliases: rcpthosts, "<alias>:<domain>" in virtualdomains, locals;
// removal also removes the alias's ".qmail-default". 0 (failures fatal:
// "empty domain or domain alias", "Unable to add domain record alias to
// rcpthosts.", "Unable to add domain record alias to virtualdomains.",
// "Unable to remove domain alias from virtualdomains file"). A line of
// rcpthosts or virtualdomains that cannot be taken out is reported, the
// later steps still run, and the result is -1, so that the command's status
// tells the panel that the files are not yet as asked (a second run puts
// them right); a missing locals file is no such failure.
int qmail_add_domain_alias(const std::string& domain, const std::string& alias);
int qmail_remove_domain_alias(const std::string& domain, const std::string& alias);

// The "=" record of a mail name at the top of assign. 0 (failures fatal:
// "empty mailname, maildomain or mailalias", "Unable to define UID or GID
// for user popuser", and "Unable to add record for <name>@<domain> to assign
// file", after a record that was there before is tried once more).
int qmail_add_mailname_record(const std::string& mailname, const std::string& domain);
// Mail aliases: "=<domain>-<alias>" records pointing at the mail name's
// home. 0 (failures fatal: "empty mailname, maildomain or mailalias",
// "Unable to add record to assign file", "Unable to remove record from
// assign file").
int qmail_add_mail_alias(const std::string& mailname, const std::string& domain, const std::string& alias);
int qmail_remove_mail_alias(const std::string& mailname, const std::string& domain, const std::string& alias);

// Renames a mail name in assign, its home, its aliases' records and its
// ".qmail"; a non-empty auth_rename renames the authentication records too,
// at the domain and at each of its aliases (from the session hooks). 0, or
// -1 when an argument is empty ("empty mailname or maildomain"), the
// aliases' records could not be re-pointed or an authentication record
// could not be renamed. A failed edit of ".qmail" is only reported. Fatal,
// with the old record put back first where the new one was written:
// "Unable to remove record from assign file", "Unable to add record to
// assign file", "Unable to rename directory".
int qmail_rename_mailname(const std::string& old_mailname, const std::string& domain,
                          const std::string& new_mailname, const std::string& auth_rename);
// Renames a domain in the directory tree, the control files, assign, the
// authentication store, rejectnonexist, the key directory and the handlers,
// then runs qmail-newu and restarts qmail. 0, or 1 when any step failed; a
// failing directory rename or authentication store stops there, except
// that a directory already moved by an interrupted earlier run of the same
// rename (no old directory, the new one present) is reported and the later
// steps still run, so that running the rename again completes it.
int qmail_rename_domain(const std::string& old_domain, const std::string& new_domain);
