// Mail name homes, their Maildir trees and ".qmail" files, and the
// ".qmail-default" and reject list that answer mail for unknown names of a
// domain. Names are converted to ASCII and lower-cased before they reach a
// path. Results are 0 for success and -1 for failure unless said otherwise;
// failures are reported once, and the ones called fatal end the program
// (after their undo step).
#pragma once

#include <string>

// "<mailnames>/<domain>/<mailname>" into path, the domain in lower-case
// ASCII and the mail name lower-cased; refused when it would not fit in
// 4096 bytes with its terminator ("Either domain name '%s' or mailname '%s'
// are too long to store mailname home path in the provided buffer"), for
// an empty name ("empty mailname or maildomain") or a domain that does not
// convert ("idn_toascii(%s) failed: %s"). path is left alone on failure.
int mailname_home_path(std::string& path, const std::string& mailname, const std::string& domain);
// "<mailnames>/<domain>/<mailname>/.qmail" into path, as mailname_home_path
// ("... to store .qmail path in the provided buffer").
int mailname_qmail_path(std::string& path, const std::string& mailname, const std::string& domain);
// "<mailnames>/<domain>", the domain in lower-case ASCII; "" after
// "idn_toascii(%s) failed: %s" (logged).
std::string domain_dir_path(const std::string& domain);
// "<mailnames>/<domain>/.qmail-default", or "" as domain_dir_path.
std::string qmail_default_path(const std::string& domain);

// Creates "<mailnames>/<domain>" (and missing parents), owner popuser, mode 0700.
int create_domain_dir(const std::string& domain);
// Renames "<mailnames>/<old>" to "<mailnames>/<new>": "Mail directory %s not
// exists.\n", "Mail directory %s already exists.\n", "Renaming %s to %s
// failed: %s\n". 0, or 1 on failure.
int rename_domain_dir(const std::string& old_domain, const std::string& new_domain);

// Writes the mail name's assign record, its home, ".qmail" ("| true\n") and
// the Maildir tree, owned by popuser, and initialises its quota record
// through the session hooks. Fatal failures undo the mail name first.
int create_mailname(const std::string& mailname, const std::string& domain);
// Removes the mail name's assign record, its authentication record and its
// home directory tree.
int remove_mailname_files(const std::string& mailname, const std::string& domain);
// Creates or truncates path to hold "| true\n", owner popuser, mode 0600.
int write_true_qmail(const std::string& path);

// Switches the mailbox on: the delivery line into ".qmail", then the quota
// record (switching it off again when the delivery line fails).
int mailname_mailbox_on(const std::string& mailname, const std::string& domain);
// Switches it off: the authentication record goes, then the delivery line.
int mailname_mailbox_off(const std::string& mailname, const std::string& domain);

enum class RejectSwitch { off, on };
// Which reject lines a bounce or catch-all takes away.
enum class RejectCleanup { domain_only, domain_and_aliases };

// rejectnonexist: on puts the domain and each of its aliases in exactly
// once; off takes them all out.
int set_reject(const std::string& domain, RejectSwitch state);
// ".qmail-default" becomes "|bouncesaying <message>" (the default message
// when empty, newlines as spaces, shell-escaped).
int set_bounce(const std::string& domain, const std::string& message, RejectCleanup cleanup);
// ".qmail-default" becomes "&<address>" (domain part in ASCII). A catch-all
// holding a control character or a blank is refused before anything is
// written.
int set_catchall(const std::string& domain, const std::string& address, RejectCleanup cleanup);
// Replaces ".qmail-default" of domain by the one line, owner popuser, 0600.
int add_qmail_default(const std::string& domain, const std::string& line);
// Removes ".qmail-default" of domain; a missing file is a success.
int remove_qmail_default(const std::string& domain);

// The action for mail to names that do not exist.
inline constexpr int kNotexistingBounce = 0;
inline constexpr int kNotexistingForward = 1;
inline constexpr int kNotexistingReject = 2;
// Applies action to domain (bounce: text is the phrase; forward: text is the
// address in ASCII; reject: text unused). Another code is refused with
// "Unrecognized action for notexisting mail names: %d" and -1.
int apply_notexisting_action(const std::string& domain, int action, const std::string& text);
