// The command-line forms of the session mail data: the values of
// --domain-aliases and --mail-addresses, usable as program option values.
#pragma once

#include <boost/any.hpp>

#include <string>
#include <string_view>
#include <vector>

namespace crelm::mail {

// "alias1,alias2,...": pieces separated by any of blank, tab and comma;
// empty pieces are dropped.
class MailDbDomainAliasesList {
public:
    MailDbDomainAliasesList() = default;
    explicit MailDbDomainAliasesList(std::string_view text);

    const std::vector<std::string>& aliases() const { return aliases_; }

private:
    std::vector<std::string> aliases_;
};

// One mail name of the command line and its aliases.
struct MailDbMailAddress {
    std::string name;
    std::vector<std::string> aliases;
};

// "mail_name1,alias11,alias12,...;mail_name2,alias21,...;...": groups
// separated by ";", each split like the domain aliases; the first piece of a
// group is the mail name, the others its aliases. A group without pieces is
// dropped. Commands also register their own mail name through the builder.
class MailDbMailAddressesList {
public:
    MailDbMailAddressesList() = default;
    explicit MailDbMailAddressesList(std::string_view text);

    // Makes name the current mail name, adding it unless it is listed
    // already (a command's own mail name often is, with its aliases).
    MailDbMailAddressesList& withMailname(std::string_view name);
    // Adds an alias to the current mail name. Throws std::logic_error
    // "Programming error: withMailAlias() must be called after withMailname()"
    // when there is no current mail name.
    MailDbMailAddressesList& withMailAlias(std::string_view alias);

    const std::vector<MailDbMailAddress>& mails() const { return mails_; }

private:
    std::vector<MailDbMailAddress> mails_;
    std::size_t current_ = 0;  // index of the current mail name, mails_.size() when none
};

// Hooks that let the option parser build the two lists from their option
// text (found by argument-dependent lookup). A repeated option is the
// parser's "multiple occurrences" error; a domain alias that fails the
// domain-name check, or a mail name or alias that fails the local-part check
// (the checks a document on standard input gets), makes the whole value the
// parser's "invalid value" error.
void validate(boost::any& value, const std::vector<std::string>& texts, MailDbDomainAliasesList*, int);
void validate(boost::any& value, const std::vector<std::string>& texts, MailDbMailAddressesList*, int);

}  // namespace crelm::mail
