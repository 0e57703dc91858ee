// Eight panels at once, each running the real sorvane on domains of its own:
// domain renames and mail name renames beside domain, mail name and domain
// alias additions, round after round. Every line that a command ending with
// status 0 put into rcpthosts, virtualdomains or assign must be there
// afterwards, exactly once; no line of a name renamed away may be left;
// assign must end with "."; and nothing but the control files themselves may
// be left beside them. A rewrite of a shared file that another panel's rewrite
// overtakes would lose lines here even though both commands succeeded.
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

#include "e2e/domain_test_support.h"

namespace sorvane::test {
namespace {

constexpr int kPanels = 8;
constexpr int kRounds = 4;

// What a panel keeps of its domains: each domain with its mail names and
// domain aliases. Only commands that ended with status 0 change it.
struct MailDomain {
    std::set<std::string> mailnames;
    std::set<std::string> aliases;
};
using Picture = std::map<std::string, MailDomain>;

// One command of a panel and how it changes the panel's picture.
struct Command {
    std::vector<std::string> args;
    void (*apply)(Picture& picture, const std::vector<std::string>& names);
    std::vector<std::string> names;  // the names apply() works with
    std::string document;            // the panel's picture on standard input, if any
};

void apply_add_domain(Picture& picture, const std::vector<std::string>& names) {
    picture[names[0]];
}

void apply_add_mailname(Picture& picture, const std::vector<std::string>& names) {
    picture[names[0]].mailnames.insert(names[1]);
}

void apply_add_domain_alias(Picture& picture, const std::vector<std::string>& names) {
    picture[names[0]].aliases.insert(names[1]);
}

void apply_rename_domain(Picture& picture, const std::vector<std::string>& names) {
    const auto old_domain = picture.find(names[0]);
    if (old_domain == picture.end())
        return;
    picture[names[1]] = old_domain->second;
    picture.erase(names[0]);
}

void apply_rename_mailname(Picture& picture, const std::vector<std::string>& names) {
    const auto domain = picture.find(names[0]);
    if (domain != picture.end() && domain->second.mailnames.erase(names[1]) > 0)
        domain->second.mailnames.insert(names[2]);
}

// Every name a panel uses carries the panel's and the round's number, and a
// name that is renamed away starts with "old-": none is part of another.
std::string tagged(const std::string& what, int panel, int round) {
    return what + "-p" + std::to_string(panel) + "-r" + std::to_string(round);
}

const std::string kOldMailname = "old-box";
const std::string kNewMailname = "new-box";

// The panel's picture of a domain with one domain alias, as the panel hands
// it on standard input: no mail name has a mailbox yet, so none is listed.
std::string document_of(const std::string& domain, const std::string& alias) {
    return R"({"domain": {"name": ")" + domain + R"(", "dom_aliases": [")" + alias + R"("], "mails": []}})";
}

// A domain that gets mail names and a domain alias, is renamed and then has
// one of its mail names renamed.
std::vector<Command> renaming_commands(int panel, int round) {
    const std::string old_domain = tagged("old", panel, round) + ".test";
    const std::string new_domain = tagged("new", panel, round) + ".test";
    const std::string alias = tagged("alias", panel, round) + ".test";
    return {
        {{"--add-domain", "--domain-name=" + old_domain}, apply_add_domain, {old_domain}, {}},
        {{"--add-mailname", "--domain-name=" + old_domain, "--mailname=" + kOldMailname},
         apply_add_mailname,
         {old_domain, kOldMailname},
         {}},
        {{"--add-mailname", "--domain-name=" + old_domain, "--mailname=keep"}, apply_add_mailname, {old_domain, "keep"}, {}},
        {{"--add-domain-alias", "--domain-name=" + old_domain, "--domain-alias-name=" + alias, "--set-bounce",
          "--wait-stdin"},
         apply_add_domain_alias,
         {old_domain, alias},
         document_of(old_domain, alias)},
        {{"--rename-domain", "--old-domain-name=" + old_domain, "--new-domain-name=" + new_domain},
         apply_rename_domain,
         {old_domain, new_domain},
         {}},
        {{"--rename-mailname", "--domain-name=" + new_domain, "--old-mailname=" + kOldMailname,
          "--new-mailname=" + kNewMailname, "--wait-stdin"},
         apply_rename_mailname,
         {new_domain, kOldMailname, kNewMailname},
         document_of(new_domain, alias)},
    };
}

// A domain that is only added, with one mail name.
std::vector<Command> adding_commands(int panel, int round) {
    const std::string domain = tagged("add", panel, round) + ".test";
    return {
        {{"--add-domain", "--domain-name=" + domain}, apply_add_domain, {domain}, {}},
        {{"--add-mailname", "--domain-name=" + domain, "--mailname=info"}, apply_add_mailname, {domain, "info"}, {}},
    };
}

// Half the panels rename first and add then, the other half the other way
// round, so that renames of some run beside additions of others.
std::vector<Command> panel_commands(int panel, int round) {
    std::vector<Command> first = renaming_commands(panel, round);
    std::vector<Command> second = adding_commands(panel, round);
    if (panel % 2 == 1)
        std::swap(first, second);
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

std::string results_path(int panel) {
    return scratch_dir() + "/panel-" + std::to_string(panel) + ".results";
}

// A forked panel: waits until the start pipe closes, so that all begin
// together, runs its commands one after the other and writes each one's
// exit status and standard error to its results file.
[[noreturn]] void run_panel(const std::vector<Command>& commands, int start_fd, const std::string& results) {
    char byte = 0;
    while (::read(start_fd, &byte, 1) < 0 && errno == EINTR) {
    }
    std::ofstream out(results);
    for (const Command& command : commands) {
        RunOptions options;
        if (!command.document.empty()) {
            options.stdin_mode = RunOptions::Stdin::Pipe;
            options.input = command.document;
        }
        const ProcessResult result = run_sorvane(command.args, options);
        out << result.status << "\n" << result.err.size() << "\n" << result.err;
    }
    out.close();
    _exit(out ? 0 : 1);
}

struct Outcome {
    int status = -1;
    std::string err;
};

std::vector<Outcome> read_outcomes(const std::string& path) {
    std::ifstream in(path);
    std::vector<Outcome> outcomes;
    Outcome outcome;
    std::size_t size = 0;
    while (in >> outcome.status >> size) {
        in.get();
        outcome.err.assign(size, '\0');
        in.read(outcome.err.data(), static_cast<std::streamsize>(size));
        outcomes.push_back(outcome);
    }
    return outcomes;
}

std::string joined_args(const std::vector<std::string>& args) {
    std::string text;
    for (const std::string& arg : args)
        text += (text.empty() ? "" : " ") + arg;
    return text;
}

std::vector<std::string> lines_of(const std::string& content) {
    std::vector<std::string> lines;
    std::istringstream in(content);
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    return lines;
}

// Lines of want missing from have, and lines of have that want does not
// hold (or holds fewer times): each with its count.
std::vector<std::string> difference(const std::vector<std::string>& want, const std::vector<std::string>& have) {
    std::map<std::string, int> count;
    for (const std::string& line : want)
        ++count[line];
    for (const std::string& line : have)
        --count[line];
    std::vector<std::string> differing;
    for (const auto& [line, times] : count)
        if (times != 0)
            differing.push_back((times > 0 ? "missing " : "extra ") + std::to_string(std::abs(times)) + "x: " + line);
    return differing;
}

// The lines the three files must hold for the pictures of all panels.
struct ExpectedLines {
    std::vector<std::string> rcpthosts;
    std::vector<std::string> virtualdomains;
    std::vector<std::string> assign;  // without the closing "."
};

std::string without_newline(const std::string& line) {
    return line.substr(0, line.size() - 1);
}

ExpectedLines expected_lines(const std::vector<Picture>& pictures) {
    ExpectedLines expected;
    for (const Picture& picture : pictures) {
        for (const auto& [domain, mail] : picture) {
            expected.rcpthosts.push_back(domain);
            expected.virtualdomains.push_back(domain + ":" + domain);
            expected.assign.push_back(without_newline(domain_record(domain)));
            for (const std::string& mailname : mail.mailnames)
                expected.assign.push_back(without_newline(mailname_record(domain, mailname, mailname)));
            for (const std::string& alias : mail.aliases) {
                expected.rcpthosts.push_back(alias);
                expected.virtualdomains.push_back(alias + ":" + domain);
            }
        }
    }
    return expected;
}

// Lines that still name something renamed away: a domain or mail name
// starting with "old-".
std::vector<std::string> renamed_away_lines(const std::vector<std::string>& lines) {
    std::vector<std::string> found;
    for (const std::string& line : lines)
        if (line.find("old-") != std::string::npos)
            found.push_back(line);
    return found;
}

class ConcurrentPanelsTest : public SandboxTest {
protected:
    void SetUp() override {
        SandboxTest::SetUp();
        give_host_name();
        seed_empty_server();
        pictures_.resize(kPanels);
    }

    // Starts every panel of the round, waits for all and takes the commands
    // that ended with status 0 into the panels' pictures.
    void run_round(int round) {
        std::vector<std::vector<Command>> commands;
        for (int panel = 0; panel < kPanels; ++panel)
            commands.push_back(panel_commands(panel, round));
        int start[2];
        ASSERT_EQ(::pipe2(start, O_CLOEXEC), 0);
        std::fflush(stdout);
        std::fflush(stderr);
        std::vector<pid_t> pids;
        for (int panel = 0; panel < kPanels; ++panel) {
            const pid_t pid = ::fork();
            ASSERT_GE(pid, 0) << std::strerror(errno);
            if (pid == 0) {
                ::close(start[1]);
                run_panel(commands[panel], start[0], results_path(panel));
            }
            pids.push_back(pid);
        }
        ::close(start[0]);
        ::close(start[1]);
        for (int panel = 0; panel < kPanels; ++panel) {
            int status = 0;
            ASSERT_EQ(::waitpid(pids[panel], &status, 0), pids[panel]);
            ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "panel " << panel << ": " << status;
            take_outcomes(commands[panel], read_outcomes(results_path(panel)), pictures_[panel]);
        }
    }

    void take_outcomes(const std::vector<Command>& commands, const std::vector<Outcome>& outcomes, Picture& picture) {
        ASSERT_EQ(outcomes.size(), commands.size());
        for (std::size_t i = 0; i < commands.size(); ++i) {
            ++commands_run_;
            if (outcomes[i].status != 0) {
                failed_.push_back(joined_args(commands[i].args) + ": status " + std::to_string(outcomes[i].status) +
                                  ": " + outcomes[i].err);
                continue;
            }
            commands[i].apply(picture, commands[i].names);
        }
    }

    std::vector<Picture> pictures_;
    std::vector<std::string> failed_;
    int commands_run_ = 0;
};

TEST_F(ConcurrentPanelsTest, RenamesBesideAdditionsLoseNoLineOfACommandThatSucceeded) {
    for (int round = 0; round < kRounds; ++round) {
        run_round(round);
        if (HasFatalFailure())
            return;
    }
    EXPECT_EQ(commands_run_, kPanels * kRounds * static_cast<int>(panel_commands(0, 0).size()));
    EXPECT_EQ(failed_, std::vector<std::string>{});

    const ExpectedLines expected = expected_lines(pictures_);
    const std::vector<std::string> rcpthosts = lines_of(read_file("/var/qmail/control/rcpthosts"));
    const std::vector<std::string> virtualdomains = lines_of(read_file("/var/qmail/control/virtualdomains"));
    std::vector<std::string> assign = lines_of(read_file("/var/qmail/users/assign"));
    ASSERT_FALSE(assign.empty());
    EXPECT_EQ(assign.back(), ".");
    if (assign.back() == ".")
        assign.pop_back();

    EXPECT_EQ(difference(expected.rcpthosts, rcpthosts), std::vector<std::string>{});
    EXPECT_EQ(difference(expected.virtualdomains, virtualdomains), std::vector<std::string>{});
    EXPECT_EQ(difference(expected.assign, assign), std::vector<std::string>{});
    EXPECT_EQ(renamed_away_lines(rcpthosts), std::vector<std::string>{});
    EXPECT_EQ(renamed_away_lines(virtualdomains), std::vector<std::string>{});
    EXPECT_EQ(renamed_away_lines(assign), std::vector<std::string>{});
    // Every file ends with a whole line; locals is left as it was, and the
    // reject list, which every new domain is taken out of, stays empty.
    for (const char* path : {"/var/qmail/control/rcpthosts", "/var/qmail/control/virtualdomains",
                             "/var/qmail/users/assign"})
        EXPECT_EQ(read_file(path).back(), '\n') << path;
    EXPECT_EQ(read_file("/var/qmail/control/locals"), "localhost\n");
    EXPECT_EQ(read_file("/var/qmail/control/rejectnonexist"), "");

    // Nothing beside the control files: no temporary file, whatever its name.
    EXPECT_EQ(list_tree("/var/qmail/control"),
              (std::vector<std::string>{"locals", "rcpthosts", "rejectnonexist", "virtualdomains"}));
    EXPECT_EQ(list_tree("/var/qmail/users"), (std::vector<std::string>{"assign", "cdb"}));
}

}  // namespace
}  // namespace sorvane::test
