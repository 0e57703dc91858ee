#include "session/json_reader.h"

#include <cstdlib>
#include <cstring>
#include <new>

#include "session/json_reader_internal.h"

namespace crelm::mail {
namespace {

void* default_allocate(void*, std::size_t size) { return std::malloc(size); }
void* default_reallocate(void*, void* pointer, std::size_t size) { return std::realloc(pointer, size); }
void default_release(void*, void* pointer) { std::free(pointer); }

// Nesting deeper than any document of ours is refused instead of letting a
// hostile input exhaust the stack while it is skipped.
constexpr int kMaxSkipDepth = 4096;

bool skip_value_at_depth(JsonReader& reader, int depth);

bool skip_object(JsonReader& reader, int depth) {
    if (!json_begin_object(reader)) {
        return false;
    }
    if (json_end_object(reader)) {
        return true;
    }
    JsonNext next = JsonNext::More;
    while (next == JsonNext::More) {
        if (json_member_name(reader) == nullptr || !skip_value_at_depth(reader, depth)) {
            return false;
        }
        next = json_object_separator(reader);
    }
    return next == JsonNext::End;
}

bool skip_array(JsonReader& reader, int depth) {
    return json_read_array(reader, [&reader, depth] { return skip_value_at_depth(reader, depth); });
}

bool skip_value_at_depth(JsonReader& reader, int depth) {
    if (!json_reader_ready(reader)) {
        return false;
    }
    const char first = *reader.position;
    if (first == '"') {
        return json_string(reader) != nullptr;
    }
    if (first == '-' || (first >= '0' && first <= '9')) {
        std::int64_t ignored = 0;
        return json_int64(reader, ignored);
    }
    if (first == 't' || first == 'f') {
        bool ignored = false;
        return json_boolean(reader, ignored);
    }
    if (first == 'n') {
        return json_null(reader);
    }
    if ((first == '{' || first == '[') && depth < kMaxSkipDepth) {
        return first == '{' ? skip_object(reader, depth + 1) : skip_array(reader, depth + 1);
    }
    return json_fail(reader, JsonError::ValueExpected);
}

// Consumes the byte `wanted` or records `error`.
bool expect_byte(JsonReader& reader, char wanted, JsonError error) {
    if (!json_reader_ready(reader)) {
        return false;
    }
    if (*reader.position != wanted) {
        return json_fail(reader, error);
    }
    ++reader.position;
    return true;
}

// Consumes the byte `wanted` if it is next; no error either way.
bool take_byte(JsonReader& reader, char wanted) {
    if (!json_reader_ready(reader) || *reader.position != wanted) {
        return false;
    }
    ++reader.position;
    return true;
}

JsonNext separator(JsonReader& reader, char closing, JsonError error) {
    if (take_byte(reader, ',')) {
        return JsonNext::More;
    }
    if (take_byte(reader, closing)) {
        return JsonNext::End;
    }
    json_fail(reader, error);
    return JsonNext::Error;
}

// Keywords are compared as prefixes: "trueX" yields true and leaves the X.
bool take_keyword(JsonReader& reader, const char* keyword) {
    const std::size_t length = std::strlen(keyword);
    if (std::strncmp(reader.position, keyword, length) != 0) {
        return false;
    }
    reader.position += length;
    return true;
}

}  // namespace

bool json_reader_ready(JsonReader& reader) {
    if (reader.error != JsonError::Ok) {
        return false;
    }
    while (json_is_space(*reader.position)) {
        ++reader.position;
    }
    return true;
}

const JsonAllocator& json_default_allocator() {
    static const JsonAllocator allocator{nullptr, default_allocate, default_reallocate, default_release};
    return allocator;
}

JsonReader* json_reader_create(char* buffer, const JsonAllocator* allocator) {
    const JsonAllocator& hooks = allocator != nullptr ? *allocator : json_default_allocator();
    if (buffer == nullptr) {
        return nullptr;
    }
    void* memory = hooks.allocate(hooks.context, sizeof(JsonReader));
    if (memory == nullptr) {
        return nullptr;
    }
    auto* reader = new (memory) JsonReader;
    reader->start = buffer;
    reader->position = buffer;
    reader->allocator = hooks;
    return reader;
}

void json_reader_free(JsonReader* reader) {
    if (reader == nullptr) {
        return;
    }
    const JsonAllocator hooks = reader->allocator;
    reader->~JsonReader();
    hooks.release(hooks.context, reader);
}

JsonReader& json_static_context() {
    static JsonReader context{nullptr, nullptr, nullptr, JsonError::Ok, json_default_allocator()};
    return context;
}

bool json_fail(JsonReader& reader, JsonError error, const char* custom_text) {
    if (reader.error == JsonError::Ok) {
        reader.error = error;
        reader.custom_text = custom_text;
    }
    return false;
}

bool json_begin_object(JsonReader& reader) { return expect_byte(reader, '{', JsonError::ObjectExpected); }

bool json_end_object(JsonReader& reader) { return take_byte(reader, '}'); }

bool json_object_is_empty(JsonReader& reader) { return json_reader_ready(reader) && *reader.position == '}'; }

const char* json_member_name(JsonReader& reader, std::size_t* length) {
    const char* name = json_string(reader, length);
    if (name == nullptr || !expect_byte(reader, ':', JsonError::NameSeparatorExpected)) {
        return nullptr;
    }
    return name;
}

JsonNext json_object_separator(JsonReader& reader) {
    return separator(reader, '}', JsonError::ObjectSeparatorExpected);
}

bool json_begin_array(JsonReader& reader) { return expect_byte(reader, '[', JsonError::ArrayExpected); }

bool json_end_array(JsonReader& reader) { return take_byte(reader, ']'); }

JsonNext json_array_separator(JsonReader& reader) { return separator(reader, ']', JsonError::ArraySeparatorExpected); }

bool json_boolean(JsonReader& reader, bool& value) {
    if (!json_reader_ready(reader)) {
        return false;
    }
    if (take_keyword(reader, "true")) {
        value = true;
        return true;
    }
    if (take_keyword(reader, "false")) {
        value = false;
        return true;
    }
    return json_fail(reader, JsonError::BooleanExpected);
}

bool json_null(JsonReader& reader) {
    if (!json_reader_ready(reader)) {
        return false;
    }
    return take_keyword(reader, "null") || json_fail(reader, JsonError::NullExpected);
}

bool json_skip_value(JsonReader& reader) { return skip_value_at_depth(reader, 0); }

}  // namespace crelm::mail
