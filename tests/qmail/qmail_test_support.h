// Shared helpers of the qmail back-end tests: a logging sandbox test with a
// fresh authentication store, running a piece of the library in a child
// (for the steps that end the program), the mail names tree as the tests
// expect it, and stand-ins for the local delivery agents.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

#include "support/logging_test.h"
#include "support/sandbox.h"

namespace sorvane::test {

inline constexpr const char* kMailnamesDir = "/var/qmail/mailnames";
inline constexpr const char* kAssign = "/var/qmail/users/assign";
inline constexpr const char* kRejectList = "/var/qmail/control/rejectnonexist";
inline constexpr const char* kDefaultDeliveryFile = "/var/qmail/mailnames/.default_delivery";

// A sandbox test that logs to syslog as the program does, with an empty
// authentication store at the qmail paths.
class QmailTest : public LoggingTest {
protected:
    void SetUp() override;
    // The syslog records so far as "<priority> <text>", e.g. "3 Unable to ...".
    std::vector<std::string> logged();
};

// Runs body in a forked child with standard output and standard error
// captured; the child's exit status is body's result (or the status it
// exited with, when body ends the program).
ProcessResult run_in_child(const std::function<int()>& body);

// Gives mailname@domain a row in the authentication store. 0 or -1.
int add_auth_user(const std::string& mailname, const std::string& domain);
// The store's users as "name@domain\n" lines, in row order (sqlite3 program).
std::string auth_users();

// "/var/qmail/mailnames/<domain>", made as the domain addition makes it:
// owner popuser, mode 0700.
std::string make_domain_dir(const std::string& domain);

// "/var/qmail/mailnames/<domain>/<mailname>".
std::string home_of(const std::string& mailname, const std::string& domain);

// The "=" assign record of a mail name (names as written: lower case).
std::string assign_record(const std::string& mailname, const std::string& domain);

// Every path list_tree should give for a new mail name's home: ".qmail",
// the Maildir tree with its folder markers, "@attachments".
std::vector<std::string> expected_home_listing();

// Fails the test unless path has owner popuser, group popuser, mode and type.
void expect_popuser_entry(const std::string& path, mode_t mode, char type);

// Every entry of a mail name's home (itself included) owned by popuser with
// the mode the tree gives it.
void expect_home_owned(const std::string& home);

// Hides whatever the host has in directory for this test: an empty tmpfs
// is mounted over it (the test's mount namespace is its own).
void hide_directory(const std::string& directory);

// The delivery agents: "/usr/bin/deliverquota" and the dovecot one.
inline constexpr const char* kDeliverquotaPath = "/usr/bin/deliverquota";
inline constexpr const char* kDovecotLdaPath = "/usr/lib/dovecot/dovecot-lda";

// Makes path an executable stand-in (a recording fake).
void install_lda(const std::string& path);

// The delivery line the server's setup chose, written to ".default_delivery".
inline constexpr const char* kDeliverquotaLine = "| /usr/bin/deliverquota ./Maildir";

// Writes content as the ".default_delivery" file.
void write_default_delivery(const std::string& content);

}  // namespace sorvane::test
