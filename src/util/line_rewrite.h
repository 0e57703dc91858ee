// Rewriting a file's lines as a stream, in this process: each line is kept,
// replaced by one other line or dropped, and lines may be added at the end.
// The text is taken byte for byte: CR and NUL are ordinary characters of a
// line, and the bytes after the last newline form a last line that keeps
// lacking its newline unless lines are added after it.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace crelm::util {

enum class LineFate { keep, replace, drop };

struct LineRewrite {
    // What becomes of one line (given without its newline); for
    // LineFate::replace the new line (without newline) is left in replaced.
    std::function<LineFate(std::string_view line, std::string& replaced)> line;
    // When not empty, only lines holding this text can change: the others
    // are copied without calling line, which on a large table saves most of
    // the pass.
    std::string needle;
    // Written after the last line, each with a newline, when the input has
    // at least one line (an empty file stays empty).
    std::vector<std::string> appended;
};

// Where a stream rewrite stopped.
enum class StreamFailure { none, read, write };

// Reads in_fd to its end and writes the rewritten lines to out_fd. On a
// failure errno tells why.
StreamFailure rewrite_stream(int in_fd, int out_fd, const LineRewrite& rewrite);

}  // namespace crelm::util
