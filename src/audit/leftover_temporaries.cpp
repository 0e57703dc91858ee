#include "audit/leftover_temporaries.h"

#include <sys/stat.h>

#include "mailbox/open_directory.h"
#include "util/stale_entries.h"
#include "util/walk_steps.h"

namespace crelm::audit {

namespace {

constexpr const char* kControlFiles[] = {"rcpthosts", "virtualdomains", "locals", "rejectnonexist"};

void collect(const std::string& dir, const std::vector<std::string_view>& files, std::vector<std::string>& paths) {
    const util::UniqueFd fd = mailbox::open_directory(dir);
    std::vector<std::string> names;
    if (!fd.valid() || !util::read_directory_names(fd.get(), names))
        return;  // the files' own checks report an unreadable directory
    for (const std::string& name : names)
        for (std::string_view file : files)
            if (is_edit_temporary(name, file))
                paths.push_back(dir + "/" + name);
}

}  // namespace

bool is_edit_temporary(std::string_view name, std::string_view file) {
    const std::string copy = std::string(file) + ".tmp";
    return name == copy || util::is_unique_temporary(name, copy + ".");
}

void report_edit_temporaries(const AuditContext& context, const std::vector<std::string>& paths) {
    for (const std::string& path : paths) {
        const std::string file = path.substr(0, path.rfind(".tmp"));
        context.findings.add(Severity::notice, "leftover-temporary", path,
                             "a copy that a killed edit of " + file +
                                 " left; the next sorvane command that edits the file removes it");
    }
}

void check_control_temporaries(const AuditContext& context) {
    if (!context.scope.whole_server())
        return;
    std::vector<std::string> paths;
    collect("/var/qmail/control", {std::begin(kControlFiles), std::end(kControlFiles)}, paths);
    collect("/var/qmail/users", {"assign"}, paths);
    report_edit_temporaries(context, paths);
}

}  // namespace crelm::audit
