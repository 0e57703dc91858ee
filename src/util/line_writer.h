// Writing whole lines to a stream.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

// Writes each line, adding a newline to any line that lacks one. 0, or -1
// when a write failed (errno set; not reported: the caller names the file).
int write_lines(std::FILE* stream, const std::vector<std::string>& lines);
