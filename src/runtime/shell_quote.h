// Quoting of text for a shell command line (the command lines of dot-qmail
// files), driven by one 256-entry table of byte classes:
//   '-' ordinary, copied as is;
//   '*' escaped with a backslash: tab, blank, " # $ & ' ( ) * ; < > ? [ \ ` | ~
//       and { } ! ^;
//   'n' enclosed in single quotes: the newline, every other control byte
//       below blank except tab, and DEL (127).
// Bytes above 127 are ordinary: neither dash nor bash gives them a meaning.
#pragma once

#include <string>
#include <string_view>

// The class table in use: 256 characters, one per byte value.
std::string_view shell_char_classes();

// The class of one byte ('-', '*' or 'n').
char shell_char_class(unsigned char byte);

// Backslash form: '*' bytes get a backslash in front, 'n' bytes are put in
// single quotes, the rest is copied. An empty text gives an empty result.
std::string shell_escape(std::string_view text);

// Single-quote form: the text in single quotes, each single quote inside
// written as '\''. An empty text gives ''.
std::string shell_quote(std::string_view text);

// True for a null or empty text and for one made only of ordinary bytes.
bool shell_is_plain(const char* text);
bool shell_is_plain(std::string_view text);

// True when shell_is_plain; otherwise throws std::runtime_error
// "Internal error: bad escape_chars value".
bool shell_require_plain(const char* text);
bool shell_require_plain(std::string_view text);
