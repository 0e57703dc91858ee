// Whole-stream reading and copying between descriptors and streams.
#pragma once

#include <cstddef>
#include <cstdio>
#include <optional>
#include <string>

// Everything left in stream (binary data included). nullopt when reading
// fails (logged as "Unable to read input: <strerror>") or memory runs out.
std::optional<std::string> read_all(std::FILE* stream);

// The whole content of the file at path; nullopt when it cannot be opened
// (not logged; errno tells why) or read (logged as read_all does).
std::optional<std::string> read_file_all(const char* path);

// Copies from descriptor in to descriptor out in reads of 8192 bytes until
// the end of the input or, when limit is not 0, until limit bytes have been
// copied. Returns 0; -1 when a read or write fails (logged as
// "Unable to read descriptor <n>: <strerror>" or
// "Unable to write descriptor <n>: <strerror>").
int copy_fd(int in, int out, std::size_t limit);

// Copies stream in to stream out in blocks of 8192 bytes until the end of
// the input and flushes out. Returns 0; -1 when reading, writing or flushing
// fails (logged as "Unable to read input: <strerror>" or
// "Unable to write output: <strerror>").
int copy_stream(std::FILE* in, std::FILE* out);
