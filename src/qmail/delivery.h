// Delivery lines in a mail name's ".qmail", and making qmail take up changed
// tables. Results are 0 for success and -1 for failure unless said
// otherwise; every failure is reported once through the log.
#pragma once

#include <string>
#include <vector>

// The local delivery agent of this server.
inline constexpr int kLdaUnknown = -1;
inline constexpr int kLdaDeliverquota = 0;
inline constexpr int kLdaDovecot = 1;

// The LDA kind, found once per process and kept: "/usr/bin/deliverquota" is
// preferred to "/usr/lib/dovecot/dovecot-lda". kLdaUnknown (not kept) after
// "Unable to detect IMAP/POP3 server type - no LDA found" or "... LDA is
// present at '%s' but is not a regular file or is not executable".
int detect_lda();

// The five delivery lines this system knows, in the order they are removed.
const std::vector<std::string>& known_delivery_lines();

// Removes every known delivery line from the ".qmail" at path: the file is
// replaced whole under its lock (util/file_replace.h), owner popuser, mode
// 0600, never through a link; a FIFO, device, hard-linked or larger than
// 1 MiB file there is refused and left alone. -1 also for a missing file
// (without a message).
int remove_delivery_strings(const std::string& path);

// The first line of "/var/qmail/mailnames/.default_delivery" with its
// newline (at most 4095 bytes of it), into line. -1 after "Unable to get
// default delivery transport string from %s\n" (missing, not a regular file
// or empty), "Unable to open default delivery config file(%s): %s\n" or
// "Unable to read line from file: %s: %s\n"; line is then left alone.
int read_default_delivery(std::string& line);

// Replaces any known delivery line of the ".qmail" at path by the default
// delivery line (the file with the line appended replaces the old one in one
// step, already owned by popuser with mode 0600), then gives it owner popuser
// and mode 0600. -1 when no LDA
// is found (the file untouched), after the warning "Unable to remove old
// delivery strings from '%s'", or after "Unable to add delivery string to
// '%s'" (the known lines are gone by then).
int add_delivery(const std::string& path);
// Removes the known delivery lines, then owner popuser and mode 0600.
int remove_delivery(const std::string& path);

// add_delivery / remove_delivery on the ".qmail" of mailname@domain.
int add_mailname_delivery(const std::string& mailname, const std::string& domain);
int remove_mailname_delivery(const std::string& mailname, const std::string& domain);

// Makes path hold exactly lines, owner popuser and mode 0600 (never with
// group or other bits), in one step: a new file written beside it, flushed
// and renamed over it, so that a crash or power cut leaves the old content or
// the new. A link, FIFO or device at path is refused and left alone.
int write_qmail_lines(const std::string& path, const std::vector<std::string>& lines);

// Runs "/var/qmail/bin/qmail-newu" and returns its exit status (127 when it
// could not be executed), or -1 when it was killed or could not be waited
// for. Runs are one at a time across processes: each holds the exclusive
// lock of the path "/var/qmail/bin/qmail-newu" in the lock directory.
// Its standard error is the caller's. The caller's edits of assign must be
// done: when, by the time its turn comes, a rebuild that began after the
// call has completed, that rebuild already compiled them and its result is
// returned without another run (qmail/newu_generations.h).
int qmail_newu();
// "/usr/bin/killall -1 qmail-send"; when that fails, logs "Reload of
// qmail-send failed, performing full restart" (info) and returns
// restart_qmail(). 0 on success.
int reload_qmail_send();
// "/opt/qvt/admin/sbin/crelmrc qmail restart": its exit status or -1.
int restart_qmail();
