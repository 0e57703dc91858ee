// The value of a domain name option (--domain-name and its relatives).
#pragma once

#include <boost/any.hpp>

#include <string>
#include <vector>

namespace crelm::mail::sorvane_commands {

// A mail domain name in its ASCII (IDNA) form, lower-cased and checked.
class DomainNameTOpt {
public:
    DomainNameTOpt() = default;

    // Converts the text of an option. Throws
    // boost::program_options::invalid_option_value unless the text is one
    // word, crelm::idn::IdnaError when IDNA cannot convert it, and
    // std::runtime_error "<converted name> - domain has incorrect format."
    // when the converted name breaks the domain-name rules.
    static DomainNameTOpt from_option_text(const std::string& text);

    const std::string& str() const { return name_; }

private:
    explicit DomainNameTOpt(std::string name) : name_(std::move(name)) {}
    std::string name_;
};

// Lets the option parser build the value from its text (found by
// argument-dependent lookup); a repeated option is the parser's error.
void validate(boost::any& value, const std::vector<std::string>& texts, DomainNameTOpt*, int);

}  // namespace crelm::mail::sorvane_commands
