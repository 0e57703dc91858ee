// Text written as a JSON string, for the audit's line-by-line documents.
#pragma once

#include <string>
#include <string_view>

namespace crelm::audit {

// Whether text is well-formed UTF-8 (no overlong form, no surrogate, nothing
// above U+10FFFF): only such text goes into a JSON string byte for byte.
bool is_utf8_text(std::string_view text);

// text as a JSON string: quotes, backslashes and control characters (below
// 0x20, and DEL) escaped, every other byte as it is. The caller makes sure
// that text is UTF-8 (is_utf8_text).
std::string json_quoted(std::string_view text);

}  // namespace crelm::audit
