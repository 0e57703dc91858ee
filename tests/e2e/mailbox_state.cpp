#include "e2e/mailbox_state.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <sstream>

namespace sorvane::test {
namespace {

const char* const kMaildirDirectories[] = {
    "Maildir",           "Maildir/tmp",         "Maildir/new",         "Maildir/cur",         "Maildir/.Spam",
    "Maildir/.Spam/tmp", "Maildir/.Spam/new",   "Maildir/.Spam/cur",   "Maildir/.Sent",       "Maildir/.Sent/tmp",
    "Maildir/.Sent/new", "Maildir/.Sent/cur",   "Maildir/.Drafts",     "Maildir/.Drafts/tmp", "Maildir/.Drafts/new",
    "Maildir/.Drafts/cur", "Maildir/.Trash",    "Maildir/.Trash/tmp",  "Maildir/.Trash/new",  "Maildir/.Trash/cur",
    "@attachments"};
const char* const kFolders[] = {"Maildir/.Spam", "Maildir/.Sent", "Maildir/.Drafts", "Maildir/.Trash"};

std::string owner() {
    return std::to_string(popuser_uid()) + ":" + std::to_string(popuser_gid());
}

std::string escaped(const std::string& text) {
    std::string out;
    for (const char c : text) {
        if (c == '\n')
            out += "\\n";
        else if (c == '\\')
            out += "\\\\";
        else
            out += c;
    }
    return out;
}

std::vector<std::string> lines_of(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    std::string line;
    while (std::getline(in, line))
        lines.push_back(line + "\n");
    return lines;
}

}  // namespace

long long quota_header(const std::string& mailname, long long quota) {
    if (quota < 0)
        return 0;
    struct stat attachments {};
    const std::string path = kMailnamesDir + "/" + kDomain + "/" + mailname + "/@attachments";
    EXPECT_EQ(lstat(path.c_str(), &attachments), 0) << path;
    const long long left = quota - static_cast<long long>(attachments.st_size);
    return left > 0 ? left : 1;
}

void SeededServerTest::SetUp() {
    SandboxTest::SetUp();
    write_file("/etc/qvt/qvt.conf", "", 0644);
    seed_server_state();
    expected = seeded_server_state();
}

std::string maildirsize_text(long long quota_header, long long bytes, long long count) {
    char text[100];
    std::snprintf(text, sizeof text, "%lldS,0C\n%12lld%12lld\n", quota_header, bytes, count);
    return text;
}

std::string owned_file_line(const std::string& relative, const std::string& content, const std::string& mode) {
    return relative + " f " + owner() + " " + mode + " " + escaped(content) + "\n";
}

std::string new_mail_tree_lines(const std::string& domain, const std::string& mailname, const std::string& qmail,
                                const std::string& maildirsize) {
    const std::string home = domain + "/" + mailname;
    std::string lines = home + "/ d " + owner() + " 0700\n";
    lines += owned_file_line(home + "/.qmail", qmail, "0600");
    for (const char* dir : kMaildirDirectories)
        lines += home + "/" + dir + "/ d " + owner() + " 0700\n";
    for (const char* folder : kFolders)
        lines += owned_file_line(home + "/" + folder + "/maildirfolder", "", "0600");
    if (!maildirsize.empty())
        lines += owned_file_line(home + "/Maildir/maildirsize", maildirsize, "0644");
    return sorted_lines(lines);
}

std::string with_lines(const std::string& listing, const std::string& added) {
    return sorted_lines(listing + added);
}

std::string without_lines(const std::string& listing, const std::string& prefix) {
    std::string kept;
    for (const std::string& line : lines_of(listing))
        if (line.rfind(prefix, 0) != 0)
            kept += line;
    return kept;
}

std::string with_file_content(const std::string& listing, const std::string& relative, const std::string& content,
                              const std::string& mode) {
    return with_lines(without_lines(listing, relative + " "), owned_file_line(relative, content, mode));
}

std::string assign_without(const std::string& assign, const std::string& prefix) {
    return without_lines(assign, prefix);
}

std::string rows_without_addresses(const std::string& rows, const std::vector<std::string>& addresses) {
    std::string kept;
    for (const std::string& line : lines_of(rows)) {
        bool drop = false;
        for (const std::string& address : addresses)
            if (line.rfind(address + "|", 0) == 0 || line.find("|" + address + "|") != std::string::npos)
                drop = true;
        if (!drop)
            kept += line;
    }
    return kept;
}

bool install_real_deliverquota() {
    if (!path_exists("/usr/sbin/deliverquota"))
        return false;
    install_program("/usr/bin/deliverquota", read_file("/usr/sbin/deliverquota"));
    return true;
}

void install_fake_deliverquota() {
    install_fake("/usr/bin/deliverquota");
}

ProcessResult run_delivery_line(const std::string& home, const std::string& line, const std::string& message) {
    std::string command = line;
    if (!command.empty() && command.back() == '\n')
        command.pop_back();
    if (command.rfind("|", 0) == 0)
        command.erase(0, 1);
    const std::string script = "cd \"$1\" && exec setpriv --reuid=" + std::to_string(popuser_uid()) +
                               " --regid=" + std::to_string(popuser_gid()) + " --clear-groups /bin/sh -c \"$2\"";
    RunOptions options;
    options.stdin_mode = RunOptions::Stdin::Pipe;
    options.input = message;
    return run_process({"/bin/sh", "-c", script, "deliver", home, command}, options);
}

std::vector<std::string> addresses_at_all_domains(const std::vector<std::string>& local_parts) {
    std::vector<std::string> addresses;
    for (const std::string& domain : {kDomain, kAliasOne, kAliasTwo})
        for (const std::string& local : local_parts)
            addresses.push_back(local + "@" + domain);
    return addresses;
}

}  // namespace sorvane::test
