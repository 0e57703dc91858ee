// Comparing a password with the one a login must match.
#pragma once

#include <string_view>

namespace crelm::auth {

// Whether a and b are the same text, in a time that tells nothing about
// either text nor about where they differ: both are hashed with SHA-256 and
// the two digests, of equal length whatever the texts' lengths, compared
// with CRYPTO_memcmp. The digests are wiped afterwards.
bool same_secret(std::string_view a, std::string_view b);

}  // namespace crelm::auth
