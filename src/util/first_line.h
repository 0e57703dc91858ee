// Reading the first line of a small configuration file.
#pragma once

#include <cstddef>
#include <string>

// Reads the first line of path (any length), strips white space (the C
// locale's space class, newline included) from its end and then its start,
// and puts it into line. The line must fit a buffer of buffer_size bytes
// with its terminating zero: one as long as buffer_size or longer is
// refused. An empty file gives an empty line. 0, or -1 (line emptied) after
// "Unable to open file %s: %s\n", "Unable to read line from file: %s\n" or
// "The buffer too short\n".
int read_first_line(std::string& line, std::size_t buffer_size, const std::string& path);
