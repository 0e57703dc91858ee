// What the sandbox's system trees hold, to show that a refused command left
// them exactly as they were.
#pragma once

#include <map>
#include <string>

#include "support/sandbox.h"

namespace sorvane::test {

// Every path below the trees a command could change, with the contents of
// its regular files ("" for directories and other entries).
inline std::map<std::string, std::string> snapshot_system_trees() {
    std::map<std::string, std::string> snapshot;
    for (const std::string root : {"/var/qmail", "/var/lib/crelm", "/etc/domainkeys", "/run/sorvane/locks"}) {
        for (const auto& entry : list_tree(root)) {
            const std::string path = root + "/" + entry;
            snapshot[path] = file_info(path).type == 'f' ? read_file(path) : "";
        }
    }
    return snapshot;
}

}  // namespace sorvane::test
