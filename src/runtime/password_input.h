// The mailbox password, which reaches the program only through the
// environment: QVT_PASSWORD (plain text) or QVT_CRYPTED_PASSWORD (already
// hashed), never on the command line. Nothing here hashes: the
// authentication store keeps a plain password enciphered under its key and
// a crypted one as it was given.
//
// The first call of any function below takes both variables out of the
// environment at once (their values are also wiped from the process's
// environment block), so that no child process and no reader of
// /proc/<pid>/environ ever sees them; the values are kept for the process and
// every later call answers from them. Not reentrant.
#pragma once

#include <optional>
#include <string>

// Takes both variables out of the environment now and keeps their values for
// the functions below (the program does it first thing, so that no command,
// whether it reads a password or not, hands them to a child).
void take_password_variables();

// Replaces the values taken from the environment (which are wiped) with the
// given ones, as if they had been the variables' values: an empty value
// counts as unset. A command of a batch gets its own password this way,
// without it ever being in an environment.
void replace_password_input(std::optional<std::string> plain, std::optional<std::string> crypted);

// The value of QVT_PASSWORD (cut to 4095 characters), empty if unset.
const std::string& get_plain_password();

enum class PasswordForm { Plain, Crypted };

// QVT_PASSWORD if set and not empty (form Plain), else QVT_CRYPTED_PASSWORD
// if set and not empty (form Crypted), into out. Returns 0; -1 when neither
// is given (out and form untouched).
int take_password(std::string& out, PasswordForm& form);
