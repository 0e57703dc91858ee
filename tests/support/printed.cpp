#include "support/printed.h"

#include <cstring>

namespace sorvane::test {

std::string with_system_error(const std::string& message, int error) {
    return message + "\nSystem error " + std::to_string(error) + ": " + std::strerror(error) + "\n";
}

}  // namespace sorvane::test
