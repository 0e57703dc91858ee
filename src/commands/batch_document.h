// The batch document: one JSON object per line, each one command.
//
//   {"args": ["--add-mailbox", "--domain-name=example.test", "--mailname=info"],
//    "password": "secret", "stdin": "{...}"}
//
// "args" (required) is a non-empty array of strings, the command switch
// first; "password" and "crypted_password" (optional strings) stand for
// QVT_PASSWORD and QVT_CRYPTED_PASSWORD; "stdin" (optional string) is all
// that the command reads on standard input, which is empty without it. No
// other member is taken, none twice, and no string holds a NUL byte (an
// argument could not carry it).
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace crelm::mail::sorvane_commands {

struct BatchCommand {
    std::size_t line = 0;  // 1-based line number in the document
    std::vector<std::string> args;
    std::optional<std::string> password;
    std::optional<std::string> crypted_password;
    std::optional<std::string> stdin_text;

    // Overwrites both passwords with zero bytes and forgets them.
    void wipe_passwords();
};

// Reads one line (without its line feed) into command. Returns true, or
// false with the reason in reason (command then partly filled).
bool parse_batch_line(std::string_view text, BatchCommand& command, std::string& reason);

struct BatchDocument {
    std::vector<BatchCommand> commands;
    std::size_t failed_line = 0;  // 0 when every line was read
    std::string reason;           // why failed_line was refused
};

// Splits text into lines (a last line without its line feed counts; the
// line feed ending the text does not start another) and reads each; stops
// at the first line refused.
BatchDocument parse_batch_document(std::string_view text);

}  // namespace crelm::mail::sorvane_commands
