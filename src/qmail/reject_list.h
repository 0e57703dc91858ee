// The lines of qmail's rejectnonexist, one ASCII domain a line: mail to a
// name that a listed domain does not have is refused at once.
#pragma once

#include "qmail/mailname_files.h"

#include <optional>
#include <string>
#include <vector>

namespace crelm::qmail {

// Switches the lines of the named domains (any form; written in
// lower-case ASCII): on leaves each present exactly once, off takes each
// out. Missing file created 0644 first. 0, or -1 after "set_reject: Unable
// to create %s file." or "set_reject: Unable to update %s file.".
int set_reject_lines(const std::vector<std::string>& domains, RejectSwitch state);

// The domain followed by its domain aliases from the session; nullopt
// when the aliases could not be had (the session layer said why).
std::optional<std::vector<std::string>> domain_with_aliases(const std::string& domain);

// Takes the reject lines a bounce or catch-all replaces away: those of the
// domain and its aliases, or the domain's own. 0 or -1.
int clear_reject_for(const std::string& domain, RejectCleanup cleanup);

}  // namespace crelm::qmail
