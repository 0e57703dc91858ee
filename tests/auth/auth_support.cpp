#include "auth/auth_support.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <sstream>

#include "auth/cdb_lookup.h"

extern char** environ;

namespace sorvane::test {

std::string sorvane_auth_path() { return SORVANE_AUTH_BINARY; }

std::string login_input(const std::string& login, const std::string& password) {
    std::string input = login;
    input += '\0';
    input += password;
    input += '\0';
    return input;
}

namespace {

std::vector<std::string> child_environment(const std::vector<std::string>& extra, bool traced) {
    std::vector<std::string> entries;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string text(*entry);
        if (text.rfind("QVT_", 0) != 0 && text.rfind("AUTHORIZED=", 0) != 0)
            entries.push_back(text);
    }
    entries.insert(entries.end(), extra.begin(), extra.end());
    // The leak checker of a sanitizer build cannot work under ptrace.
    if (traced)
        entries.emplace_back("ASAN_OPTIONS=detect_leaks=0");
    return entries;
}

std::vector<char*> pointers(std::vector<std::string>& texts) {
    std::vector<char*> list;
    for (std::string& text : texts)
        list.push_back(text.data());
    list.push_back(nullptr);
    return list;
}

}  // namespace

ProcessResult run_auth(const AuthRunOptions& options) {
    const std::string out_path = scratch_dir() + "/auth.out";
    const std::string err_path = scratch_dir() + "/auth.err";
    int input_pipe[2] = {-1, -1};
    if (options.input) {
        EXPECT_EQ(pipe(input_pipe), 0);
        // A pipe holds 64 KiB: every input of these tests fits before the
        // program reads.
        EXPECT_EQ(write(input_pipe[1], options.input->data(), options.input->size()),
                  static_cast<ssize_t>(options.input->size()));
        close(input_pipe[1]);
    }
    std::vector<std::string> argv = options.prefix;
    argv.push_back(sorvane_auth_path());
    argv.insert(argv.end(), options.program.begin(), options.program.end());
    std::vector<std::string> env = child_environment(options.env, !options.prefix.empty());
    std::vector<char*> argv_pointers = pointers(argv);
    std::vector<char*> env_pointers = pointers(env);
    const pid_t pid = fork();
    if (pid == 0) {
        const int out = open(out_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        const int err = open(err_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        const int null = open("/dev/null", O_RDONLY);
        dup2(null, 0);
        dup2(out, 1);
        dup2(err, 2);
        if (options.input) {
            dup2(input_pipe[0], 3);
        } else {
            close(3);
        }
        for (int fd = 4; fd < 64; ++fd)
            close(fd);
        execve(argv_pointers[0], argv_pointers.data(), env_pointers.data());
        _exit(127);
    }
    if (options.input)
        close(input_pipe[0]);
    int status = 0;
    waitpid(pid, &status, 0);
    ProcessResult result;
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    result.out = read_file(out_path);
    result.err = read_file(err_path);
    return result;
}

ProcessResult log_in(const std::string& login, const std::string& password, std::vector<std::string> env) {
    AuthRunOptions options;
    options.input = login_input(login, password);
    options.env = std::move(env);
    return run_auth(options);
}

std::optional<std::string> env_value(const std::string& env_output, const std::string& name) {
    std::istringstream in(env_output);
    for (std::string line; std::getline(in, line);)
        if (line.rfind(name + "=", 0) == 0)
            return line.substr(name.size() + 1);
    return std::nullopt;
}

namespace {

void put_number(std::string& out, std::uint32_t value) {
    for (int i = 0; i < 4; ++i)
        out += static_cast<char>((value >> (8 * i)) & 0xff);
}

void set_number(std::string& out, std::size_t at, std::uint32_t value) {
    for (int i = 0; i < 4; ++i)
        out[at + static_cast<std::size_t>(i)] = static_cast<char>((value >> (8 * i)) & 0xff);
}

}  // namespace

std::string make_cdb(const std::vector<std::pair<std::string, std::string>>& records) {
    std::string out(2048, '\0');
    std::array<std::vector<std::pair<std::uint32_t, std::uint32_t>>, 256> buckets;
    for (const auto& [key, value] : records) {
        const std::uint32_t hash = crelm::auth::cdb_hash(key);
        buckets[hash & 255].emplace_back(hash, static_cast<std::uint32_t>(out.size()));
        put_number(out, static_cast<std::uint32_t>(key.size()));
        put_number(out, static_cast<std::uint32_t>(value.size()));
        out += key;
        out += value;
    }
    for (std::size_t i = 0; i < buckets.size(); ++i) {
        const std::size_t slots = buckets[i].size() * 2;
        set_number(out, i * 8, static_cast<std::uint32_t>(out.size()));
        set_number(out, i * 8 + 4, static_cast<std::uint32_t>(slots));
        std::vector<std::pair<std::uint32_t, std::uint32_t>> table(slots, {0, 0});
        for (const auto& [hash, position] : buckets[i]) {
            std::size_t slot = (hash >> 8) % slots;
            while (table[slot].second != 0)
                slot = (slot + 1) % slots;
            table[slot] = {hash, position};
        }
        for (const auto& [hash, position] : table) {
            put_number(out, hash);
            put_number(out, position);
        }
    }
    return out;
}

void compile_users_cdb() {
    std::vector<std::pair<std::string, std::string>> records;
    std::istringstream in(read_file("/var/qmail/users/assign"));
    for (std::string line; std::getline(in, line) && line != ".";) {
        if (line.empty() || line[0] != '=')
            continue;
        const std::size_t colon = line.find(':');
        std::string key = "!" + line.substr(1, colon - 1);
        key += '\0';
        std::string value = line.substr(colon + 1);
        for (char& c : value)
            if (c == ':')
                c = '\0';
        records.emplace_back(key, value);
    }
    write_file("/var/qmail/users/cdb", make_cdb(records), 0644);
}

}  // namespace sorvane::test
