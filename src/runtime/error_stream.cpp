#include "runtime/error_stream.h"

#include <exception>
#include <iostream>

namespace crelm {

UtilityErrorStreamBuf::~UtilityErrorStreamBuf() {
    try {
        flush_pending();
    } catch (...) {
        std::terminate();
    }
}

int UtilityErrorStreamBuf::sync() {
    flush_pending();
    return 0;
}

UtilityErrorStreamBuf::int_type UtilityErrorStreamBuf::overflow(int_type c) {
    if (traits_type::eq_int_type(c, traits_type::eof()))
        return c;
    const char ch = traits_type::to_char_type(c);
    std::cerr.put(ch);
    pending_.push_back(ch);
    return c;
}

void UtilityErrorStreamBuf::flush_pending() {
    std::cerr.flush();
    std::cout << pending_;
    std::cout.flush();
    pending_.clear();
}

UtilityErrorStream::UtilityErrorStream() : std::ostream(&buf_) {}

UtilityErrorStream::~UtilityErrorStream() {
    flush();
}

namespace {
// Built during static initialisation, flushed and destroyed at exit.
UtilityErrorStream the_error_stream;
}  // namespace

UtilityErrorStream& error_stream() {
    return the_error_stream;
}

}  // namespace crelm
