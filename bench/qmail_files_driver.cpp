// One control-file operation per run, for bench/qmail_files_bench.sh, which
// times whole runs of this program beside a bare copy of the files each
// operation rewrites.
//
//   qmail_files_driver init-stores                 creates the authentication store
//   qmail_files_driver add-record <name> <domain>  qmail_add_mailname_record
//   qmail_files_driver remove-domain <domain>      qmail_remove_domain
//   qmail_files_driver rename-edits <old> <new>    the line edits of a domain
//                                                  rename, run in process
//                                                  (rcpthosts, locals,
//                                                  virtualdomains, assign)
//   qmail_files_driver add-domain <domain>         qmail_add_domain
//   qmail_files_driver domain-off <domain>         qmail_domain_off
//   qmail_files_driver domain-on <domain>          qmail_domain_on
//   qmail_files_driver add-alias <name> <domain> <alias>
//                                                  qmail_add_mail_alias
//   qmail_files_driver remove-alias <name> <domain> <alias>
//                                                  qmail_remove_mail_alias
//   qmail_files_driver remove-record <name> <domain>
//                                                  remove_mailname_files
//   qmail_files_driver rename-mailname <old> <domain> <new>
//                                                  qmail_rename_mailname
//   qmail_files_driver add-domain-alias <domain> <alias>
//                                                  qmail_add_domain_alias
//   qmail_files_driver remove-domain-alias <domain> <alias>
//                                                  qmail_remove_domain_alias
//   qmail_files_driver copy <path>...              the floor: each file copied
//                                                  through "<path>.tmp" in large
//                                                  blocks and renamed onto itself
//   qmail_files_driver synced-copy <path>...       the same, with the copy
//                                                  flushed before its rename and
//                                                  the directory after it: what
//                                                  surviving a power cut costs
//
// Exit status 0 on success, 1 on failure, 2 on a usage error.
#include <fcntl.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "qmail/control_files.h"
#include "qmail/domain_rename_edits.h"
#include "qmail/mailname_files.h"
#include "runtime/log.h"
#include "stores/mail_auth_paths.h"
#include "stores/mail_auth_store.h"

namespace {

bool write_all(int fd, const char* data, std::size_t size) {
    while (size > 0) {
        const ssize_t written = ::write(fd, data, size);
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return false;
        data += written;
        size -= static_cast<std::size_t>(written);
    }
    return true;
}

bool copy_blocks(int from, int to) {
    std::vector<char> block(1 << 20);
    ssize_t got = 0;
    while ((got = ::read(from, block.data(), block.size())) > 0)
        if (!write_all(to, block.data(), static_cast<std::size_t>(got)))
            return false;
    return got == 0;
}

bool sync_directory_of(const std::string& path) {
    const std::string::size_type slash = path.rfind('/');
    const std::string dir = slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
    const int fd = ::open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const bool synced = fd >= 0 && ::fsync(fd) == 0;
    if (fd >= 0)
        ::close(fd);
    return synced;
}

int bare_copy(const std::string& path, bool synced) {
    const std::string temp = path + ".tmp";
    const int from = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    const int to = ::open(temp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    const bool copied = from >= 0 && to >= 0 && copy_blocks(from, to) && (!synced || ::fsync(to) == 0);
    const bool closed = (to < 0 || ::close(to) == 0) && (from < 0 || ::close(from) == 0);
    if (!copied || !closed || ::rename(temp.c_str(), path.c_str()) != 0 || (synced && !sync_directory_of(path))) {
        std::fprintf(stderr, "copy of %s failed: %s\n", path.c_str(), std::strerror(errno));
        ::unlink(temp.c_str());
        return 1;
    }
    return 0;
}

int usage() {
    std::fprintf(stderr,
                 "usage: qmail_files_driver init-stores | add-record <name> <domain> | remove-domain <domain> |"
                 " rename-edits <old> <new> | copy <path>... | synced-copy <path>... |"
                 " add-domain <domain> | domain-off <domain> | domain-on <domain> |"
                 " add-alias <name> <domain> <alias> | remove-alias <name> <domain> <alias> |"
                 " remove-record <name> <domain> | rename-mailname <old> <domain> <new> |"
                 " add-domain-alias <domain> <alias> | remove-domain-alias <domain> <alias>\n");
    return 2;
}

// The edits of the other commands, each as the command makes it.
int other_edit(const std::string& action, int argc, char** argv) {
    if (action == "add-domain" && argc == 3)
        return qmail_add_domain(argv[2], false) == 0 ? 0 : 1;
    if (action == "domain-off" && argc == 3)
        return qmail_domain_off(argv[2]) == 0 ? 0 : 1;
    if (action == "domain-on" && argc == 3)
        return qmail_domain_on(argv[2]) == 0 ? 0 : 1;
    if (action == "add-alias" && argc == 5)
        return qmail_add_mail_alias(argv[2], argv[3], argv[4]) == 0 ? 0 : 1;
    if (action == "remove-alias" && argc == 5)
        return qmail_remove_mail_alias(argv[2], argv[3], argv[4]) == 0 ? 0 : 1;
    if (action == "remove-record" && argc == 4)
        return remove_mailname_files(argv[2], argv[3]) == 0 ? 0 : 1;
    if (action == "rename-mailname" && argc == 5)
        return qmail_rename_mailname(argv[2], argv[3], argv[4], "") == 0 ? 0 : 1;
    if (action == "add-domain-alias" && argc == 4)
        return qmail_add_domain_alias(argv[2], argv[3]) == 0 ? 0 : 1;
    if (action == "remove-domain-alias" && argc == 4)
        return qmail_remove_domain_alias(argv[2], argv[3]) == 0 ? 0 : 1;
    return usage();
}

}  // namespace

int main(int argc, char** argv) {
    log_init("stderr", 6, LOG_MAIL, 0, "qmail_files_driver");
    const std::string action = argc > 1 ? argv[1] : "";
    if ((action == "copy" || action == "synced-copy") && argc > 2) {
        int result = 0;
        for (int i = 2; i < argc; ++i)
            result |= bare_copy(argv[i], action == "synced-copy");
        return result;
    }
    if (action == "init-stores" && argc == 2)
        return init_mail_auth_store(kMailServerQmail) == 0 ? 0 : 1;
    if (action == "add-record" && argc == 4)
        return qmail_add_mailname_record(argv[2], argv[3]) == 0 ? 0 : 1;
    if (action == "remove-domain" && argc == 3)
        return qmail_remove_domain(argv[2]) == 0 ? 0 : 1;
    if (action == "rename-edits" && argc == 4)
        return crelm::qmail::rename_domain_in_control_files(argv[2], argv[3]) ? 0 : 1;
    return other_edit(action, argc, argv);
}
