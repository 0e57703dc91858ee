#include "support/sandbox.h"

#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <sstream>

extern char** environ;

namespace fs = std::filesystem;

namespace sorvane::test {
namespace {

constexpr uid_t kPopuserUid = 2110;
constexpr gid_t kPopuserGid = 2110;
constexpr gid_t kNofilesGid = 2111;

const char* const kTrees[] = {"/var/qmail", "/var/lib/crelm", "/etc/domainkeys", "/etc/qvt",
                              "/opt/qvt",   "/run",           "/tmp"};

const char* const kFakeDir = "/tmp/.sandbox/fakes";

[[noreturn]] void die(const std::string& what) {
    std::fprintf(stderr, "sandbox: %s: %s\n", what.c_str(), std::strerror(errno));
    std::abort();
}

void check(int result, const std::string& what) {
    if (result != 0)
        die(what);
}

// Mounts made by this process for the current test, undone at the next reset.
std::vector<std::string>& our_mounts() {
    static std::vector<std::string> mounts;
    return mounts;
}

void mount_tmpfs(const std::string& path, const char* options = "mode=0755") {
    check(mount("sorvane-test", path.c_str(), "tmpfs", 0, options), "mount tmpfs on " + path);
    our_mounts().push_back(path);
}

void bind_mount(const std::string& source, const std::string& target) {
    check(mount(source.c_str(), target.c_str(), nullptr, MS_BIND, nullptr), "bind " + source + " on " + target);
    our_mounts().push_back(target);
}

void undo_mounts() {
    auto& mounts = our_mounts();
    for (auto it = mounts.rbegin(); it != mounts.rend(); ++it)
        umount2(it->c_str(), MNT_DETACH);
    mounts.clear();
}

std::string slurp(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

void spit(const std::string& path, const std::string& content, mode_t mode) {
    fs::create_directories(fs::path(path).parent_path());
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, mode);
    if (fd < 0)
        die("create " + path);
    std::size_t done = 0;
    while (done < content.size()) {
        const ssize_t n = write(fd, content.data() + done, content.size() - done);
        if (n < 0)
            die("write " + path);
        done += static_cast<std::size_t>(n);
    }
    fchmod(fd, mode);
    close(fd);
}

// The host's account files as they were before any mount of ours, without
// entries that would clash with the sandbox's own.
std::string host_file_without(const char* path, const std::vector<std::string>& names) {
    static std::map<std::string, std::string> originals;
    if (!originals.count(path))
        originals[path] = slurp(path);
    std::istringstream in(originals[path]);
    std::string line, kept;
    while (std::getline(in, line)) {
        const std::string name = line.substr(0, line.find(':'));
        if (std::find(names.begin(), names.end(), name) == names.end())
            kept += line + "\n";
    }
    return kept;
}

void make_device(const std::string& path, unsigned major_number, unsigned minor_number) {
    check(mknod(path.c_str(), S_IFCHR | 0666, makedev(major_number, minor_number)), "mknod " + path);
    chmod(path.c_str(), 0666);
}

// A /dev of this process's own: the syslog socket a test binds at /dev/log
// is then private to it.
void private_dev() {
    mount_tmpfs("/dev", "mode=0755");
    make_device("/dev/null", 1, 3);
    make_device("/dev/zero", 1, 5);
    make_device("/dev/full", 1, 7);
    make_device("/dev/random", 1, 8);
    make_device("/dev/urandom", 1, 9);
    make_device("/dev/tty", 5, 0);
    symlink("/proc/self/fd", "/dev/fd");
    symlink("/proc/self/fd/0", "/dev/stdin");
    symlink("/proc/self/fd/1", "/dev/stdout");
    symlink("/proc/self/fd/2", "/dev/stderr");
    mkdir("/dev/shm", 01777);
    chmod("/dev/shm", 01777);
    mkdir("/dev/pts", 0755);
}

void private_accounts() {
    const std::vector<std::string> ours{"popuser", "nofiles"};
    std::string passwd = host_file_without("/etc/passwd", ours);
    passwd += "popuser:x:" + std::to_string(kPopuserUid) + ":" + std::to_string(kPopuserGid) +
              "::/var/qmail/popuser:/bin/false\n";
    std::string group = host_file_without("/etc/group", ours);
    group += "popuser:x:" + std::to_string(kPopuserGid) + ":\n";
    group += "nofiles:x:" + std::to_string(kNofilesGid) + ":\n";
    spit("/tmp/.sandbox/etc/passwd", passwd, 0644);
    spit("/tmp/.sandbox/etc/group", group, 0644);
    bind_mount("/tmp/.sandbox/etc/passwd", "/etc/passwd");
    bind_mount("/tmp/.sandbox/etc/group", "/etc/group");
}

std::string fake_script(const std::string& name, const std::string& extra) {
    return "#!/bin/sh\n"
           "d=" + std::string(kFakeDir) + "\n"
           "mkdir -p \"$d\"\n"
           "printf '%s\\n' \"$*\" >> \"$d/" + name + ".calls\"\n" +
           extra +
           "\nif [ -f \"$d/" + name + ".status\" ]; then exit \"$(cat \"$d/" + name + ".status\")\"; fi\n"
           "exit 0\n";
}

// qmail-newu refuses a missing assign, a malformed record and a file whose
// last line is not a single "."; a rebuild that succeeds leaves users/cdb
// newer than assign, as the real one does.
const char* const kQmailNewuCheck = R"SH(a=/var/qmail/users/assign
[ -f "$a" ] || exit 111
[ "$(tail -c 1 "$a" | od -An -c | tr -d ' ')" = '\n' ] || exit 111
[ "$(tail -n 1 "$a")" = "." ] || exit 111
if head -n -1 "$a" | grep -qvE '^[+=][^:]*:[^:]+:[0-9]+:[0-9]+:[^:]+:[^:]*:[^:]*:$'; then exit 111; fi
[ -f "$d/qmail-newu.status" ] || : > /var/qmail/users/cdb
)SH";

void seed_trees() {
    for (const char* dir : {"/var/qmail/bin", "/var/qmail/control", "/var/qmail/users", "/var/qmail/mailnames",
                            "/var/lib/crelm/mail/userdb", "/var/lib/crelm/mail/handlers", "/var/lib/crelm/mail/auth",
                            "/opt/qvt/admin/sbin", "/tmp/.sandbox/fakes"})
        fs::create_directories(dir);
    chmod("/tmp", 01777);
    spit("/var/qmail/users/assign", ".\n", 0644);
    install_fake("/var/qmail/bin/qmail-newu", kQmailNewuCheck);
    install_fake("/opt/qvt/admin/sbin/crelmrc");
    install_fake("/usr/bin/killall");
}

bool inside_trees(const std::string& path) {
    for (const char* tree : kTrees)
        if (path == tree || path.rfind(std::string(tree) + "/", 0) == 0)
            return true;
    return false;
}

int unique_number() {
    static int counter = 0;
    return ++counter;
}

// The build tree may itself live under /tmp (a CI checkout, say); the fresh
// /tmp of each test must still show it. A handle on the original /tmp,
// taken before the first mount, lets its top-level directory be bound back.
int original_tmp() {
    static const int handle = open("/tmp", O_PATH | O_DIRECTORY | O_CLOEXEC);
    return handle;
}

void keep_build_tree_visible() {
    for (const char* binary_path : {SORVANE_BINARY, SORVANE_TEST_BIN_DIR}) {
        const std::string path = binary_path;
        if (path.rfind("/tmp/", 0) != 0)
            continue;
        const std::string top = path.substr(5, path.find('/', 5) - 5);
        const std::string target = "/tmp/" + top;
        if (path_exists(target))
            continue;
        fs::create_directories(target);
        bind_mount("/proc/self/fd/" + std::to_string(original_tmp()) + "/" + top, target);
    }
}

}  // namespace

