// Running the built sorvane-auth the way the mail server runs it: the login
// on descriptor 3 (a pipe holding exactly the given bytes), the program to
// run after it, and a constant database written from records for the
// lookups of users/cdb.
#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "support/sandbox.h"

namespace sorvane::test {

std::string sorvane_auth_path();

// "login\0password\0".
std::string login_input(const std::string& login, const std::string& password);

struct AuthRunOptions {
    // Bytes on descriptor 3; nullopt leaves descriptor 3 closed.
    std::optional<std::string> input;
    // The program sorvane-auth runs on success, with its arguments (empty:
    // none given). /usr/bin/env prints the environment it was given.
    std::vector<std::string> program{"/usr/bin/env"};
    // Extra "NAME=value" entries of the environment.
    std::vector<std::string> env;
    // Run in front of sorvane-auth (strace, setpriv ...).
    std::vector<std::string> prefix;
};

ProcessResult run_auth(const AuthRunOptions& options);

// A login with /usr/bin/env as the program.
ProcessResult log_in(const std::string& login, const std::string& password, std::vector<std::string> env = {});

// The value of NAME in env's output, nullopt when it is not there.
std::optional<std::string> env_value(const std::string& env_output, const std::string& name);

// A constant database holding records, in the format of qmail's users/cdb.
std::string make_cdb(const std::vector<std::pair<std::string, std::string>>& records);

// users/cdb compiled from users/assign, as qmail-newu compiles it: each
// "=" record under "!" + its local part + "\0", its fields separated by
// zero bytes.
void compile_users_cdb();

}  // namespace sorvane::test
