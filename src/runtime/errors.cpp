#include "runtime/errors.h"

#include <cstdlib>
#include <cstring>
#include <cxxabi.h>
#include <execinfo.h>
#include <memory>

namespace crelm {

Traceback::Traceback(unsigned skip) {
    const int captured = backtrace(addresses_, static_cast<int>(kMaxFrames));
    frames_ = captured > 0 ? static_cast<unsigned>(captured) : 0;
    skip_ = skip > frames_ ? frames_ : skip;
}

Traceback::Traceback(const Traceback& other)
    : frames_(other.frames_), skip_(other.skip_) {
    std::memcpy(addresses_, other.addresses_, sizeof addresses_);
}

Traceback& Traceback::operator=(const Traceback& other) {
    if (this != &other) {
        std::free(symbols_);
        symbols_ = nullptr;
        frames_ = other.frames_;
        skip_ = other.skip_;
        std::memcpy(addresses_, other.addresses_, sizeof addresses_);
    }
    return *this;
}

Traceback::~Traceback() {
    std::free(symbols_);
}

namespace {

// "binary(_ZN5crelm3fooEv+0x12) [0x...]": the part between the first '(' and
// the next '+' is a mangled name, printed demangled where possible.
std::string demangle_symbol_line(const std::string& line) {
    const auto open = line.find('(');
    if (open == std::string::npos)
        return line;
    const auto plus = line.find('+', open + 1);
    if (plus == std::string::npos)
        return line;
    const std::string mangled = line.substr(open + 1, plus - open - 1);
    int status = 0;
    std::unique_ptr<char, decltype(&std::free)> demangled(
        abi::__cxa_demangle(mangled.c_str(), nullptr, nullptr, &status), &std::free);
    if (status != 0 || !demangled)
        return line;
    return line.substr(0, open + 1) + demangled.get() + line.substr(plus);
}

}  // namespace

std::ostream& Traceback::print(std::ostream& out) const {
    if (symbols_ == nullptr && frames_ > 0)
        symbols_ = backtrace_symbols(addresses_, static_cast<int>(frames_));
    if (symbols_ == nullptr) {
        out << "Traceback addresses:\n";
        for (unsigned i = skip_; i < frames_; ++i)
            out << '\t' << addresses_[i] << '\n';
        return out;
    }
    if (frames_ > skip_) {
        out << "Traceback:\n";
        for (unsigned i = skip_; i < frames_; ++i)
            out << '\t' << demangle_symbol_line(symbols_[i]) << '\n';
    }
    return out;
}

std::string demangled_type_name(const char* mangled) {
    int status = 0;
    std::unique_ptr<char, decltype(&std::free)> demangled(
        abi::__cxa_demangle(mangled, nullptr, nullptr, &status), &std::free);
    if (status == 0 && demangled)
        return demangled.get();
    return mangled[0] == '*' ? mangled + 1 : mangled;
}

}  // namespace crelm
