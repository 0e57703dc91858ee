// The size of one Maildir message as the Maildir++ accounting sees it.
#pragma once

#include <optional>
#include <string_view>

namespace crelm::mailbox {

// The size a message's file name carries: the number after ",S=", which must
// be made of digits and followed by ":" or the end of the name. When the name
// holds several, the last well-formed one wins; a number too large for a
// signed 64-bit size is skipped. nullopt when the name carries none (the
// caller then takes the file's own size).
std::optional<long long> size_from_message_name(std::string_view name);

}  // namespace crelm::mailbox
