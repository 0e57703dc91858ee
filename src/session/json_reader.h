// A pull reader for JSON text held in one writable, zero-terminated buffer.
//
// Schema code drives it token by token and reads values straight into its
// own structures; there is no tree. Strings are decoded in place, so the
// buffer must outlive every string read from it. The reader never throws and
// never prints: the first failure records an error code, leaves the position
// at the offending byte, and every later operation fails at once.
// Only what the panel's documents need is supported: no floating-point
// numbers, no '\u' escapes but "\u0000", no bytes outside printable ASCII in
// strings.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

namespace crelm::mail {

enum class JsonError : int {
    Ok = 0,
    ContainerEnded = 1,
    PrematureEnd = 2,
    ValueExpected = 3,
    NumberExpected = 4,
    NumberOutOfRange = 5,
    InvalidNumberFormat = 6,
    StringExpected = 7,
    InvalidEscape = 8,
    InvalidCharacter = 9,
    UnsupportedUnicode = 10,
    ObjectExpected = 11,
    NameSeparatorExpected = 12,
    ObjectSeparatorExpected = 13,
    RequiredFieldsMissing = 14,
    ArrayExpected = 15,
    ArraySeparatorExpected = 16,
    BooleanExpected = 17,
    NullExpected = 18,
    NullUnexpected = 19,
    OutOfMemory = 20,
    UnknownField = 21,
    DuplicateField = 22,
    ConstraintFailed = 23,
};

// Memory hooks for the reader context (and the session object, through the
// static context). reallocate is kept for callers that need it.
struct JsonAllocator {
    void* context = nullptr;
    void* (*allocate)(void* context, std::size_t size) = nullptr;
    void* (*reallocate)(void* context, void* pointer, std::size_t size) = nullptr;
    void (*release)(void* context, void* pointer) = nullptr;
};

// The malloc / realloc / free triple.
const JsonAllocator& json_default_allocator();

struct JsonReader {
    const char* start = nullptr;          // offsets are counted from here
    char* position = nullptr;             // next unread byte
    const char* custom_text = nullptr;    // failed check (23) or member name (21, 22)
    JsonError error = JsonError::Ok;      // sticky once set
    JsonAllocator allocator;
};

// A reader over buffer, allocated through allocator (the default when
// nullptr). Returns nullptr for a null buffer or when allocation fails.
JsonReader* json_reader_create(char* buffer, const JsonAllocator* allocator = nullptr);
// Frees a reader made by json_reader_create through its own allocator.
void json_reader_free(JsonReader* reader);

struct JsonReaderDeleter {
    void operator()(JsonReader* reader) const { json_reader_free(reader); }
};
using JsonReaderPtr = std::unique_ptr<JsonReader, JsonReaderDeleter>;

// The static context through which the session object is allocated and
// freed (default allocator, no buffer).
JsonReader& json_static_context();

// Records a failure unless one is recorded already. Always returns false so
// that schema code can write `return json_fail(...)`.
bool json_fail(JsonReader& reader, JsonError error, const char* custom_text = nullptr);

// Each operation skips white space first and returns false (or nullptr, or
// End/Error) when the reader has failed, now or before.

// "{" or code 11.
bool json_begin_object(JsonReader& reader);
// Consumes "}" and returns true; otherwise false without an error.
bool json_end_object(JsonReader& reader);
// True when the next byte is "}", consuming nothing.
bool json_object_is_empty(JsonReader& reader);
// A string, white space, ":"; the decoded name or nullptr (string errors,
// code 12 without ":"). With length, stores the name's length as
// json_string does.
const char* json_member_name(JsonReader& reader, std::size_t* length = nullptr);

enum class JsonNext { More, End, Error };
// "," gives More, "}" gives End; anything else code 13.
JsonNext json_object_separator(JsonReader& reader);

// "[" or code 15.
bool json_begin_array(JsonReader& reader);
// Consumes "]" and returns true; otherwise false without an error.
bool json_end_array(JsonReader& reader);
// "," gives More, "]" gives End; anything else code 16.
JsonNext json_array_separator(JsonReader& reader);

// A whole array: "[", then read_element() for each element, separators
// between, "]". False as soon as a part fails (with the part's code).
template <typename ReadElement>
bool json_read_array(JsonReader& reader, ReadElement&& read_element) {
    if (!json_begin_array(reader)) {
        return false;
    }
    if (json_end_array(reader)) {
        return true;
    }
    JsonNext next = JsonNext::More;
    while (next == JsonNext::More) {
        if (!read_element()) {
            return false;
        }
        next = json_array_separator(reader);
    }
    return next == JsonNext::End;
}

// A quoted string decoded in place; nullptr on codes 2, 7, 8, 9, 10.
// With length, also stores the length of the zero-terminated result (which
// an escaped zero cuts short).
char* json_string(JsonReader& reader, std::size_t* length = nullptr);
// strtoll / strtoull with base 0 (so 010 is 8 and 0x10 is 16). Codes 4, 5,
// 6; the unsigned form refuses a leading "-" with code 6.
bool json_int64(JsonReader& reader, std::int64_t& value);
bool json_uint64(JsonReader& reader, std::uint64_t& value);
// "true" / "false", compared as prefixes; code 17.
bool json_boolean(JsonReader& reader, bool& value);
// "null", compared as a prefix; code 18.
bool json_null(JsonReader& reader);
// Any value of any depth; code 3 when no value starts here.
bool json_skip_value(JsonReader& reader);

// The message of the reader's code with its offset and character, in one
// static 1024-byte buffer that the next call overwrites.
const char* json_error_text(const JsonReader& reader);

}  // namespace crelm::mail
