// Names as they appear in the mail names tree: domains in lower-case ASCII,
// mail names lower-cased.
#pragma once

#include <optional>
#include <string>

namespace crelm::qmail {

std::string lower_case(std::string text);

// The domain's ASCII form, lower-cased; nullopt after logging
// "idn_toascii(%s) failed: %s".
std::optional<std::string> ascii_domain(const std::string& domain);

}  // namespace crelm::qmail
