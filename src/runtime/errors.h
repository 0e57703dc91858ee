// Exception types of the command layer that the entry point treats specially.
#pragma once

#include <cstddef>
#include <ostream>
#include <stdexcept>
#include <string>

namespace crelm {

// A utility-level failure shown to the operator as is: main prints its text
// on standard output and standard error, without the "Fatal error:" frame.
class CrelmUtilException : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// A mixin for exception types that carry the call stack of the place that
// built them; main prints it after the fatal-error line.
class Traceback {
public:
    static constexpr unsigned kMaxFrames = 11;

    // Captures up to 11 return addresses; skip is the number of leading
    // frames left out when printing (lowered to the captured count).
    explicit Traceback(unsigned skip = 1);
    Traceback(const Traceback& other);
    Traceback& operator=(const Traceback& other);
    virtual ~Traceback();

    // Writes "Traceback:" and one tab-indented, demangled line per frame, or
    // "Traceback addresses:" and the bare addresses when symbols are missing.
    std::ostream& print(std::ostream& out) const;

    unsigned frame_count() const { return frames_; }
    unsigned skip_count() const { return skip_; }

private:
    unsigned frames_ = 0;
    unsigned skip_ = 0;
    void* addresses_[kMaxFrames] = {};
    mutable char** symbols_ = nullptr;
};

// The demangled name of a type, or the raw name without a leading '*' when
// demangling fails.
std::string demangled_type_name(const char* mangled);

}  // namespace crelm
