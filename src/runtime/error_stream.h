// The error stream of the command layer: every character goes to standard
// error at once; each flush repeats the pending text on standard output.
#pragma once

#include <ostream>
#include <streambuf>
#include <string>

namespace crelm {

class UtilityErrorStreamBuf : public std::streambuf {
public:
    UtilityErrorStreamBuf() = default;
    ~UtilityErrorStreamBuf() override;

protected:
    int sync() override;
    int_type overflow(int_type c) override;

private:
    void flush_pending();
    std::string pending_;
};

class UtilityErrorStream : public std::ostream {
public:
    UtilityErrorStream();
    ~UtilityErrorStream() override;

private:
    UtilityErrorStreamBuf buf_;
};

// The single instance, alive from static initialisation to exit.
UtilityErrorStream& error_stream();

}  // namespace crelm
