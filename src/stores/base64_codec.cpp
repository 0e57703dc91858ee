#include "stores/base64_codec.h"

#include <openssl/evp.h>

#include <algorithm>
#include <cstring>

namespace {

constexpr std::string_view kAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

std::size_t padding_length(std::string_view text) {
    if (text.ends_with("=="))
        return 2;
    return text.ends_with('=') ? 1 : 0;
}

// EVP_DecodeBlock skips surrounding blanks and accepts stray padding, which
// a stored field never holds: check the shape before handing it over.
bool is_well_formed(std::string_view text) {
    if (text.size() % 4 != 0)
        return false;
    const std::string_view body = text.substr(0, text.size() - padding_length(text));
    return std::all_of(body.begin(), body.end(), [](char c) { return kAlphabet.find(c) != std::string_view::npos; });
}

}  // namespace

std::string base64_encode(std::span<const unsigned char> data) {
    std::string text((data.size() + 2) / 3 * 4 + 1, '\0');
    const int length =
        EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()), data.data(), static_cast<int>(data.size()));
    text.resize(static_cast<std::size_t>(length));
    return text;
}

std::optional<std::vector<unsigned char>> base64_decode(std::string_view text) {
    if (!is_well_formed(text))
        return std::nullopt;
    std::vector<unsigned char> data(text.size() / 4 * 3 + 1);
    const int length = EVP_DecodeBlock(data.data(), reinterpret_cast<const unsigned char*>(text.data()),
                                       static_cast<int>(text.size()));
    if (length < 0)
        return std::nullopt;
    // EVP_DecodeBlock counts the bytes that the padding stands for as zeros.
    data.resize(static_cast<std::size_t>(length) - padding_length(text));
    return data;
}
