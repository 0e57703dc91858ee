// Shared setup of the control-file and assign tests: fresh control files, an
// initialised authentication store and handlers store, the records as the
// mail system expects to read them, and the four files read in full.
#pragma once

#include <sys/types.h>

#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "runtime/child.h"
#include "support/printed.h"
#include "support/sandbox.h"

namespace sorvane::test {

inline constexpr const char* kRcptHostsPath = "/var/qmail/control/rcpthosts";
inline constexpr const char* kVirtualDomainsPath = "/var/qmail/control/virtualdomains";
inline constexpr const char* kLocalsPath = "/var/qmail/control/locals";
inline constexpr const char* kRejectPath = "/var/qmail/control/rejectnonexist";
inline constexpr const char* kAssignPath = "/var/qmail/users/assign";
inline constexpr const char* kMailnamesPath = "/var/qmail/mailnames";

// The four files this layer keeps, each read whole ("<missing>" when absent).
struct ControlFiles {
    std::string rcpthosts;
    std::string virtualdomains;
    std::string locals;
    std::string assign;
    bool operator==(const ControlFiles&) const = default;
};
std::ostream& operator<<(std::ostream& out, const ControlFiles& files);

ControlFiles read_control_files();
// A file's content, or "<missing>".
std::string content_or_missing(const std::string& path);

// "popuser:<uid>:<gid>:" of the sandbox's mail owner.
std::string owner_fields();
// "+<domain>:popuser:<uid>:<gid>:/var/qmail/mailnames/<domain>:::".
std::string plus_record(const std::string& domain);
// "=<domain>-<key>:popuser:<uid>:<gid>:/var/qmail/mailnames/<domain>/<name>:::".
std::string name_record(const std::string& domain, const std::string& key, const std::string& name);
// The records one per line, then the closing ".".
std::string assign_of(const std::vector<std::string>& records);
// Lines joined, each followed by a newline.
std::string lines_of(const std::vector<std::string>& lines);

// The names in directory dir (not below it), sorted; links are not followed.
std::vector<std::string> entries_of(const std::string& dir);

// Fails the test unless assign ends with its "." line (and holds no other).
void expect_dot_last();

struct StepResult {
    int status = 0;
    Printed printed;
};

// Runs step in this process, catching what it prints.
StepResult run_step(const std::function<int()>& step);

// What the code logs is not caught: a caught syslog socket that nobody reads
// would fill up and block the code under test.
class ControlFilesTest : public SandboxTest {
protected:
    // rcpthosts and locals hold "localhost", virtualdomains is empty, assign
    // holds ".", all root's with mode 0644; both stores are initialised.
    void SetUp() override;
};

}  // namespace sorvane::test
