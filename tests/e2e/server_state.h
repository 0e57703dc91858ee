// A mail server as the panel leaves it after a while, and everything a
// command can change on it, read back in full.
//
// seed_server_state() writes a realistic starting state straight into the
// sandbox trees and stores, in the forms sorvane itself writes them: the
// domain example.test with the domain aliases alias-one.test and
// alias-two.test, three mail names with mail aliases and mailboxes (info with
// sales and office, john with j.doe, box with abuse), a neighbour domain
// (neighbour.test with its own info) that no command on example.test may
// touch, handlers, key directories and authentication rows for every address.
//
// read_server_state() reads back the control files, assign, every file and
// directory below the mail names directory (with owner and mode), the key
// directories, the rows of the three stores (passwords deciphered with the
// openssl program from the key file, independently of sorvane) and the calls
// the recording fakes received. expect_server_state() compares two states
// field by field, so that a failure names what differs.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "support/sandbox.h"

namespace sorvane::test {

inline const std::string kDomain = "example.test";
inline const std::string kAliasOne = "alias-one.test";
inline const std::string kAliasTwo = "alias-two.test";
inline const std::string kNeighbour = "neighbour.test";
inline const std::string kMailnamesDir = "/var/qmail/mailnames";
inline const std::string kDefaultBounce = "|bouncesaying This\\ address\\ no\\ longer\\ accepts\\ mail.\n";

struct SeededMail {
    std::string name;
    std::vector<std::string> aliases;
    std::int64_t quota;  // bytes as stored in the quota store
    std::string password;
};

// The mail names of example.test in the seeded state, in the order they
// were added.
const std::vector<SeededMail>& seeded_mails();
// The one mail name of neighbour.test.
const SeededMail& neighbour_mail();

// The size of the one message each seeded mailbox holds.
std::size_t seeded_message_size();

// Every local part with an address at a domain of example.test: each mail
// name followed by its aliases, in seeded order.
std::vector<std::string> seeded_local_parts();
// The password that the address local@<any domain of example.test> has.
std::string seeded_password(const std::string& local);

// The --mail-addresses value and the JSON document that describe the
// seeded example.test (with its two domain aliases).
std::string seeded_mail_addresses();
std::string seeded_document(const std::string& domain = kDomain,
                            const std::vector<std::string>& aliases = {kAliasOne, kAliasTwo});

// Writes the whole starting state (on top of the fresh sandbox trees).
void seed_server_state();
// A server without domains: the runtime configuration, empty stores with
// their schemas and key file, ".default_delivery", empty rcpthosts and
// virtualdomains, and locals holding "localhost".
void seed_empty_server();

// Pieces of the seeding, for tests that build other states.
void seed_mail_tree(const std::string& domain, const std::string& mailname);
void seed_key_dir(const std::string& domain);
void seed_auth_user(const std::string& local, const std::string& domain, const std::string& password);
void seed_handler(const std::string& address);

// One full picture of what a command can change.
struct ServerState {
    std::string rcpthosts;
    std::string virtualdomains;
    std::string locals;
    std::string rejectnonexist;
    std::string assign;
    std::string mail_tree;  // one line per entry below the mail names directory
    std::string key_dirs;   // one line per entry below /etc/domainkeys
    std::string quota_rows;
    std::string handler_rows;
    std::string auth_domains;
    std::string auth_users;  // with passwords deciphered
    std::vector<std::string> qmail_newu_calls;
    std::vector<std::string> killall_calls;
    std::vector<std::string> crelmrc_calls;
};

ServerState read_server_state();
void expect_server_state(const ServerState& actual, const ServerState& expected);

// Single readers, each in the form ServerState holds.
std::string control_file(const std::string& path);  // "<absent>" when missing
std::string mail_tree_listing();
std::string key_dirs_listing();
std::string quota_rows();
std::string handler_rows();
std::string auth_domains();
std::string auth_users();

// A stored password deciphered by the openssl program with the store's key.
std::string decipher_password(const std::string& stored);
// The same for several, in one run of the shell.
std::vector<std::string> decipher_passwords(const std::vector<std::string>& stored);

// Row texts as the readers print them, for building expected states.
std::string quota_row(const std::string& domain, const std::string& mailbox, const std::string& quota);
std::string handler_row(const std::string& address, bool enabled = true);
std::string auth_domain_row(const std::string& domain, int status = 0);
std::string auth_user_row(const std::string& local, const std::string& domain, const std::string& password,
                          int domain_status = 0);

// The listing lines of the seeded tree of one mail name, of a domain
// directory (with its ".qmail-default" when given) and of a key directory.
std::string mail_tree_lines(const std::string& domain, const std::string& mailname);
std::string domain_dir_lines(const std::string& domain, const std::string& qmail_default);
std::string key_dir_lines(const std::string& domain);
// ".default_delivery" at the top of the mail names directory.
std::string default_delivery_lines();
// A domain directory with the seeded trees of mailnames in it.
std::string domain_tree_lines(const std::string& domain, const std::string& qmail_default,
                              const std::vector<std::string>& mailnames);
// The seeded mail names of example.test, and the neighbour's whole directory.
std::vector<std::string> seeded_mailnames();
std::string neighbour_tree_lines();
// Listing lines put in the order the readers give them.
std::string sorted_lines(const std::string& text);

// The assign records sorvane writes.
std::string domain_record(const std::string& domain);
std::string mailname_record(const std::string& domain, const std::string& key, const std::string& mailname);

// How one domain of the seeded picture shows in the stores: its name, the
// status of its authentication row and whether its handlers are on.
struct DomainView {
    std::string domain;
    int auth_status = 0;
    bool handlers_enabled = true;
};

// Store rows for example.test's addresses (every seeded local part) at each
// of domains, together with the neighbour's rows (and the global handler),
// in the readers' order.
std::string expected_auth_domains(const std::vector<DomainView>& domains);
std::string expected_auth_users(const std::vector<DomainView>& domains);
std::string expected_handler_rows(const std::vector<DomainView>& domains);
// The quota rows of the seeded mail names under domain (none when empty),
// with the neighbour's.
std::string expected_quota_rows(const std::string& domain);
// The key directories of domains and of the neighbour.
std::string expected_key_dirs(const std::vector<std::string>& domains);

// What read_server_state() gives right after seed_server_state().
ServerState seeded_server_state();

// Runs sorvane with text on a pipe as its standard input.
ProcessResult run_sorvane_with_input(const std::vector<std::string>& args, const std::string& input);

}  // namespace sorvane::test
