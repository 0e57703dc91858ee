// The text form of a quota in the mailbox quota store: a decimal number of
// bytes followed by "B" when written; digits and a unit when read back.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

// "<bytes>B" with no padding; a negative quota is written as "0B".
std::string quota_text(std::int64_t bytes);

// The bytes of a stored quota text: its leading decimal digits times the
// multiplier of the rest, the unit ("" and "B" 1, "KB" 1024, "MB", "GB" and
// "TB" the next powers of 1024; any other unit 0). Returns -1 after logging
// "Failed to parse quota value: <reason>" when there are no digits or the
// value is out of range.
std::int64_t parse_quota_text(std::string_view text);

// The same reading without the log record, for readers that must not write
// one: the bytes, or nullopt with the reason in failure.
std::optional<std::int64_t> quota_text_bytes(std::string_view text, std::string* failure = nullptr);
