#include "commands/batch_document.h"

#include <cstdint>
#include <cstring>

namespace crelm::mail::sorvane_commands {
namespace {

// A strict reader of the one object a line holds. Every failure records its
// reason once; later steps see failed() and stop.
class LineReader {
public:
    explicit LineReader(std::string_view text) : text_(text) {}

    bool failed() const { return !reason_.empty(); }
    const std::string& reason() const { return reason_; }

    bool fail(const std::string& reason) {
        if (reason_.empty())
            reason_ = reason + " at column " + std::to_string(at_ + 1);
        return false;
    }

    void skip_blanks() {
        while (at_ < text_.size() && (text_[at_] == ' ' || text_[at_] == '\t' || text_[at_] == '\r'))
            ++at_;
    }

    bool at_end() {
        skip_blanks();
        return at_ == text_.size();
    }

    // The next non-blank character, not taken; 0 at the end.
    char peek() {
        skip_blanks();
        return at_ < text_.size() ? text_[at_] : '\0';
    }

    bool expect(char wanted, const char* what) {
        if (peek() != wanted)
            return fail(std::string("expected ") + what);
        ++at_;
        return true;
    }

    bool read_string(std::string& out) {
        if (!expect('"', "a string"))
            return false;
        out.clear();
        // One allocation: a password read here leaves no copy in a freed buffer.
        out.reserve(text_.size() - at_);
        while (at_ < text_.size()) {
            const unsigned char c = static_cast<unsigned char>(text_[at_]);
            if (c == '"') {
                ++at_;
                return true;
            }
            if (c < 0x20)
                return fail("control character in a string");
            if (c == '\\') {
                if (!read_escape(out))
                    return false;
                continue;
            }
            out += static_cast<char>(c);
            ++at_;
        }
        return fail("unterminated string");
    }

private:
    bool read_escape(std::string& out) {
        ++at_;
        if (at_ >= text_.size())
            return fail("unterminated string");
        const char c = text_[at_++];
        switch (c) {
            case '"': out += '"'; return true;
            case '\\': out += '\\'; return true;
            case '/': out += '/'; return true;
            case 'b': out += '\b'; return true;
            case 'f': out += '\f'; return true;
            case 'n': out += '\n'; return true;
            case 'r': out += '\r'; return true;
            case 't': out += '\t'; return true;
            case 'u': return read_unicode(out);
            default: --at_; return fail("invalid escape");
        }
    }

    bool read_hex4(std::uint32_t& value) {
        if (at_ + 4 > text_.size())
            return fail("invalid \\u escape");
        value = 0;
        for (int i = 0; i < 4; ++i) {
            const char c = text_[at_ + i];
            value <<= 4;
            if (c >= '0' && c <= '9')
                value |= static_cast<std::uint32_t>(c - '0');
            else if (c >= 'a' && c <= 'f')
                value |= static_cast<std::uint32_t>(c - 'a' + 10);
            else if (c >= 'A' && c <= 'F')
                value |= static_cast<std::uint32_t>(c - 'A' + 10);
            else
                return fail("invalid \\u escape");
        }
        at_ += 4;
        return true;
    }

    bool read_unicode(std::string& out) {
        std::uint32_t code = 0;
        if (!read_hex4(code))
            return false;
        if (code >= 0xDC00 && code <= 0xDFFF)
            return fail("lone low surrogate in a \\u escape");
        if (code >= 0xD800 && code <= 0xDBFF) {
            std::uint32_t low = 0;
            if (text_.substr(at_, 2) != "\\u")
                return fail("high surrogate without its low surrogate");
            at_ += 2;
            if (!read_hex4(low))
                return false;
            if (low < 0xDC00 || low > 0xDFFF)
                return fail("high surrogate without its low surrogate");
            code = 0x10000 + ((code - 0xD800) << 10) + (low - 0xDC00);
        }
        append_utf8(out, code);
        return true;
    }

