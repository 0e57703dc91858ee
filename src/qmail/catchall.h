// What a catch-all address of a domain must look like.
#pragma once

#include <string>

// True when address has a local part and a domain, both non-empty, on the
// two sides of its first "@" ("info@example.test"); false for "info",
// "@example.test" and "info@". Mail for unknown names is passed on to this
// address, so one without either part would forward nowhere.
bool has_local_part_and_domain(const std::string& address);
