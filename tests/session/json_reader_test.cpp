// The JSON pull reader: tokens, numbers, strings, skipping, error texts.
#include "session/json_reader.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <string>

namespace crelm::mail {
namespace {

// A reader over its own copy of a text.
class Text {
public:
    explicit Text(std::string text) : buffer_(std::move(text)), reader_(json_reader_create(buffer_.data())) {
        errno = 0;
    }
    JsonReader& reader() { return *reader_; }
    int code() const { return static_cast<int>(reader_->error); }
    std::size_t offset() const { return static_cast<std::size_t>(reader_->position - reader_->start); }
    std::string error_text() const { return json_error_text(*reader_); }

private:
    std::string buffer_;
    JsonReaderPtr reader_;
};

std::int64_t signed_value(const std::string& text) {
    Text input(text);
    std::int64_t value = -12345;
    EXPECT_TRUE(json_int64(input.reader(), value)) << input.error_text();
    return value;
}

TEST(JsonNumbers, BaseZeroReadsOctalAndHexadecimal) {
    EXPECT_EQ(signed_value("010"), 8);
    EXPECT_EQ(signed_value("0x1F"), 31);
    EXPECT_EQ(signed_value("0X10"), 16);
    EXPECT_EQ(signed_value("-0"), 0);
    EXPECT_EQ(signed_value("+7"), 7);
    EXPECT_EQ(signed_value("  -42,"), -42);
    EXPECT_EQ(signed_value("-9223372036854775808"), INT64_MIN);
}

TEST(JsonNumbers, PositionMovesBehindTheNumber) {
    Text input("123 ]");
    std::int64_t value = 0;
    ASSERT_TRUE(json_int64(input.reader(), value));
    EXPECT_EQ(input.offset(), 3u);
}

TEST(JsonNumbers, PointAndExponentsAreRefusedAtThatByte) {
    const char* const expected_end = " Check that there are no floating point numbers. Error occured at offset 1, character '";
    for (const char* text : {"1.5", "1e3", "1E3"}) {
        Text input(text);
        std::int64_t value = 0;
        EXPECT_FALSE(json_int64(input.reader(), value));
        EXPECT_EQ(input.code(), 6) << text;
        EXPECT_EQ(input.offset(), 1u) << text;
        EXPECT_EQ(input.error_text(), std::string("Invalid or unsupported number format.") + expected_end + text[1] + "'. ");
    }
}

TEST(JsonNumbers, TwentyNinesAreOutOfRange) {
    Text input("99999999999999999999");
    std::int64_t value = 0;
    EXPECT_FALSE(json_int64(input.reader(), value));
    EXPECT_EQ(input.code(), 5);
    EXPECT_EQ(input.error_text(),
              "Number value is out of range for expected type. Error occured at offset 0, character '9'. "
              "Also system error occured: Numerical result out of range (34).");
}

TEST(JsonNumbers, TextThatIsNoNumberIsCode4) {
    Text input("\"5\"");
    std::int64_t value = 0;
    EXPECT_FALSE(json_int64(input.reader(), value));
    EXPECT_EQ(input.code(), 4);
    EXPECT_EQ(input.error_text(), "Number is expected. Error occured at offset 0, character '\"'. ");
}

TEST(JsonNumbers, UnsignedRefusesAMinusSignAndReadsTheFullRange) {
    Text negative(" -1");
    std::uint64_t value = 0;
    EXPECT_FALSE(json_uint64(negative.reader(), value));
    EXPECT_EQ(negative.code(), 6);
    EXPECT_EQ(negative.offset(), 1u);

    Text largest("18446744073709551615");
    ASSERT_TRUE(json_uint64(largest.reader(), value));
    EXPECT_EQ(value, UINT64_MAX);

    Text octal("017");
    ASSERT_TRUE(json_uint64(octal.reader(), value));
    EXPECT_EQ(value, 15u);

    Text too_large("18446744073709551616");
    EXPECT_FALSE(json_uint64(too_large.reader(), value));
    EXPECT_EQ(too_large.code(), 5);
}

TEST(JsonStrings, EscapesAreDecodedInPlace) {
    Text input(R"( "a\"b\\c\/d\be\ff\ng\rh\ti" ,)");
    char* text = json_string(input.reader());
    ASSERT_NE(text, nullptr);
    EXPECT_STREQ(text, "a\"b\\c/d\be\ff\ng\rh\ti");
    EXPECT_EQ(*input.reader().position, ' ');
    EXPECT_EQ(input.offset(), 28u);
}

TEST(JsonStrings, PlainStringEndsAtTheClosingQuote) {
    Text input("\"abc\"x");
    char* text = json_string(input.reader());
    ASSERT_NE(text, nullptr);
    EXPECT_STREQ(text, "abc");
    EXPECT_EQ(text - input.reader().start, 1);
    EXPECT_EQ(*input.reader().position, 'x');
}

TEST(JsonStrings, EscapedZeroEndsTheStringAndLeavesItsDigitsAsText) {
    Text input(R"("ab\u0000cd"!)");
    char* text = json_string(input.reader());
    ASSERT_NE(text, nullptr);
    EXPECT_STREQ(text, "ab");
    EXPECT_EQ(std::string(text + 3, 6), "0000cd");
    EXPECT_EQ(*input.reader().position, '!');
}

TEST(JsonStrings, RawTabIsCode9AtTheTab) {
    Text input("\"a\tb\"");
    EXPECT_EQ(json_string(input.reader()), nullptr);
    EXPECT_EQ(input.code(), 9);
    EXPECT_EQ(input.error_text(),
              "Invalid character found in string. Check that strings do not contain control characters. "
              "Error occured at offset 2, character '\\x09'. ");
}

TEST(JsonStrings, OtherUnicodeEscapesAreCode10) {
    Text input(R"("caf\u00e9")");
    EXPECT_EQ(json_string(input.reader()), nullptr);
    EXPECT_EQ(input.code(), 10);
    EXPECT_EQ(input.error_text(),
              "Invalid or unsupported Unicode character or escape sequence found in string. UTF8 encoded characters "
              "and '\\u' escape sequences are not supported. Error occured at offset 5, character 'u'. ");
}

TEST(JsonStrings, UnknownEscapeIsCode8) {
    Text input(R"("a\x")");
    EXPECT_EQ(json_string(input.reader()), nullptr);
    EXPECT_EQ(input.code(), 8);
    EXPECT_EQ(input.error_text(), "Invalid escape sequence found in string. Error occured at offset 3, character 'x'. ");
}

TEST(JsonStrings, DeleteIsAControlCharacter) {
    Text input("\"a\x7f\"");
    EXPECT_EQ(json_string(input.reader()), nullptr);
    EXPECT_EQ(input.code(), 9);
    EXPECT_NE(input.error_text().find("character '\\x7f'. "), std::string::npos);
}

TEST(JsonStrings, Utf8BytesAreCode10) {
    Text input("\"caf\xc3\xa9\"");
    EXPECT_EQ(json_string(input.reader()), nullptr);
    EXPECT_EQ(input.code(), 10);
    EXPECT_EQ(input.offset(), 4u);
    EXPECT_NE(input.error_text().find("character '\\xc3'. "), std::string::npos);
}

TEST(JsonStrings, UnterminatedStringIsCode2AtTheEnd) {
    Text input("\"abc");
    EXPECT_EQ(json_string(input.reader()), nullptr);
    EXPECT_EQ(input.code(), 2);
    EXPECT_EQ(input.error_text(),
              "JSON document has ended prematurely. Check that all strings are properly ended. "
              "Error occured at offset 4, character '\\x00'. ");
}

TEST(JsonStrings, BackslashAtTheEndIsCode2) {
    Text input("\"abc\\");
    EXPECT_EQ(json_string(input.reader()), nullptr);
    EXPECT_EQ(input.code(), 2);
    EXPECT_EQ(input.offset(), 5u);
}

TEST(JsonStrings, NoQuoteIsCode7AndTheEndIsCode2) {
    Text word("abc");
    EXPECT_EQ(json_string(word.reader()), nullptr);
    EXPECT_EQ(word.code(), 7);
    Text empty("   ");
    EXPECT_EQ(json_string(empty.reader()), nullptr);
    EXPECT_EQ(empty.code(), 2);
    EXPECT_EQ(empty.offset(), 3u);
}

TEST(JsonKeywords, AreComparedAsPrefixes) {
    Text input("trueX");
    bool value = false;
    ASSERT_TRUE(json_boolean(input.reader(), value));
    EXPECT_TRUE(value);
    EXPECT_EQ(*input.reader().position, 'X');
    EXPECT_EQ(json_array_separator(input.reader()), JsonNext::Error);
    EXPECT_EQ(input.code(), 16);
    EXPECT_EQ(input.offset(), 4u);
}

TEST(JsonKeywords, FalseNullAndTheirFailures) {
    Text input(" false null nul tru");
    bool value = true;
    ASSERT_TRUE(json_boolean(input.reader(), value));
    EXPECT_FALSE(value);
    ASSERT_TRUE(json_null(input.reader()));
    EXPECT_FALSE(json_null(input.reader()));
    EXPECT_EQ(input.code(), 18);
    EXPECT_EQ(input.error_text(), "'null' is expected. Error occured at offset 12, character 'n'. ");

    Text not_boolean("tru");
    EXPECT_FALSE(json_boolean(not_boolean.reader(), value));
    EXPECT_EQ(not_boolean.code(), 17);
    EXPECT_EQ(not_boolean.error_text(), "Boolean value is expected. Error occured at offset 0, character 't'. ");
}

TEST(JsonStructure, ObjectsMembersAndSeparators) {
    Text input(" { \"a\" : 1 , \"b\":2 } ");
    JsonReader& reader = input.reader();
    std::int64_t value = 0;
    ASSERT_TRUE(json_begin_object(reader));
    EXPECT_FALSE(json_end_object(reader));
    EXPECT_STREQ(json_member_name(reader), "a");
    ASSERT_TRUE(json_int64(reader, value));
    EXPECT_EQ(json_object_separator(reader), JsonNext::More);
    EXPECT_STREQ(json_member_name(reader), "b");
    ASSERT_TRUE(json_int64(reader, value));
    EXPECT_EQ(value, 2);
    EXPECT_EQ(json_object_separator(reader), JsonNext::End);
    EXPECT_EQ(input.code(), 0);
}

TEST(JsonStructure, ArraysAndSeparators) {
    Text input("[ ] [1 ,2]");
    JsonReader& reader = input.reader();
    std::int64_t value = 0;
    ASSERT_TRUE(json_begin_array(reader));
    EXPECT_TRUE(json_end_array(reader));
    ASSERT_TRUE(json_begin_array(reader));
    EXPECT_FALSE(json_end_array(reader));
    ASSERT_TRUE(json_int64(reader, value));
    EXPECT_EQ(json_array_separator(reader), JsonNext::More);
    ASSERT_TRUE(json_int64(reader, value));
    EXPECT_EQ(json_array_separator(reader), JsonNext::End);
}

TEST(JsonStructure, EmptyBufferWhereAnObjectIsExpected) {
    Text input("");
    EXPECT_FALSE(json_begin_object(input.reader()));
    EXPECT_EQ(input.code(), 11);
    EXPECT_EQ(input.error_text(), "JSON object is expected. Error occured at offset 0, character '\\x00'. ");
}

TEST(JsonStructure, MismatchCodes) {
    Text no_array("{");
    EXPECT_FALSE(json_begin_array(no_array.reader()));
    EXPECT_EQ(no_array.code(), 15);

    Text no_colon("\"a\" 1");
    EXPECT_EQ(json_member_name(no_colon.reader()), nullptr);
    EXPECT_EQ(no_colon.code(), 12);
    EXPECT_EQ(no_colon.offset(), 4u);

    Text no_object_separator(" ]");
    EXPECT_EQ(json_object_separator(no_object_separator.reader()), JsonNext::Error);
    EXPECT_EQ(no_object_separator.code(), 13);
    EXPECT_EQ(no_object_separator.offset(), 1u);

    Text no_array_separator("}");
    EXPECT_EQ(json_array_separator(no_array_separator.reader()), JsonNext::Error);
    EXPECT_EQ(no_array_separator.code(), 16);
}

TEST(JsonStructure, TrailingCommaBeforeTheClosingBraceWantsAMemberName) {
    Text input("{\"a\":1,}");
    JsonReader& reader = input.reader();
    std::int64_t value = 0;
    ASSERT_TRUE(json_begin_object(reader));
    EXPECT_STREQ(json_member_name(reader), "a");
    ASSERT_TRUE(json_int64(reader, value));
    EXPECT_EQ(json_object_separator(reader), JsonNext::More);
    EXPECT_EQ(json_member_name(reader), nullptr);
    EXPECT_EQ(input.code(), 7);
    EXPECT_EQ(input.error_text(), "String is expected. Error occured at offset 7, character '}'. ");
}

TEST(JsonStructure, AllWhiteSpaceOfTheCLocaleIsSkipped) {
    Text input(" \t\n\v\f\r{");
    EXPECT_TRUE(json_begin_object(input.reader()));
}

TEST(JsonStructure, AFailureStaysAndStopsEveryLaterStep) {
    Text input("x {");
    EXPECT_FALSE(json_begin_array(input.reader()));
    EXPECT_FALSE(json_begin_object(input.reader()));
    EXPECT_FALSE(json_end_object(input.reader()));
    EXPECT_EQ(json_string(input.reader()), nullptr);
    EXPECT_FALSE(json_skip_value(input.reader()));
    EXPECT_EQ(input.code(), 15);
    EXPECT_EQ(input.offset(), 0u);
}

TEST(JsonSkip, SkipsValuesOfEveryKindAndDepth) {
    Text input(R"({"a":[1,{"b":null,"c":[true,false,[]]},"s\n"],"d":{},"e":-0x10} 7 "x" true null [] ,)");
    JsonReader& reader = input.reader();
    for (int value = 0; value < 6; ++value) {
        ASSERT_TRUE(json_skip_value(reader)) << value << ": " << input.error_text();
    }
    EXPECT_EQ(json_array_separator(reader), JsonNext::More);
}

TEST(JsonSkip, NothingValidIsCode3) {
    for (const char* text : {"}", "", "+1", "'a'", "]"}) {
        Text input(text);
        EXPECT_FALSE(json_skip_value(input.reader()));
        EXPECT_EQ(input.code(), 3) << text;
        EXPECT_EQ(input.offset(), 0u) << text;
    }
}

TEST(JsonSkip, FloatingPointAndBadStringsInsideSkippedValuesAreStillErrors) {
    Text number("[1, 2.5]");
    EXPECT_FALSE(json_skip_value(number.reader()));
    EXPECT_EQ(number.code(), 6);
    EXPECT_EQ(number.offset(), 5u);
    Text string("{\"a\":\"\\q\"}");
    EXPECT_FALSE(json_skip_value(string.reader()));
    EXPECT_EQ(string.code(), 8);
}

TEST(JsonSkip, HostileNestingIsRefusedNotFollowed) {
    Text input(std::string(100000, '[') + std::string(100000, ']'));
    EXPECT_FALSE(json_skip_value(input.reader()));
    EXPECT_EQ(input.code(), 3);
}

TEST(JsonErrorText, CustomTextCodes) {
    Text input("abc,");
    input.reader().position += 3;
    json_fail(input.reader(), JsonError::ConstraintFailed, "Domain name is not valid");
    EXPECT_EQ(input.error_text(),
              "Custom JSON value constraint failed: Domain name is not valid. Error occured at offset 3, character ','. ");

    Text no_custom("x");
    json_fail(no_custom.reader(), JsonError::UnknownField);
    EXPECT_EQ(no_custom.error_text(),
              "Encountered an object field \"N/A\" not present in JSON schema. Remove excessive data from input JSON "
              "document or allow skipping unknown fields. Error occured at offset 0, character 'x'. ");

    Text duplicate("x");
    json_fail(duplicate.reader(), JsonError::DuplicateField, "name");
    EXPECT_EQ(duplicate.error_text(),
              "Encountered a duplicate field \"name\" in a JSON object. Remove duplicates from input JSON document or "
              "disable duplicate fields check. Error occured at offset 0, character 'x'. ");
}

TEST(JsonErrorText, EveryFixedMessage) {
    const char* const messages[] = {
        "JSON array or object has ended.",
        "Any value is expected, but was not found.",
        "'null' is unexpected in this context. Check that input JSON document conforms to schema.",
        "Failed to allocate memory.",
        "Some required fields are missing from the JSON object. Check that input JSON document conforms to schema.",
        "JSON array is expected.",
        "JSON name separator (':') is expected inside an object.",
        "JSON value separator (',') or end of object is expected.",
        "JSON value separator (',') or end of array is expected.",
    };
    const JsonError codes[] = {JsonError::ContainerEnded, JsonError::ValueExpected, JsonError::NullUnexpected,
                               JsonError::OutOfMemory, JsonError::RequiredFieldsMissing, JsonError::ArrayExpected,
                               JsonError::NameSeparatorExpected, JsonError::ObjectSeparatorExpected,
                               JsonError::ArraySeparatorExpected};
    for (std::size_t i = 0; i < std::size(codes); ++i) {
        Text input("~");
        json_fail(input.reader(), codes[i]);
        EXPECT_EQ(input.error_text(), std::string(messages[i]) + " Error occured at offset 0, character '~'. ");
    }
}

TEST(JsonErrorText, NoErrorUnknownCodeAndSystemError) {
    Text input("a");
    EXPECT_EQ(input.error_text(), "OK, no error.");
    json_fail(input.reader(), static_cast<JsonError>(99));
    EXPECT_EQ(input.error_text(), "unknown error code Error occured at offset 0, character 'a'. ");
    errno = ENOENT;
    EXPECT_EQ(input.error_text(),
              "unknown error code Error occured at offset 0, character 'a'. "
              "Also system error occured: No such file or directory (2).");
}

TEST(JsonErrorText, IsCutAt1024Bytes) {
    Text input("a");
    const std::string custom(2000, 'c');
    json_fail(input.reader(), JsonError::ConstraintFailed, custom.c_str());
    const std::string text = input.error_text();
    EXPECT_EQ(text.size(), 1023u);
    EXPECT_EQ(text, ("Custom JSON value constraint failed: " + custom).substr(0, 1023));
}

TEST(JsonErrorText, KeepsTheFirstFailure) {
    Text input("a");
    json_fail(input.reader(), JsonError::StringExpected);
    json_fail(input.reader(), JsonError::ConstraintFailed, "later");
    EXPECT_EQ(input.code(), 7);
    EXPECT_EQ(input.reader().custom_text, nullptr);
}

struct CountingAllocator {
    int allocations = 0;
    int releases = 0;
    bool refuse = false;
    static void* allocate(void* self, std::size_t size) {
        auto* counter = static_cast<CountingAllocator*>(self);
        ++counter->allocations;
        return counter->refuse ? nullptr : std::malloc(size);
    }
    static void release(void* self, void* pointer) {
        ++static_cast<CountingAllocator*>(self)->releases;
        std::free(pointer);
    }
    JsonAllocator hooks() { return JsonAllocator{this, allocate, nullptr, release}; }
};

TEST(JsonReaderContext, IsAllocatedAndFreedThroughTheGivenHooks) {
    CountingAllocator counter;
    const JsonAllocator hooks = counter.hooks();
    char text[] = "{}";
    JsonReader* reader = json_reader_create(text, &hooks);
    ASSERT_NE(reader, nullptr);
    EXPECT_EQ(reader->start, text);
    EXPECT_EQ(reader->position, text);
    EXPECT_EQ(reader->error, JsonError::Ok);
    EXPECT_EQ(counter.allocations, 1);
    json_reader_free(reader);
    EXPECT_EQ(counter.releases, 1);
}

TEST(JsonReaderContext, NullBufferOrFailedAllocationGivesNoReader) {
    CountingAllocator counter;
    EXPECT_EQ(json_reader_create(nullptr), nullptr);
    counter.refuse = true;
    const JsonAllocator hooks = counter.hooks();
    char text[] = "{}";
    EXPECT_EQ(json_reader_create(text, &hooks), nullptr);
    EXPECT_EQ(counter.allocations, 1);
}

TEST(JsonReaderContext, DefaultAllocatorIsMallocAndFree) {
    const JsonAllocator& hooks = json_default_allocator();
    void* memory = hooks.allocate(hooks.context, 16);
    ASSERT_NE(memory, nullptr);
    memory = hooks.reallocate(hooks.context, memory, 32);
    ASSERT_NE(memory, nullptr);
    hooks.release(hooks.context, memory);
    EXPECT_EQ(json_static_context().allocator.allocate, hooks.allocate);
}

}  // namespace
}  // namespace crelm::mail
