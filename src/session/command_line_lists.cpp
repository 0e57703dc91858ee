#include "session/command_line_lists.h"

#include <boost/algorithm/string/classification.hpp>
#include <boost/algorithm/string/split.hpp>
#include <boost/program_options/value_semantic.hpp>

#include <algorithm>
#include <cctype>
#include <optional>
#include <stdexcept>

#include "runtime/idn.h"
#include "runtime/name_rules.h"

namespace crelm::mail {
namespace {

constexpr const char* kPieceSeparators = " \t,";

std::vector<std::string> split_pieces(std::string_view text) {
    std::vector<std::string> pieces;
    boost::split(pieces, text, boost::is_any_of(kPieceSeparators), boost::token_compress_on);
    std::erase_if(pieces, [](const std::string& piece) { return piece.empty(); });
    return pieces;
}

}  // namespace

MailDbDomainAliasesList::MailDbDomainAliasesList(std::string_view text) : aliases_(split_pieces(text)) {}

MailDbMailAddressesList::MailDbMailAddressesList(std::string_view text) {
    std::vector<std::string> groups;
    boost::split(groups, text, boost::is_any_of(";"));
    for (const std::string& group : groups) {
        std::vector<std::string> pieces = split_pieces(group);
        if (pieces.empty()) {
            continue;
        }
        withMailname(pieces.front());
        for (std::size_t i = 1; i < pieces.size(); ++i) {
            withMailAlias(pieces[i]);
        }
    }
}

MailDbMailAddressesList& MailDbMailAddressesList::withMailname(std::string_view name) {
    for (current_ = 0; current_ < mails_.size(); ++current_) {
        if (mails_[current_].name == name) {
            return *this;
        }
    }
    mails_.push_back(MailDbMailAddress{std::string(name), {}});
    return *this;
}

MailDbMailAddressesList& MailDbMailAddressesList::withMailAlias(std::string_view alias) {
    if (current_ >= mails_.size()) {
        throw std::logic_error("Programming error: withMailAlias() must be called after withMailname()");
    }
    mails_[current_].aliases.emplace_back(alias);
    return *this;
}

namespace {

// The names go into control files, assign and paths, so a piece holding a
// line break, a slash or any other stray character must stop the command
// before anything is written. A domain alias is checked in the form it is
// written in (ASCII, lower case), as --domain-name is; a mail name or alias
// as --mailname is.
bool is_valid_alias_domain(const std::string& alias) {
    std::optional<std::string> ascii = idn_toascii(alias);
    if (!ascii)
        return false;
    std::transform(ascii->begin(), ascii->end(), ascii->begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return is_valid_domain_name(*ascii);
}

}  // namespace

void validate(boost::any& value, const std::vector<std::string>& texts, MailDbDomainAliasesList*, int) {
    boost::program_options::validators::check_first_occurrence(value);
    const std::string& text = boost::program_options::validators::get_single_string(texts);
    MailDbDomainAliasesList list(text);
    for (const std::string& alias : list.aliases()) {
        if (!is_valid_alias_domain(alias))
            throw boost::program_options::invalid_option_value(text);
    }
    value = std::move(list);
}

void validate(boost::any& value, const std::vector<std::string>& texts, MailDbMailAddressesList*, int) {
    boost::program_options::validators::check_first_occurrence(value);
    const std::string& text = boost::program_options::validators::get_single_string(texts);
    MailDbMailAddressesList list(text);
    for (const MailDbMailAddress& mail : list.mails()) {
        if (!is_valid_mail_name(mail.name))
            throw boost::program_options::invalid_option_value(text);
        for (const std::string& alias : mail.aliases) {
            if (!is_valid_mail_name(alias))
                throw boost::program_options::invalid_option_value(text);
        }
    }
    value = std::move(list);
}

}  // namespace crelm::mail
