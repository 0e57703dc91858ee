#include "stores/base64_codec.h"

#include <openssl/evp.h>

#include <algorithm>

namespace {

constexpr std::string_view kAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
// EVP's block coder takes int lengths: longer data goes through in pieces
// of whole groups (3 bytes to 4 characters).
constexpr std::size_t kGroupsPerPiece = 1 << 20;

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
    auto* out = reinterpret_cast<unsigned char*>(text.data());
    for (std::size_t done = 0; done < data.size();) {
        const std::size_t piece = std::min(data.size() - done, 3 * kGroupsPerPiece);
        out += EVP_EncodeBlock(out, data.data() + done, static_cast<int>(piece));
        done += piece;
    }
    text.resize(text.size() - 1);
    return text;
}

std::size_t base64_decoded_size(std::string_view text) {
    const std::size_t whole_groups = text.size() / 4 * 3;
    return whole_groups - std::min(whole_groups, padding_length(text));
}

std::optional<std::vector<unsigned char>> base64_decode(std::string_view text) {
    if (!is_well_formed(text))
        return std::nullopt;
    std::vector<unsigned char> data(text.size() / 4 * 3 + 1);
    unsigned char* out = data.data();
    for (std::size_t done = 0; done < text.size();) {
        const std::size_t piece = std::min(text.size() - done, 4 * kGroupsPerPiece);
        const int length =
            EVP_DecodeBlock(out, reinterpret_cast<const unsigned char*>(text.data() + done), static_cast<int>(piece));
        if (length < 0)
            return std::nullopt;
        out += length;
        done += piece;
    }
    // EVP_DecodeBlock counts the bytes that the padding stands for as zeros.
    data.resize(base64_decoded_size(text));
    return data;
}
