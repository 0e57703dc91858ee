// What a batch prints for each command it ran.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace crelm::mail::sorvane_commands {

// bytes as a JSON string (with its quotes), in printable ASCII alone: '"',
// '\\' and the control characters escaped, every other character of valid
// UTF-8 as its \u escape (a surrogate pair beyond U+FFFF); a byte that is
// not part of valid UTF-8 reads as U+FFFD, since JSON text is Unicode.
std::string json_quoted(std::string_view bytes);

// {"line": N, "status": S, "stdout": "...", "stderr": "..."} and a line feed.
std::string batch_output_object(std::size_t line, int status, std::string_view out, std::string_view err);

}  // namespace crelm::mail::sorvane_commands
