// Line rewrites of control files for a domain rename: whole lines taken out,
// put at the end or renamed, and the two sides of a virtualdomains line.
// Names are compared byte for byte.
#pragma once

#include <string>

#include "util/line_rewrite.h"

namespace crelm::qmail {

// Every line that is exactly line goes.
crelm::util::LineRewrite drop_line(const std::string& line);

// line is added after the last line (an empty file stays empty).
crelm::util::LineRewrite append_line(const std::string& line);

// Every line that is exactly from becomes to.
crelm::util::LineRewrite rename_whole_line(const std::string& from, const std::string& to);

// A line that begins with "<from>:" begins with "<to>:" instead; then a line
// that ends with ":<from>" ends with ":<to>" instead.
crelm::util::LineRewrite rename_virtual_domain(const std::string& from, const std::string& to);

}  // namespace crelm::qmail
