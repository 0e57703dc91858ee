// Whether a path lies in the mail users' trees, where a file may be
// anything a mail user made of it.
#pragma once

#include <string>

namespace crelm::qmail {

// true when path names something below the mail names directory.
bool is_in_mail_tree(const std::string& path);

}  // namespace crelm::qmail
