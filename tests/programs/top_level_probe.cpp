// Runs main's top-level handling around a body that throws what argv[1] asks
// for, so that tests can check each catch without a failing command.
#include <cstdlib>
#include <stdexcept>
#include <string>

#include "commands/top_level.h"
#include "runtime/errors.h"

namespace probe {

struct TracedError : std::runtime_error, crelm::Traceback {
    explicit TracedError(const char* what) : std::runtime_error(what), crelm::Traceback(0) {}
};

[[noreturn]] __attribute__((noinline)) void throw_traced() {
    throw TracedError("traced failure");
}

}  // namespace probe

int main(int argc, char** argv) {
    const std::string kind = argc > 1 ? argv[1] : "";
    return crelm::mail::sorvane_commands::run_with_top_level_handling([&]() -> int {
        if (kind == "util")
            throw crelm::CrelmUtilException("utility failed");
        if (kind == "runtime")
            throw std::runtime_error("boom");
        if (kind == "logic")
            throw std::logic_error("bad logic");
        if (kind == "traced")
            probe::throw_traced();
        if (kind == "int")
            throw 42;
        return argc > 2 ? std::atoi(argv[2]) : 0;
    });
}
