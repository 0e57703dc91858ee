// Mail name homes, their Maildir trees and ".qmail" files, and the
// ".qmail-default" and reject list that answer mail for unknown names of a
// domain. Names are converted to ASCII and lower-cased before they reach a
// path. Results are 0 for success and -1 for failure unless said otherwise;
// failures are reported once (logged at error level unless said "printed":
// standard error and standard output), and the ones called fatal end the
// program (after their undo step).
#pragma once

#include <string>
#include <vector>

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

// Creates "<mailnames>/<domain>" (and missing parents, mode 0755), owner
// popuser, mode 0700; an existing one gets owner and mode back. 0, or -1
// after "recursive mkdir(%s) failed: %s\n", "chown(%s, %d, %d) failed:
// %s\n" or "chmod(%s, %04o) failed: %s\n" (printed, not fatal).
int create_domain_dir(const std::string& domain);
// Renames "<mailnames>/<old>" to "<mailnames>/<new>" (never replacing a
// target). 0, or 1 after "Mail directory %s not exists.\n", "Mail directory
// %s already exists.\n" or "Renaming %s to %s failed: %s\n" (printed).
int rename_domain_dir(const std::string& old_domain, const std::string& new_domain);

// Writes the mail name's assign record, its home, ".qmail" ("| true\n") and
// the Maildir tree of mailname_tree.h, owned by popuser, and initialises its
// quota record through the session hooks. An existing home or tree is
// accepted and gets its owners and modes back. Nothing in the home is
// reached through a link a mail user planted. 0; every failure ends the
// program: invalid names ("invalid mailname or domain name.") and an unknown
// popuser ("Unable to define UID or GID for user popuser") before anything
// is written, the later ones ("Unable to make %s dir: %s", "Unable to chown
// %s dir: %s", "Unable to open '%s': %s", "Unable to write to '%s': %s",
// "Unable to make %s/%s dir: %s", "Unable to chown %s/%s dir: %s", "Unable
// to make %s/%s file: %s", "Unable to initialize quota settings for %s@%s")
// after remove_mailname_files has undone the mail name.
int create_mailname(const std::string& mailname, const std::string& domain);
// Removes the mail name's assign record ("Unable to remove %s mailbox record
// from assign file", printed), its authentication record and its home
// directory tree (a link at the home is removed as a link). 0, or -1 when
// any of the three failed (each reported, all three tried). Empty names
// ("empty mailname or maildomain") and an unknown popuser ("Unable to get
// popuser uid or gid\n") end the program.
int remove_mailname_files(const std::string& mailname, const std::string& domain);

// qmail_remove_mail_alias for each of aliases (names of mailname's aliases),
// then remove_mailname_files, with every record taken out of assign in one
// rewrite: a large assign is read and written once. When that rewrite
// fails, the program ends with the message of a failed alias removal
// ("Unable to remove record from assign file"); without aliases this is
// remove_mailname_files.
int remove_mailname_and_alias_files(const std::string& mailname, const std::string& domain,
                                    const std::vector<std::string>& aliases);
// Creates or truncates path to hold "| true\n", owner popuser, mode 0600
// (never writable by others, not even while it is made); a link at path is
// refused. 0, or -1 after "Unable to open '%s': %s", "Unable to write to
// '%s': %s" (the file is removed) or "Unable to chown '%s': %s".
int write_true_qmail(const std::string& path);

// Switches the mailbox on: the delivery line into ".qmail", then the quota
// record. 0, or -1 after "empty mailname or maildomain", a failed delivery
// line (the mailbox is then switched off again) or "Unable to initialize
// quota settings for %s@%s" (the delivery line stays).
int mailname_mailbox_on(const std::string& mailname, const std::string& domain);
// Switches it off: the authentication record goes, then, only when that
// worked, the delivery line. 0 or -1.
int mailname_mailbox_off(const std::string& mailname, const std::string& domain);

enum class RejectSwitch { off, on };
// Which reject lines a bounce or catch-all takes away.
enum class RejectCleanup { domain_only, domain_and_aliases };

// rejectnonexist (created 0644 when missing): on leaves the domain and
// each of its aliases (from the session hooks) in exactly once; off takes
// them all out. 0, or -1 after "set_reject: Unable to create %s file.",
// "set_reject: Unable to update %s file." or when the aliases cannot be had.
int set_reject(const std::string& domain, RejectSwitch state);
// ".qmail-default" becomes "|bouncesaying <message>" (the default message
// when empty, newlines as spaces, shell-escaped with braces escaped too, so
// that neither dash nor bash runs or expands anything of it), after the
// reject lines cleanup names are taken away. The file is written even when
// the reject list could not be changed. 0, or -1 when either failed.
int set_bounce(const std::string& domain, const std::string& message, RejectCleanup cleanup);
// ".qmail-default" becomes "&<address>" (domain part in ASCII, the line cut
// to 4095 characters), with the reject lines as for set_bounce. A catch-all
// holding a control character or a blank is refused before anything is
// written ("Catch-all address for %s refused: it contains a blank or a
// control character"), and so is one without a local part or a domain
// ("Catch-all address for %s refused: it needs a local part and a domain"),
// one that does not convert after "idn_email_toascii(%s) failed: %s". 0 or -1.
int set_catchall(const std::string& domain, const std::string& address, RejectCleanup cleanup);
// Replaces ".qmail-default" of domain by the one line, owner popuser, 0600,
// in one step: a new file made beside it, flushed, and renamed over it (so
// that it never goes missing or half-written, not even after a crash or a
// power cut). 0, or -1 after "add_qmail_default:
// Unable to define UID or GID for user popuser", "add_qmail_default: Unable
// to add record to %s file.", "add_qmail_default: chown %s failed: %s" or
// "add_qmail_default: chmod %s failed: %s\n".
int add_qmail_default(const std::string& domain, const std::string& line);
// Removes ".qmail-default" of domain; a missing file is a success. 0, or -1
// after "Unable to remove %s: %s".
int remove_qmail_default(const std::string& domain);

// The action for mail to names that do not exist.
inline constexpr int kNotexistingBounce = 0;
inline constexpr int kNotexistingForward = 1;
inline constexpr int kNotexistingReject = 2;
// Applies action to domain (bounce: text is the phrase; forward: text is the
// address; reject: text unused). Bounce and forward take only the domain's
// own reject line away; reject lists the domain alone and leaves an existing
// ".qmail-default" in place. Another code is refused with "Unrecognized
// action for notexisting mail names: %d". 0 or -1.
int apply_notexisting_action(const std::string& domain, int action, const std::string& text);
