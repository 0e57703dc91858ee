// How the mailbox accounting tells the operator about a failure: through the
// command layer's error stream (standard error at once, repeated on standard
// output), one line per message.
#pragma once

#include <string_view>

// Writes text, adds a newline unless it ends in one, and flushes.
void mailbox_report(std::string_view text);
