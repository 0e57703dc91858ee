#include "util/process.h"

#include "runtime/log.h"

#include <cerrno>
#include <cstdio>

namespace {

constexpr const char* kUtilityDirectory = "/opt/qvt/admin/sbin";

void print_failure(const std::string& path, const std::string& out, const std::string& err) {
    std::fwrite(out.data(), 1, out.size(), stderr);
    std::fflush(stderr);
    errno = 0;
    if (err.empty())
        report_error(0, 0, "%s execution failed (no output)", path.c_str());
    else
        report_error(0, 0, "%s execution failed:\n%s", path.c_str(), err.c_str());
}

}  // namespace

int exec_report(const std::string& path, const ArgList& argv, FailureOutput output) {
    std::string out;
    std::string err;
    const int result = fork_execv_getouterr(out, err, path, argv);
    if (result != 0 && output == FailureOutput::report)
        print_failure(path, out, err);
    return result;
}

int exec_utility(const std::string& name, const ArgList& args) {
    if (name.find('/') != std::string::npos) {
        errno = 0;
        report_error(0, 0, "Utility name '%s' is invalid. Use only utility name without path.", name.c_str());
        return -1;
    }
    const std::string path = std::string(kUtilityDirectory) + "/" + name;
    ArgList argv{path};
    argv.insert(argv.end(), args.begin(), args.end());
    return exec_report(path, argv);
}