void SandboxTest::SetUp() {
    reset_sandbox();
}

void reset_sandbox() {
    original_tmp();
    undo_mounts();
    for (const char* tree : kTrees)
        mount_tmpfs(tree);
    keep_build_tree_visible();
    private_dev();
    private_accounts();
    seed_trees();
}

uid_t popuser_uid() { return kPopuserUid; }
gid_t popuser_gid() { return kPopuserGid; }
gid_t nofiles_gid() { return kNofilesGid; }

void install_program(const std::string& path, const std::string& content) {
    if (inside_trees(path)) {
        spit(path, content, 0755);
        return;
    }
    const std::string staged = "/tmp/.sandbox/programs/" + std::to_string(unique_number());
    spit(staged, content, 0755);
    struct stat st{};
    if (lstat(path.c_str(), &st) == 0) {
        bind_mount(staged, path);
        return;
    }
    // Missing: give the directory a private overlay and write into it.
    const std::string parent = fs::path(path).parent_path();
    const std::string layer = "/tmp/.sandbox/overlay/" + std::to_string(unique_number());
    fs::create_directories(layer + "/upper");
    fs::create_directories(layer + "/work");
    const std::string options = "lowerdir=" + parent + ",upperdir=" + layer + "/upper,workdir=" + layer + "/work";
    check(mount("overlay", parent.c_str(), "overlay", 0, options.c_str()), "overlay on " + parent);
    our_mounts().push_back(parent);
    spit(path, content, 0755);
}

void install_fake(const std::string& path, const std::string& extra_script) {
    install_program(path, fake_script(fs::path(path).filename(), extra_script));
}

