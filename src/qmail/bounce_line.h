// The bounce line of a domain's ".qmail-default".
#pragma once

#include <string>

namespace crelm::qmail {

inline constexpr const char* kDefaultBounceMessage = "This address no longer accepts mail.";

// "|bouncesaying <message>": the default message for an empty one, every
// newline made a space, then quoted so that /bin/sh, dash or bash, hands
// the text to bouncesaying as it is and runs nothing of it.
std::string bounce_line(const std::string& message);

}  // namespace crelm::qmail
