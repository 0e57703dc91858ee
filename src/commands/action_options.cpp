#include "commands/action_options.h"

#include <boost/program_options/value_semantic.hpp>
#include <syslog.h>

#include <optional>
#include <string>

#include "commands/missing_mandatory_option.h"
#include "qmail/catchall.h"
#include "qmail/mailname_files.h"
#include "runtime/control_bytes.h"
#include "runtime/errors.h"
#include "runtime/idn.h"
#include "runtime/log.h"

namespace po = boost::program_options;

namespace crelm::mail::sorvane_commands {
namespace {

std::string text_option(const CommandOptions& options, const char* name) {
    return options.has(name) ? options.values()[name].as<std::string>() : std::string();
}

// A bounce phrase goes into a shell command line of ".qmail-default" and a
// catch-all address into its forward line; a control byte in either (a
// carriage return, an escape sequence) has no meaning for mail and only
// hides what the line does from whoever reads it. what is "Bounce phrase"
// or "Catch-all address"; the text itself is not repeated, so that the
// message carries no control byte either.
void refuse_control_bytes(const char* what, const std::string& text) {
    if (const std::optional<unsigned char> byte = first_control_byte(text))
        throw crelm::CrelmUtilException(std::string(what) + " refused: it holds the control character " +
                                        control_byte_name(*byte));
}

}  // namespace

void add_bounce_options(CommandOptions& options) {
    options.add_flag("set-bounce", "set a domain bounce").add("phrase", po::value<std::string>(), "phrase");
}

void add_catchall_options(CommandOptions& options) {
    options.add_flag("set-catchall", "set a domain catchall address")
        .add("email", po::value<std::string>(), "domain alias name");
}

void add_reject_option(CommandOptions& options) {
    options.add_flag("set-reject", "set domain reject flag");
}

NotexistingAction notexisting_action_from_options(const CommandOptions& options) {
    if (options.has("set-bounce")) {
        const std::string phrase = text_option(options, "phrase");
        refuse_control_bytes("Bounce phrase", phrase);
        return {kNotexistingBounce, phrase};
    }
    if (options.has("set-catchall")) {
        const std::string email = text_option(options, "email");
        if (email.empty())
            throw MissingMandatoryOption("email");
        refuse_control_bytes("Catch-all address", email);
        if (!has_local_part_and_domain(email))
            throw crelm::CrelmUtilException("Catch-all address " + email +
                                            " refused: it needs a local part and a domain");
        return {kNotexistingForward, idn_email_toascii_safe(email)};
    }
    if (options.has("set-reject"))
        return {kNotexistingReject, std::string()};
    log_message(LOG_ERR,
                "Action for notexisting mail names is not specified (--set-bounce/--set-catchall/--set-reject)");
    // The option text closes and reopens the quotes that the message puts
    // around it, so that all three switches show quoted.
    throw MissingMandatoryOption("set-bounce\" or \"--set-catchall\" or \"--set-reject");
}

}  // namespace crelm::mail::sorvane_commands