std::vector<std::string> fake_calls(const std::string& name) {
    std::vector<std::string> calls;
    std::ifstream in(std::string(kFakeDir) + "/" + name + ".calls");
    for (std::string line; std::getline(in, line);)
        calls.push_back(line);
    return calls;
}

void set_fake_status(const std::string& name, int status) {
    spit(std::string(kFakeDir) + "/" + name + ".status", std::to_string(status) + "\n", 0644);
}

std::string scratch_dir() {
    const std::string dir = "/tmp/scratch";
    fs::create_directories(dir);
    return dir;
}

std::string read_file(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    EXPECT_TRUE(in.good()) << "cannot read " << path;
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

void write_file(const std::string& path, const std::string& content, mode_t mode) {
    spit(path, content, mode);
}

bool path_exists(const std::string& path) {
    struct stat st{};
    return lstat(path.c_str(), &st) == 0;
}

FileInfo file_info(const std::string& path) {
    struct stat st{};
    FileInfo info{0, 0, 0, '?'};
    if (lstat(path.c_str(), &st) != 0) {
        ADD_FAILURE() << "missing: " << path;
        return info;
    }
    info.uid = st.st_uid;
    info.gid = st.st_gid;
    info.mode = st.st_mode & 07777;
    info.type = S_ISREG(st.st_mode) ? 'f' : S_ISDIR(st.st_mode) ? 'd' : S_ISLNK(st.st_mode) ? 'l' : '?';
    return info;
}

void pin_file(const std::string& path) {
    bind_mount(path, path);
}

void unpin_file(const std::string& path) {
    check(umount2(path.c_str(), MNT_DETACH), "umount " + path);
    auto& mounts = our_mounts();
    mounts.erase(std::find(mounts.begin(), mounts.end(), path));
}

std::vector<std::string> temporaries_beside(const std::string& path) {
    const fs::path file(path);
    const std::string prefix = file.filename().string() + ".tmp";
    std::vector<std::string> found;
    std::error_code ec;
    for (auto it = fs::directory_iterator(file.parent_path(), ec); !ec && it != fs::directory_iterator();
         it.increment(ec)) {
        const std::string name = it->path().filename().string();
        if (name == prefix || name.rfind(prefix + ".", 0) == 0)
            found.push_back(name);
    }
    std::sort(found.begin(), found.end());
    return found;
}

bool waits_for_flock(pid_t pid, const std::string& lock_file) {
    // A waiting line reads "N: -> FLOCK ADVISORY WRITE <pid> <major>:<minor>:<inode> 0 EOF".
    std::string inode;
    if (!lock_file.empty()) {
        struct stat info {};
        if (stat(lock_file.c_str(), &info) != 0)
            return false;
        inode = ":" + std::to_string(info.st_ino) + " ";
    }
    std::ifstream locks("/proc/locks");
    for (std::string line; std::getline(locks, line);)
        if (line.find("-> FLOCK") != std::string::npos &&
            line.find(" " + std::to_string(pid) + " ") != std::string::npos && line.find(inode) != std::string::npos)
            return true;
    return false;
}

void plant_foreign_lock_directory() {
    check(mkdir("/run/sorvane", 0755), "mkdir /run/sorvane");
    check(chown("/run/sorvane", 65534, 65534), "chown /run/sorvane");
}

std::vector<std::string> list_tree(const std::string& root) {
    std::vector<std::string> entries;
    std::error_code ec;
    for (auto it = fs::recursive_directory_iterator(root, ec); !ec && it != fs::recursive_directory_iterator();
         it.increment(ec)) {
        std::string relative = fs::relative(it->path(), root).string();
        if (it->is_directory() && !it->is_symlink())
            relative += "/";
        entries.push_back(relative);
    }
    std::sort(entries.begin(), entries.end());
    return entries;
}

// ---- processes ----

namespace {

struct Pipe {
    int read_end = -1;
    int write_end = -1;
    Pipe() {
        int fds[2];
        if (pipe2(fds, O_CLOEXEC) != 0)
            die("pipe");
        read_end = fds[0];
        write_end = fds[1];
    }
};

std::vector<std::string> child_environment(const RunOptions& options) {
    std::vector<std::string> env;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string text = *entry;
        const std::string name = text.substr(0, text.find('='));
        const bool removed = std::find(options.unset_env.begin(), options.unset_env.end(), name) != options.unset_env.end();
        const bool replaced = std::any_of(options.env.begin(), options.env.end(), [&](const std::string& extra) {
            return extra.substr(0, extra.find('=')) == name;
        });
        if (!removed && !replaced)
            env.push_back(text);
    }
    env.insert(env.end(), options.env.begin(), options.env.end());
    return env;
}

std::vector<char*> as_argv(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    for (auto& text : texts)
        pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
}

}  // namespace

