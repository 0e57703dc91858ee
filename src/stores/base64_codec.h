// Base64 coding of the stored password fields: the standard alphabet with
// "=" padding to a multiple of four characters and no line breaks.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

// The Base64 text of data (empty for empty data).
std::string base64_encode(std::span<const unsigned char> data);

// The number of bytes a well-formed Base64 text stands for.
std::size_t base64_decoded_size(std::string_view text);

// The bytes of a Base64 text, or nullopt when the text is not well-formed
// (length not a multiple of four, a character outside the alphabet, "="
// anywhere but in the last two places).
std::optional<std::vector<unsigned char>> base64_decode(std::string_view text);
