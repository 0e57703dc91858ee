// The value of a mail name option (--mailname, --alias and their relatives).
#pragma once

#include <boost/any.hpp>

#include <string>
#include <vector>

namespace crelm::mail::sorvane_commands {

// The local part of an address (no at sign, no domain), lower-cased and
// checked. Local parts are never IDNA-converted.
class MailNameTOpt {
public:
    MailNameTOpt() = default;

    // Converts the text of an option. Throws
    // boost::program_options::invalid_option_value unless the text is one
    // word, and std::runtime_error
    // "<lower-cased name> - local part of mailname has incorrect format."
    // when the name breaks the local-part rules.
    static MailNameTOpt from_option_text(const std::string& text);

    const std::string& str() const { return name_; }

private:
    explicit MailNameTOpt(std::string name) : name_(std::move(name)) {}
    std::string name_;
};

// Lets the option parser build the value from its text (found by
// argument-dependent lookup); a repeated option is the parser's error.
void validate(boost::any& value, const std::vector<std::string>& texts, MailNameTOpt*, int);

}  // namespace crelm::mail::sorvane_commands