ProcessResult run_process(const std::vector<std::string>& argv, const RunOptions& options) {
    std::vector<std::string> args = argv;
    std::vector<std::string> env = child_environment(options);
    std::vector<char*> c_args = as_argv(args);
    std::vector<char*> c_env = as_argv(env);
    Pipe out, err, in;
    const pid_t pid = fork();
    if (pid < 0)
        die("fork");
    if (pid == 0) {
        if (options.stdin_mode == RunOptions::Stdin::Pipe)
            dup2(in.read_end, 0);
        else if (options.stdin_mode == RunOptions::Stdin::Null)
            dup2(open("/dev/null", O_RDONLY), 0);
        else
            close(0);
        dup2(out.write_end, 1);
        dup2(err.write_end, 2);
        execve(c_args[0], c_args.data(), c_env.data());
        std::fprintf(stderr, "exec %s: %s\n", c_args[0], std::strerror(errno));
        _exit(127);
    }
    close(out.write_end);
    close(err.write_end);
    close(in.read_end);
    signal(SIGPIPE, SIG_IGN);
    bool input_pending = options.stdin_mode == RunOptions::Stdin::Pipe;
    if (!input_pending)
        close(in.write_end);
    ProcessResult result;
    auto feed_input = [&] {
        std::size_t done = 0;
        while (done < options.input.size()) {
            const ssize_t n = write(in.write_end, options.input.data() + done, options.input.size() - done);
            if (n <= 0)
                break;
            done += static_cast<std::size_t>(n);
        }
        close(in.write_end);
        input_pending = false;
    };
    if (input_pending && !options.input_after_output)
        feed_input();
    bool out_open = true, err_open = true;
    while (out_open || err_open) {
        pollfd fds[2] = {{out_open ? out.read_end : -1, POLLIN, 0}, {err_open ? err.read_end : -1, POLLIN, 0}};
        if (poll(fds, 2, -1) < 0) {
            if (errno == EINTR)
                continue;
            die("poll");
        }
        char buffer[65536];
        for (int i = 0; i < 2; ++i) {
            if (!(fds[i].revents & (POLLIN | POLLHUP | POLLERR)))
                continue;
            const ssize_t n = read(fds[i].fd, buffer, sizeof buffer);
            if (n <= 0) {
                close(fds[i].fd);
                (i == 0 ? out_open : err_open) = false;
                continue;
            }
            (i == 0 ? result.out : result.err).append(buffer, static_cast<std::size_t>(n));
        }
        if (input_pending && result.out.find(*options.input_after_output) != std::string::npos)
            feed_input();
    }
    if (input_pending)
        close(in.write_end);
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return result;
}

std::string sorvane_path() {
    return SORVANE_BINARY;
}

std::string sorvane_audit_path() {
    return SORVANE_AUDIT_BINARY;
}

ProcessResult run_sorvane_audit(const std::vector<std::string>& args, const RunOptions& options) {
    std::vector<std::string> argv{sorvane_audit_path()};
    argv.insert(argv.end(), args.begin(), args.end());
    return run_process(argv, options);
}

std::string test_program_path(const std::string& name) {
    return std::string(SORVANE_TEST_BIN_DIR) + "/" + name;
}

ProcessResult run_sorvane(const std::vector<std::string>& args, const RunOptions& options) {
    std::vector<std::string> argv{sorvane_path()};
    argv.insert(argv.end(), args.begin(), args.end());
    return run_process(argv, options);
}

// ---- syslog ----

SyslogCapture::SyslogCapture() {
    fd_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd_ < 0)
        die("socket");
    unlink("/dev/log");
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strcpy(address.sun_path, "/dev/log");
    if (bind(fd_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
        die("bind /dev/log");
    chmod("/dev/log", 0666);
}

SyslogCapture::~SyslogCapture() {
    close(fd_);
    unlink("/dev/log");
}

std::vector<std::string> SyslogCapture::records() {
    char buffer[16384];
    for (;;) {
        const ssize_t n = recv(fd_, buffer, sizeof buffer, 0);
        if (n < 0)
            break;
        received_.emplace_back(buffer, static_cast<std::size_t>(n));
    }
    return received_;
}

std::vector<std::string> SyslogCapture::messages() {
    std::vector<std::string> texts;
    for (const std::string& record : records()) {
        const auto close_bracket = record.find("]: ");
        const auto colon = record.find(": ", record.find('>'));
        if (close_bracket != std::string::npos)
            texts.push_back(record.substr(close_bracket + 3));
        else if (colon != std::string::npos)
            texts.push_back(record.substr(colon + 2));
        else
            texts.push_back(record);
    }
    return texts;
}

}  // namespace sorvane::test