    static void append_utf8(std::string& out, std::uint32_t code) {
        if (code < 0x80) {
            out += static_cast<char>(code);
        } else if (code < 0x800) {
            out += static_cast<char>(0xC0 | (code >> 6));
            out += static_cast<char>(0x80 | (code & 0x3F));
        } else if (code < 0x10000) {
            out += static_cast<char>(0xE0 | (code >> 12));
            out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
            out += static_cast<char>(0x80 | (code & 0x3F));
        } else {
            out += static_cast<char>(0xF0 | (code >> 18));
            out += static_cast<char>(0x80 | ((code >> 12) & 0x3F));
            out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
            out += static_cast<char>(0x80 | (code & 0x3F));
        }
    }

    std::string_view text_;
    std::size_t at_ = 0;
    std::string reason_;
};

bool has_nul(const std::string& text) {
    return text.find('\0') != std::string::npos;
}

bool read_args(LineReader& reader, std::vector<std::string>& args) {
    if (!reader.expect('[', "\"args\" to be an array of strings"))
        return false;
    if (reader.peek() == ']')
        return reader.fail("\"args\" is empty: the command switch comes first");
    do {
        std::string arg;
        if (!reader.read_string(arg))
            return false;
        if (has_nul(arg))
            return reader.fail("NUL byte in an argument");
        args.push_back(std::move(arg));
        if (reader.peek() == ']')
            break;
    } while (reader.expect(',', "',' or ']' in \"args\""));
    return reader.expect(']', "']'");
}

bool read_optional_text(LineReader& reader, const std::string& name, std::optional<std::string>& value) {
    if (value)
        return reader.fail("member \"" + name + "\" given twice");
    std::string text;
    if (reader.peek() != '"')
        return reader.fail("expected \"" + name + "\" to be a string");
    if (!reader.read_string(text))
        return false;
    if (has_nul(text))
        return reader.fail("NUL byte in \"" + name + "\"");
    value.emplace(text);
    explicit_bzero(text.data(), text.size());
    return true;
}

bool read_member(LineReader& reader, BatchCommand& command, bool& has_args) {
    std::string name;
    if (!reader.read_string(name) || !reader.expect(':', "':' after a member name"))
        return false;
    if (name == "args") {
        if (has_args)
            return reader.fail("member \"args\" given twice");
        has_args = true;
        return read_args(reader, command.args);
    }
    if (name == "password")
        return read_optional_text(reader, name, command.password);
    if (name == "crypted_password")
        return read_optional_text(reader, name, command.crypted_password);
    if (name == "stdin")
        return read_optional_text(reader, name, command.stdin_text);
    return reader.fail("unknown member \"" + name + "\"");
}

bool read_object(LineReader& reader, BatchCommand& command) {
    if (!reader.expect('{', "a JSON object"))
        return false;
    bool has_args = false;
    if (reader.peek() != '}') {
        do {
            if (!read_member(reader, command, has_args))
                return false;
            if (reader.peek() == '}')
                break;
        } while (reader.expect(',', "',' or '}'"));
    }
    if (!reader.expect('}', "'}'"))
        return false;
    if (!reader.at_end())
        return reader.fail("text after the object");
    if (!has_args)
        return reader.fail("member \"args\" missing");
    if (command.args.front() == "--batch")
        return reader.fail("a batch cannot run --batch");
    return true;
}

}  // namespace

void BatchCommand::wipe_passwords() {
    for (std::optional<std::string>* value : {&password, &crypted_password}) {
        if (*value)
            explicit_bzero(value->value().data(), value->value().size());
        value->reset();
    }
}

bool parse_batch_line(std::string_view text, BatchCommand& command, std::string& reason) {
    LineReader reader(text);
    if (read_object(reader, command))
        return true;
    reason = reader.reason();
    return false;
}

BatchDocument parse_batch_document(std::string_view text) {
    BatchDocument document;
    std::size_t start = 0;
    for (std::size_t number = 1; start < text.size(); ++number) {
        std::size_t end = text.find('\n', start);
        if (end == std::string_view::npos)
            end = text.size();
        BatchCommand command;
        command.line = number;
        if (!parse_batch_line(text.substr(start, end - start), command, document.reason)) {
            command.wipe_passwords();
            for (BatchCommand& taken : document.commands)
                taken.wipe_passwords();
            document.commands.clear();
            document.failed_line = number;
            return document;
        }
        document.commands.push_back(std::move(command));
        start = end + 1;
    }
    return document;
}

}  // namespace crelm::mail::sorvane_commands
