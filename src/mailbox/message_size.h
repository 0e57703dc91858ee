// How one Maildir message counts towards the Maildir++ totals, by the same
// rules as the delivery agent's own recount, so that the totals this program
// writes into "maildirsize" are the ones the agent would find.
#pragma once

#include <optional>
#include <string_view>

namespace crelm::mailbox {

// The size a message's file name carries. Only the part of the name before
// its first ":" is looked at; the last ",S=" in it starts the size, which is
// the run of digits right after it (0 when there is none: ",S=abc", ",S=",
// ",S=-5"; 12 for ",S=12x"). Digits beyond 64 bits wrap around as the
// agent's do, the result read as a signed number. nullopt when that part
// holds no ",S=" (the caller then takes the file's own size).
std::optional<long long> size_from_message_name(std::string_view name);

// Whether the message is marked as deleted ("trashed"): the name holds ":2,"
// and the run of capital letters right after the first one includes "T"
// (":2,ST" yes; ":2,S:2,T", ":2,aT" and ":1,T" no). Trashed messages are
// left out of the totals.
bool is_trashed_message_name(std::string_view name);

}  // namespace crelm::mailbox
