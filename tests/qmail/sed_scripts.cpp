#include "qmail/sed_scripts.h"

#include <string_view>

#include <gtest/gtest.h>

#include "support/sandbox.h"

namespace sorvane::test {
namespace {

std::string escaped(const std::string& text, std::string_view specials, char delimiter) {
    std::string result;
    result.reserve(text.size() * 2);
    for (const char c : text) {
        if (c == delimiter || specials.find(c) != std::string_view::npos) {
            result += '\\';
        }
        result += c;
    }
    return result;
}

// Mail names hold letters, digits and ". - _ & + '"; domain names letters,
// digits, "." and "-".
constexpr const char* kBeforeAddress = "\\(^&\\?\\|[^[:alnum:]._&+'-]\\)";
constexpr const char* kAfterAddress = "\\($\\|[^[:alnum:].-]\\)";

}  // namespace

std::string sed_pattern_literal(const std::string& text, char delimiter) {
    return escaped(text, ".[]*^$\\", delimiter);
}

std::string sed_replacement_literal(const std::string& text, char delimiter) {
    return escaped(text, "&\\", delimiter);
}

std::string sed_append_literal(const std::string& text) {
    return escaped(text, "\\", '\\');
}

std::string sed_substitute(const std::string& from, const std::string& to, Anchor anchor) {
    const bool at_start = anchor == Anchor::start || anchor == Anchor::whole;
    const bool at_end = anchor == Anchor::end || anchor == Anchor::whole;
    return std::string("s|") + (at_start ? "^" : "") + sed_pattern_literal(from, '|') + (at_end ? "$" : "") + "|" +
           sed_replacement_literal(to, '|') + "|g";
}

std::string sed_delete_line(const std::string& line) {
    return "/^" + sed_pattern_literal(line, '/') + "$/d";
}

std::string sed_append_line(const std::string& line) {
    return "$ a\\" + sed_append_literal(line);
}

std::vector<std::string> sed_virtual_domain(const std::string& from, const std::string& to) {
    return {sed_substitute(from + ":", to + ":", Anchor::start), sed_substitute(":" + from, ":" + to, Anchor::end)};
}

std::vector<std::string> sed_assign_domain(const std::string& from, const std::string& to, const std::string& root) {
    const std::string records =
        "s|^=" + sed_pattern_literal(from, '|') + "-\\([^:]*:[^:]*:[^:]*:[^:]*:\\)" +
        sed_pattern_literal(root + "/" + from + "/", '|') + "\\([^:]*:[^:]*:[^:]*:\\)$|=" +
        sed_replacement_literal(to, '|') + "-\\1" + sed_replacement_literal(root + "/" + to + "/", '|') + "\\2|";
    const std::string domain =
        "s|^+" + sed_pattern_literal(from, '|') + ":\\([^:]*:[^:]*:[^:]*:\\)" +
        sed_pattern_literal(root + "/" + from, '|') + "\\(:[^:]*:[^:]*:\\)$|+" + sed_replacement_literal(to, '|') +
        ":\\1" + sed_replacement_literal(root + "/" + to, '|') + "\\2|";
    return {"/" + sed_pattern_literal(from, '/') + "/{", records, domain, "}"};
}

std::string sed_repoint_records(const std::string& old_tail, const std::string& new_tail) {
    return "s|^\\(=[^:]*\\)" + sed_pattern_literal(old_tail, '|') + "$|\\1" + sed_replacement_literal(new_tail, '|') +
           "|";
}

std::string sed_address_rename(const std::string& old_local, const std::string& new_local,
                               const std::vector<std::string>& domains) {
    std::string script;
    for (const std::string& domain : domains) {
        const std::string command = std::string("s#") + kBeforeAddress + sed_pattern_literal(old_local, '#') + "@\\(" +
                                    sed_pattern_literal(domain, '#') + "\\)" + kAfterAddress + "#\\1" +
                                    sed_replacement_literal(new_local, '#') + "@\\2\\3#gI\n";
        script += command + command;
    }
    return script;
}

std::string run_sed(const std::vector<std::string>& scripts, const std::string& input) {
    std::vector<std::string> argv{"/bin/sed"};
    for (const std::string& script : scripts) {
        argv.push_back("-e");
        argv.push_back(script);
    }
    // The input comes from a file: a large one through a pipe would meet
    // sed's output, which nobody reads before the input is written.
    const std::string path = scratch_dir() + "/sed-input";
    write_file(path, input);
    argv.push_back(path);
    RunOptions options;
    options.env = {"LC_ALL=C"};
    const ProcessResult result = run_process(argv, options);
    EXPECT_EQ(result.status, 0) << result.err;
    return result.out;
}

}  // namespace sorvane::test
