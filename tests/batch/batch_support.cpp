#include "batch/batch_support.h"

#include <cstdio>
#include <cstdlib>
#include <regex>
#include <sstream>

namespace sorvane::test {

std::string json_string(const std::string& text) {
    std::string out = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\') {
            out += '\\';
            out += c;
        } else if (static_cast<unsigned char>(c) < 0x20) {
            char escape[8];
            std::snprintf(escape, sizeof escape, "\\u%04x", static_cast<unsigned>(c));
            out += escape;
        } else {
            out += c;
        }
    }
    return out + "\"";
}

std::string batch_line(const BatchEntry& entry) {
    std::string line = "{\"args\": [";
    for (std::size_t i = 0; i < entry.args.size(); ++i)
        line += (i ? ", " : "") + json_string(entry.args[i]);
    line += "]";
    if (entry.password)
        line += ", \"password\": " + json_string(*entry.password);
    if (entry.crypted_password)
        line += ", \"crypted_password\": " + json_string(*entry.crypted_password);
    if (entry.stdin_text)
        line += ", \"stdin\": " + json_string(*entry.stdin_text);
    return line + "}";
}

std::string batch_document(const std::vector<BatchEntry>& entries) {
    std::string document;
    for (const BatchEntry& entry : entries)
        document += batch_line(entry) + "\n";
    return document;
}

ProcessResult run_entry(const BatchEntry& entry) {
    RunOptions options;
    options.stdin_mode = RunOptions::Stdin::Pipe;
    options.input = entry.stdin_text.value_or("");
    options.unset_env = {"QVT_PASSWORD", "QVT_CRYPTED_PASSWORD"};
    if (entry.password)
        options.env.push_back("QVT_PASSWORD=" + *entry.password);
    if (entry.crypted_password)
        options.env.push_back("QVT_CRYPTED_PASSWORD=" + *entry.crypted_password);
    return run_sorvane(entry.args, options);
}

ProcessResult run_batch(const std::string& document, const std::vector<std::string>& options) {
    RunOptions run;
    run.stdin_mode = RunOptions::Stdin::Pipe;
    run.input = document;
    std::vector<std::string> args{"--batch"};
    args.insert(args.end(), options.begin(), options.end());
    return run_sorvane(args, run);
}

std::string without_pids(const std::string& text) {
    static const std::regex pid(R"((sorvane|qmail-newu|killall|crelmrc)\[[0-9]+\])");
    return std::regex_replace(text, pid, "$1[pid]");
}

ServerState with_shared_runs(ServerState alone, bool reload_fails) {
    const std::size_t reloads = alone.killall_calls.size();
    if (alone.qmail_newu_calls.size() > 1)
        alone.qmail_newu_calls.resize(1);
    if (reloads > 1)
        alone.killall_calls.resize(1);
    if (reload_fails && reloads > 1)
        alone.crelmrc_calls.resize(alone.crelmrc_calls.size() - (reloads - 1));
    return alone;
}

namespace {

// A strict reader of one output line; every mismatch fails the test once.
class ObjectReader {
public:
    explicit ObjectReader(const std::string& text) : text_(text) {}

    bool literal(const std::string& expected) {
        if (text_.compare(at_, expected.size(), expected) != 0)
            return fail("expected " + expected);
        at_ += expected.size();
        return true;
    }

    bool number(long& value) {
        const std::size_t start = at_;
        if (at_ < text_.size() && text_[at_] == '-')
            ++at_;
        while (at_ < text_.size() && text_[at_] >= '0' && text_[at_] <= '9')
            ++at_;
        if (at_ == start)
            return fail("expected a number");
        value = std::strtol(text_.substr(start, at_ - start).c_str(), nullptr, 10);
        return true;
    }

    bool string(std::string& out) {
        if (!literal("\""))
            return false;
        while (at_ < text_.size() && text_[at_] != '"') {
            const unsigned char c = static_cast<unsigned char>(text_[at_]);
            if (c < 0x20 || c >= 0x7F)
                return fail("byte outside printable ASCII in a string");
            if (c != '\\') {
                out += static_cast<char>(c);
                ++at_;
            } else if (!escape(out)) {
                return false;
            }
        }
        return literal("\"");
    }

    bool at_end() const { return at_ == text_.size(); }

private:
    bool fail(const std::string& why) {
        ADD_FAILURE() << why << " at column " << at_ + 1 << " of output line: " << text_;
        return false;
    }

    bool hex4(unsigned& value) {
        if (at_ + 4 > text_.size())
            return fail("short \\u escape");
        value = static_cast<unsigned>(std::strtoul(text_.substr(at_, 4).c_str(), nullptr, 16));
        at_ += 4;
        return true;
    }

    static void append_utf8(std::string& out, unsigned code) {
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

    bool escape(std::string& out) {
        ++at_;
        const char c = at_ < text_.size() ? text_[at_++] : '\0';
        const std::string simple = "\"\\/bfnrt";
        const std::string meant = "\"\\/\b\f\n\r\t";
        if (const auto found = simple.find(c); found != std::string::npos && c != '\0') {
            out += meant[found];
            return true;
        }
        if (c != 'u')
            return fail("invalid escape");
        unsigned code = 0;
        if (!hex4(code))
            return false;
        if (code >= 0xD800 && code <= 0xDBFF) {
            unsigned low = 0;
            if (!literal("\\u") || !hex4(low))
                return false;
            code = 0x10000 + ((code - 0xD800) << 10) + (low - 0xDC00);
        }
        append_utf8(out, code);
        return true;
    }

    const std::string& text_;
    std::size_t at_ = 0;
};

bool read_object(const std::string& line, OutputObject& object) {
    ObjectReader reader(line);
    long status = 0;
    const bool read = reader.literal("{\"line\": ") && reader.number(object.line) &&
                      reader.literal(", \"status\": ") && reader.number(status) &&
                      reader.literal(", \"stdout\": ") && reader.string(object.out) &&
                      reader.literal(", \"stderr\": ") && reader.string(object.err) && reader.literal("}");
    object.status = static_cast<int>(status);
    if (read && !reader.at_end())
        ADD_FAILURE() << "text after the object in output line: " << line;
    return read && reader.at_end();
}

}  // namespace

std::vector<OutputObject> read_output_objects(const std::string& output) {
    std::vector<OutputObject> objects;
    if (!output.empty() && output.back() != '\n')
        ADD_FAILURE() << "batch output does not end with a line feed";
    std::istringstream lines(output);
    for (std::string line; std::getline(lines, line);) {
        OutputObject object;
        if (read_object(line, object))
            objects.push_back(object);
    }
    return objects;
}

}  // namespace sorvane::test
