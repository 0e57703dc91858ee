// The null-terminated argument array that execv takes, built before fork so
// that the child allocates nothing.
#pragma once

#include <string>
#include <vector>

namespace crelm::util {

inline std::vector<char*> exec_argv(const std::vector<std::string>& args) {
    std::vector<char*> pointers;
    pointers.reserve(args.size() + 1);
    for (const std::string& arg : args)
        pointers.push_back(const_cast<char*>(arg.c_str()));
    pointers.push_back(nullptr);
    return pointers;
}

}  // namespace crelm::util
