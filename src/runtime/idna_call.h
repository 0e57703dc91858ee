// The one place where libidn's converters are called; both layers of the IDN
// helpers go through it.
#pragma once

#include <optional>
#include <string>

enum class IdnaDirection { ToAscii, ToUnicode };

struct IdnaResult {
    int status = 0;
    std::optional<std::string> text;  // what the library returned, if anything
};

// Runs idna_to_ascii_8z or idna_to_unicode_8z8z with flags 0. A name with a
// zero byte gets status 3 without a library call.
IdnaResult call_idna(const std::string& name, IdnaDirection direction);
