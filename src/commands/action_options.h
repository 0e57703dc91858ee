// The options that say what a domain does with mail for names it does not
// have: bounce it with a phrase, pass it to a catch-all address, or reject it.
// Commands list them in their own order, so each comes on its own.
#pragma once

#include <string>

#include "commands/command_options.h"

namespace crelm::mail::sorvane_commands {

// --set-bounce, then --phrase.
void add_bounce_options(CommandOptions& options);
// --set-catchall, then --email.
void add_catchall_options(CommandOptions& options);
// --set-reject
void add_reject_option(CommandOptions& options);

// What to do with mail for names a domain does not have: one of the
// kNotexisting* codes of the qmail back end, with the bounce phrase or the
// catch-all address (in ASCII) it needs.
struct NotexistingAction {
    int kind;
    std::string text;
};

// The action the parsed options ask for; the first present of --set-bounce
// (with --phrase, or an empty phrase), --set-catchall and --set-reject wins.
// Throws MissingMandatoryOption for "email" when --set-catchall comes without
// a non-empty --email, CrelmUtilException ("Bounce phrase refused: it holds
// the control character \r", the same with "Catch-all address") when the
// phrase or the address holds a byte below blank or DEL, and
// CrelmUtilException ("Catch-all address <email> refused: it needs a local
// part and a domain") when the address lacks either part, so that nothing is
// changed; with none of the three, logs why
// and throws
// MissingMandatoryOption naming all three. A catch-all address that does not
// convert to ASCII ends the process (idn_email_toascii_safe).
NotexistingAction notexisting_action_from_options(const CommandOptions& options);

}  // namespace crelm::mail::sorvane_commands
