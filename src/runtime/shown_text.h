// Text that came from the server or from a caller (file names, control-file
// lines, store rows, dot-qmail contents, a login as the mail server passed
// it), made safe to show: no report line or log line spans two lines, no
// byte reaches an operator's terminal as a control sequence, and a JSON
// report stays valid UTF-8.
#pragma once

#include <string>
#include <string_view>

namespace crelm {

// For the text report: printable ASCII stays as it is; the backslash is
// written "\\" (so an escape is never confused with the same characters in
// a name), newline "\n", carriage return "\r", tab "\t", and every other
// byte (other control bytes, DEL, anything above 0x7f) "\xNN" in lower-case
// hex.
std::string shown_text(std::string_view text);

// For the JSON report: a JSON string literal, quotes included. The value
// it decodes to is the text itself, except that a backslash is written
// "\\" and a byte that is not part of a valid UTF-8 sequence "\xNN", as in
// the text report; control bytes (C0, DEL and U+0080 to U+009F) are sent
// as JSON \u escapes, so that the document itself carries none.
std::string json_shown_string(std::string_view text);

// A JSON string literal of text that is printable ASCII by construction
// (codes, severities, quoted command lines): quotes and backslashes
// escaped, the rest as it is (text that is not printable ASCII after all
// is written as json_shown_string writes it).
std::string json_plain_string(std::string_view text);

}  // namespace crelm
