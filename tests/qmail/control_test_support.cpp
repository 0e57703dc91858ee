#include "qmail/control_test_support.h"

#include <algorithm>
#include <filesystem>

#include "stores/mail_auth_paths.h"
#include "stores/mail_auth_store.h"
#include "stores/mail_handlers_store.h"

namespace sorvane::test {

std::ostream& operator<<(std::ostream& out, const ControlFiles& files) {
    return out << "\n--- rcpthosts\n"
               << files.rcpthosts << "--- virtualdomains\n"
               << files.virtualdomains << "--- locals\n"
               << files.locals << "--- assign\n"
               << files.assign;
}

std::string content_or_missing(const std::string& path) {
    return path_exists(path) ? read_file(path) : "<missing>";
}

ControlFiles read_control_files() {
    return ControlFiles{content_or_missing(kRcptHostsPath), content_or_missing(kVirtualDomainsPath),
                        content_or_missing(kLocalsPath), content_or_missing(kAssignPath)};
}

std::string owner_fields() {
    return "popuser:" + std::to_string(popuser_uid()) + ":" + std::to_string(popuser_gid()) + ":";
}

std::string plus_record(const std::string& domain) {
    return "+" + domain + ":" + owner_fields() + kMailnamesPath + "/" + domain + ":::";
}

std::string name_record(const std::string& domain, const std::string& key, const std::string& name) {
    return "=" + domain + "-" + key + ":" + owner_fields() + kMailnamesPath + "/" + domain + "/" + name + ":::";
}

std::string lines_of(const std::vector<std::string>& lines) {
    std::string text;
    for (const std::string& line : lines)
        text += line + "\n";
    return text;
}

std::string assign_of(const std::vector<std::string>& records) {
    return lines_of(records) + ".\n";
}

std::vector<std::string> entries_of(const std::string& dir) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(dir))
        names.push_back(entry.path().filename());
    std::sort(names.begin(), names.end());
    return names;
}

void expect_dot_last() {
    const std::string assign = read_file(kAssignPath);
    ASSERT_GE(assign.size(), 2u);
    EXPECT_EQ(assign.substr(assign.size() - 2), ".\n") << assign;
    EXPECT_TRUE(assign.size() == 2 || assign[assign.size() - 3] == '\n') << assign;
    EXPECT_EQ(assign.find("\n.\n"), assign.size() == 2 ? std::string::npos : assign.size() - 3) << assign;
}

StepResult run_step(const std::function<int()>& step) {
    StepResult result;
    result.printed = printed_by([&] { result.status = step(); });
    return result;
}

void ControlFilesTest::SetUp() {
    SandboxTest::SetUp();
    write_file(kRcptHostsPath, "localhost\n");
    write_file(kVirtualDomainsPath, "");
    write_file(kLocalsPath, "localhost\n");
    ASSERT_EQ(init_mail_auth_store(kMailServerQmail), 0);
    set_mail_handlers_db_path(kDefaultMailHandlersDbPath);
    ASSERT_EQ(recreate_mail_handlers_db(), 0);
}

}  // namespace sorvane::test
