// The whole of an input stream in one zero-terminated, writable buffer.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <memory>

struct FreeDeleter {
    void operator()(char* buffer) const { std::free(buffer); }
};
using InputBuffer = std::unique_ptr<char, FreeDeleter>;

// Reads stream to its end. Returns the text followed by a zero byte, or
// nullptr when reading or allocation failed (errno tells why).
InputBuffer read_whole_stream(std::FILE* stream);
