// Strings and numbers of the JSON reader.
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "session/json_reader.h"
#include "session/json_reader_internal.h"

namespace crelm::mail {
namespace {

// A byte that is copied as it stands: printable ASCII but the quote and
// the backslash.
bool is_plain_string_byte(char byte) {
    static constexpr auto kPlain = [] {
        std::array<bool, 256> plain{};
        for (int byte = 32; byte < 127; ++byte) {
            plain[static_cast<std::size_t>(byte)] = byte != '"' && byte != '\\';
        }
        return plain;
    }();
    return kPlain[static_cast<unsigned char>(byte)];
}

// The byte a simple escape stands for, or -1 when the escape is not one.
int simple_escape(char escaped) {
    switch (escaped) {
        case '"': return '"';
        case '\\': return '\\';
        case '/': return '/';
        case 'b': return 8;
        case 'f': return 12;
        case 'n': return 10;
        case 'r': return 13;
        case 't': return 9;
        default: return -1;
    }
}

// Decodes the escape whose backslash `read` points at into *write. On
// success moves `read` past what it consumed. On failure records the code
// with the position at the escaped character.
bool decode_escape(JsonReader& reader, char*& read, char*& write) {
    char* escaped = read + 1;
    if (*escaped == 'u') {
        // Only "\u0000" is understood, and only the backslash and the u are
        // consumed: the four zeros stay in the text after the zero byte.
        if (std::strncmp(escaped + 1, "0000", 4) != 0) {
            reader.position = escaped;
            return json_fail(reader, JsonError::UnsupportedUnicode);
        }
        *write++ = '\0';
        read = escaped + 1;
        return true;
    }
    const int byte = simple_escape(*escaped);
    if (byte < 0) {
        reader.position = escaped;
        return json_fail(reader, *escaped == '\0' ? JsonError::PrematureEnd : JsonError::InvalidEscape);
    }
    *write++ = static_cast<char>(byte);
    read = escaped + 1;
    return true;
}

// A byte that cannot stand raw in a string: the end of the buffer, a
// control byte, or a byte of a UTF-8 sequence (names must arrive in their
// ASCII form).
bool string_byte_fails(JsonReader& reader, char* read) {
    const auto byte = static_cast<unsigned char>(*read);
    if (byte >= 32 && byte < 127) {
        return false;
    }
    reader.position = read;
    if (byte == 0) {
        json_fail(reader, JsonError::PrematureEnd);
    } else {
        json_fail(reader, byte > 127 ? JsonError::UnsupportedUnicode : JsonError::InvalidCharacter);
    }
    return true;
}

// After a number: a point or an exponent means a floating-point number.
bool number_ends_cleanly(JsonReader& reader, char* end) {
    reader.position = end;
    if (*end == '.' || *end == 'e' || *end == 'E') {
        return json_fail(reader, JsonError::InvalidNumberFormat);
    }
    return true;
}

// errno is deliberately not cleared here: the caller clears it before a
// document is read, and a range error is the only errno this code reads.
template <typename Number, typename Convert>
bool read_number(JsonReader& reader, Number& value, Convert convert) {
    char* end = nullptr;
    const Number converted = convert(reader.position, &end, 0);
    if (end == reader.position) {
        return json_fail(reader, JsonError::NumberExpected);
    }
    if (errno == ERANGE) {
        return json_fail(reader, JsonError::NumberOutOfRange);
    }
    if (!number_ends_cleanly(reader, end)) {
        return false;
    }
    value = converted;
    return true;
}

}  // namespace

char* json_string(JsonReader& reader, std::size_t* length) {
    if (!json_reader_ready(reader)) {
        return nullptr;
    }
    if (*reader.position != '"') {
        json_fail(reader, *reader.position == '\0' ? JsonError::PrematureEnd : JsonError::StringExpected);
        return nullptr;
    }
    char* const text = reader.position + 1;
    char* read = text;
    while (is_plain_string_byte(*read)) {
        ++read;  // nothing to move until the first escape
    }
    char* write = read;
    bool escaped = false;
    while (*read != '"') {
        if (*read == '\\') {
            if (!decode_escape(reader, read, write)) {
                return nullptr;
            }
            escaped = true;
        } else if (string_byte_fails(reader, read)) {
            return nullptr;
        } else {
            *write++ = *read++;
        }
    }
    *write = '\0';
    reader.position = read + 1;
    if (length != nullptr) {
        *length = escaped ? std::strlen(text) : static_cast<std::size_t>(write - text);
    }
    return text;
}

bool json_int64(JsonReader& reader, std::int64_t& value) {
    if (!json_reader_ready(reader)) {
        return false;
    }
    long long converted = 0;
    if (!read_number(reader, converted, std::strtoll)) {
        return false;
    }
    value = converted;
    return true;
}

bool json_uint64(JsonReader& reader, std::uint64_t& value) {
    if (!json_reader_ready(reader)) {
        return false;
    }
    if (*reader.position == '-') {
        return json_fail(reader, JsonError::InvalidNumberFormat);
    }
    unsigned long long converted = 0;
    if (!read_number(reader, converted, std::strtoull)) {
        return false;
    }
    value = converted;
    return true;
}

}  // namespace crelm::mail
