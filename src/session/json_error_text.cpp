// The messages of the reader's error codes.
#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "session/json_reader.h"

namespace crelm::mail {
namespace {

constexpr std::size_t kErrorTextSize = 1024;

const char* const kMessages[] = {
    "OK, no error.",
    "JSON array or object has ended.",
    "JSON document has ended prematurely. Check that all strings are properly ended.",
    "Any value is expected, but was not found.",
    "Number is expected.",
    "Number value is out of range for expected type.",
    "Invalid or unsupported number format. Check that there are no floating point numbers.",
    "String is expected.",
    "Invalid escape sequence found in string.",
    "Invalid character found in string. Check that strings do not contain control characters.",
    "Invalid or unsupported Unicode character or escape sequence found in string. UTF8 encoded characters and "
    "'\\u' escape sequences are not supported.",
    "JSON object is expected.",
    "JSON name separator (':') is expected inside an object.",
    "JSON value separator (',') or end of object is expected.",
    "Some required fields are missing from the JSON object. Check that input JSON document conforms to schema.",
    "JSON array is expected.",
    "JSON value separator (',') or end of array is expected.",
    "Boolean value is expected.",
    "'null' is expected.",
    "'null' is unexpected in this context. Check that input JSON document conforms to schema.",
    "Failed to allocate memory.",
    "Encountered an object field \"%s\" not present in JSON schema. Remove excessive data from input JSON "
    "document or allow skipping unknown fields.",
    "Encountered a duplicate field \"%s\" in a JSON object. Remove duplicates from input JSON document or "
    "disable duplicate fields check.",
    "Custom JSON value constraint failed: %s.",
};

const char* message_of(JsonError error) {
    const auto code = static_cast<std::size_t>(error);
    return code < std::size(kMessages) ? kMessages[code] : "unknown error code";
}

// Appends to the fixed buffer; whatever does not fit is cut off.
class TextBuilder {
public:
    explicit TextBuilder(char* buffer) : buffer_(buffer) { buffer_[0] = '\0'; }

    void append(const char* format, ...) __attribute__((format(printf, 2, 3))) {
        va_list args;
        va_start(args, format);
        const int written = std::vsnprintf(buffer_ + used_, kErrorTextSize - used_, format, args);
        va_end(args);
        if (written > 0) {
            used_ = std::min(kErrorTextSize - 1, used_ + static_cast<std::size_t>(written));
        }
    }

    void append_text(const char* text) { append("%s", text); }

private:
    char* buffer_;
    std::size_t used_ = 0;
};

// Codes 21-23 take the custom text in place of their placeholder; a
// message with a further "%" is printed as it stands.
void append_message(TextBuilder& text, const JsonReader& reader) {
    const char* message = message_of(reader.error);
    const char* placeholder = std::strstr(message, "%s");
    if (placeholder == nullptr || std::strchr(placeholder + 2, '%') != nullptr) {
        text.append_text(message);
        return;
    }
    const char* custom = reader.custom_text != nullptr ? reader.custom_text : "N/A";
    text.append("%.*s%s%s", static_cast<int>(placeholder - message), message, custom, placeholder + 2);
}

void append_character(TextBuilder& text, unsigned char byte) {
    if (byte >= 32 && byte <= 126) {
        text.append(", character '%c'. ", byte);
    } else {
        text.append(", character '\\x%.02x'. ", byte);
    }
}

}  // namespace

const char* json_error_text(const JsonReader& reader) {
    static char buffer[kErrorTextSize];
    TextBuilder text(buffer);
    if (reader.error == JsonError::Ok) {
        text.append_text(message_of(JsonError::Ok));
        return buffer;
    }
    const int saved_errno = errno;
    append_message(text, reader);
    text.append(" Error occured at offset %zu", static_cast<std::size_t>(reader.position - reader.start));
    append_character(text, static_cast<unsigned char>(*reader.position));
    if (saved_errno != 0) {
        text.append("Also system error occured: %s (%d).", std::strerror(saved_errno), saved_errno);
    }
    return buffer;
}

}  // namespace crelm::mail
