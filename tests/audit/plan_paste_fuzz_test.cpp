// The repair plan pasted into bash: random bytes in domain and mail names,
// aliases, bounce phrases, catch-all addresses (from a planted
// .qmail-default) and quota rows go through the real repair builders, the
// plan and the text report; each plan line is then fed to bash, a carriage
// return turned into a line end as a terminal does, with a recording
// stand-in as the only "sorvane" and nothing else on PATH. The stand-in
// must record exactly the argument lists the audit meant, once each, and
// nothing else may run: no output, no error (any other command is "not
// found"), no file in the working directory.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <set>
#include <sstream>

#include "audit/findings.h"
#include "audit/repair_commands.h"
#include "audit/repair_plan.h"
#include "audit/report_output.h"
#include "audit/server_model.h"
#include "audit/server_snapshot.h"
#include "support/sandbox.h"

namespace crelm::audit {
namespace {

using sorvane::test::ProcessResult;
using sorvane::test::RunOptions;

constexpr unsigned kSeed = 20261125;
constexpr int kRounds = 150;

// Bytes a shell, a terminal or the quoting could take for something else,
// picked more often than the rest.
constexpr std::string_view kHostileBytes =
    "\r\n\t\x1b\a\b\x7f\x9b\xff\xfe !\"#$%&'()*;<>?[\\]^`{|}~,=-@./:+_";

class RandomText {
public:
    explicit RandomText(unsigned seed) : engine_(seed) {}

    std::string text(std::size_t max_length) {
        std::string out;
        const std::size_t length = pick(max_length + 1);
        for (std::size_t i = 0; i < length; ++i) {
            switch (pick(4)) {
            case 0:
                out += kHostileBytes[pick(kHostileBytes.size())];
                break;
            case 1:
                out += static_cast<char>(pick(256));
                break;
            default:
                out += static_cast<char>('a' + pick(26));
            }
        }
        return out;
    }

    // A text without NUL (it cannot be an argument) and mostly tame.
    std::string argument_text(std::size_t max_length) {
        std::string out = text(max_length);
        std::replace(out.begin(), out.end(), '\0', 'z');
        return out;
    }

    std::size_t pick(std::size_t bound) { return std::uniform_int_distribution<std::size_t>(0, bound - 1)(engine_); }

private:
    std::mt19937 engine_;
};

bool is_file_name(const std::string& name) {
    return !name.empty() && name != "." && name != ".." && name.find('/') == std::string::npos;
}

// A server with one domain of random names, its .qmail-default planted.
struct RandomServer {
    ServerSnapshot server;
    ServerModel model;
    std::string domain;
    std::vector<std::string> mail_names;
    std::vector<std::string> aliases;
    std::vector<std::string> domain_aliases;
};

void plant_qmail_default(RandomText& random, const std::string& root, const RandomServer& made) {
    if (!is_file_name(made.domain))
        return;
    const std::string dir = root + "/" + made.domain;
    std::filesystem::create_directories(dir);
    std::string content;
    switch (random.pick(3)) {
    case 0:
        content = "&" + random.argument_text(16) + "\n";
        break;
    case 1:
        content = "|bouncesaying " + random.argument_text(16) + "\n";
        break;
    default:
        content = "&x@y.test\r{touch,pwned}\n";
    }
    sorvane::test::write_file(dir + "/.qmail-default", content, 0644);
}

RandomServer random_server(RandomText& random, const std::string& root) {
    RandomServer made;
    made.server.mailnames_dir = root;
    made.domain = random.argument_text(10);
    made.model.domains[made.domain].in_rejectnonexist = random.pick(4) == 0;
    for (std::size_t i = random.pick(3); i > 0; --i) {
        made.domain_aliases.push_back(random.argument_text(8));
        made.model.domain_aliases[made.domain_aliases.back()] = made.domain;
    }
    for (std::size_t i = random.pick(4); i > 0; --i) {
        MailNameFacts facts;
        facts.domain = made.domain;
        facts.name = random.argument_text(8);
        for (std::size_t j = random.pick(3); j > 0; --j) {
            facts.aliases.push_back(random.argument_text(6));
            made.aliases.push_back(facts.aliases.back());
        }
        made.mail_names.push_back(facts.name);
        made.model.mail_names[{made.domain, facts.name}] = facts;
    }
    plant_qmail_default(random, root, made);
    return made;
}

std::string one_of(RandomText& random, const std::vector<std::string>& names) {
    return names.empty() ? std::string("info") : names[random.pick(names.size())];
}

// Findings whose repairs the real builders make from the random server,
// each with a random object (a quota row's address, say).
Findings random_findings(RandomText& random, const RandomServer& made) {
    Findings findings;
    const std::string& domain = made.domain;
    const std::string name = one_of(random, made.mail_names);
    const std::string alias = one_of(random, made.aliases);
    const std::string domain_alias = one_of(random, made.domain_aliases);
    const std::vector<CommandLine> repairs{
        add_domain(domain),
        turn_on_domain(made.server, made.model, domain),
        turn_off_domain(made.model, domain),
        remove_domain(made.model, domain),
        add_mailname(domain, name),
        remove_mailname(made.model, domain, name),
        add_alias(made.model, domain, name, alias),
        remove_alias(made.model, domain, name, alias),
        add_domain_alias(made.server, made.model, domain, domain_alias),
        remove_domain_alias(made.model, domain, domain_alias),
        add_mailname_keeping_quota(domain, name, static_cast<std::int64_t>(random.pick(1u << 20))),
        set_mailbox_disk_quota(domain, random.argument_text(8), -1),
        remove_mailbox(made.model, domain, name),
        with_session({"--set-bounce", "--domain-name=" + domain, "--phrase=" + random.argument_text(20)}),
    };
    int index = 0;
    for (const CommandLine& repair : repairs) {
        const std::string object = std::to_string(index++) + random.text(12) + "@" + domain;
        findings.add(Severity::error, "fuzz-finding", object, random.text(20), {repair}, RepairPhase::domains);
    }
    findings.add(Severity::notice, "fuzz-person", random.text(12), random.text(20));
    return findings;
}

// The argument lists the plan has to deliver: each repair of a finding whose
// every argument a paste carries, once.
std::set<CommandLine> meant_argument_lists(const std::vector<Finding>& findings, std::size_t& for_a_person) {
    std::set<CommandLine> meant;
    for_a_person = 0;
    for (const Finding& finding : findings) {
        bool carried = !finding.repairs.empty();
        for (const CommandLine& repair : finding.repairs)
            for (const std::string& argument : repair)
                for (const char c : argument)
                    carried = carried && static_cast<unsigned char>(c) >= 0x20 && static_cast<unsigned char>(c) < 0x7f;
        if (!carried)
            ++for_a_person;
        else
            meant.insert(finding.repairs.begin(), finding.repairs.end());
    }
    return meant;
}

// The stand-in writes the count of its arguments, then each, NUL-ended.
std::vector<CommandLine> recorded_calls(const std::string& record) {
    std::vector<std::string> fields;
    std::string field;
    for (const char c : record) {
        if (c == '\0') {
            fields.push_back(field);
            field.clear();
        } else {
            field += c;
        }
    }
    std::vector<CommandLine> calls;
    for (std::size_t at = 0; at < fields.size();) {
        const std::size_t count = std::stoul(fields[at++]);
        calls.emplace_back(fields.begin() + static_cast<long>(at), fields.begin() + static_cast<long>(at + count));
        at += count;
    }
    return calls;
}

bool printable_ascii_lines(const std::string& report) {
    return std::all_of(report.begin(), report.end(), [](char c) {
        return c == '\n' || (static_cast<unsigned char>(c) >= 0x20 && static_cast<unsigned char>(c) < 0x7f);
    });
}

class PlanPasteFuzzTest : public ::testing::Test {
protected:
    void SetUp() override {
        char pattern[] = "/tmp/plan-paste.XXXXXX";
        ASSERT_NE(::mkdtemp(pattern), nullptr);
        base_ = pattern;
        for (const char* dir : {"/bin", "/work", "/records", "/mailnames"})
            std::filesystem::create_directory(base_ + dir);
        sorvane::test::write_file(base_ + "/bin/sorvane",
                                  "#!/bin/bash\nprintf '%s\\0' \"$#\" \"$@\" >> \"$RECORD\"\n", 0755);
    }
    void TearDown() override { std::filesystem::remove_all(base_); }

    // Runs the plan's lines in bash as a terminal paste delivers them.
    ProcessResult paste(const std::string& plan_text) {
        std::string typed = "cd '" + base_ + "/work' || exit 99\n" + plan_text;
        std::replace(typed.begin(), typed.end(), '\r', '\n');
        RunOptions options;
        options.stdin_mode = RunOptions::Stdin::Pipe;
        options.input = typed;
        options.env = {"PATH=" + base_ + "/bin", "RECORD=" + base_ + "/records/calls"};
        return sorvane::test::run_process({"/bin/bash", "--norc", "--noprofile", "-s"}, options);
    }

    std::string base_;
};

TEST_F(PlanPasteFuzzTest, EveryPlanLineRunsExactlyTheMeantCommand) {
    RandomText random(kSeed);
    std::size_t carried_total = 0;
    std::size_t refused_total = 0;
    for (int round = 0; round < kRounds; ++round) {
        std::filesystem::remove_all(base_ + "/mailnames");
        std::filesystem::create_directory(base_ + "/mailnames");
        std::filesystem::remove(base_ + "/records/calls");
        const RandomServer made = random_server(random, base_ + "/mailnames");
        const std::vector<Finding> findings = random_findings(random, made).sorted();
        std::size_t for_a_person = 0;
        const std::set<CommandLine> meant = meant_argument_lists(findings, for_a_person);

        std::ostringstream report;
        print_report(report, findings, ReadCounts{}, ReportOptions{false, true});
        ASSERT_TRUE(printable_ascii_lines(report.str())) << "round " << round;
        std::string plan_text;
        std::size_t finding_lines = 0;
        std::size_t person_lines = 0;
        std::istringstream lines(report.str());
        for (std::string line; std::getline(lines, line);) {
            if (line.rfind("sorvane ", 0) == 0)
                plan_text += line + "\n";
            finding_lines += line.rfind("error fuzz-", 0) == 0 || line.rfind("notice fuzz-", 0) == 0 ? 1 : 0;
            person_lines += line.rfind("needs a person: ", 0) == 0 ? 1 : 0;
        }
        EXPECT_EQ(finding_lines, findings.size()) << report.str();
        EXPECT_EQ(person_lines, for_a_person) << report.str();

        const ProcessResult ran = paste(plan_text);
        EXPECT_EQ(ran.status, 0) << plan_text;
        EXPECT_EQ(ran.out, "") << plan_text;
        EXPECT_EQ(ran.err, "") << plan_text;
        EXPECT_TRUE(std::filesystem::is_empty(base_ + "/work")) << plan_text;
        std::vector<CommandLine> calls;
        if (std::filesystem::exists(base_ + "/records/calls"))
            calls = recorded_calls(sorvane::test::read_file(base_ + "/records/calls"));
        const std::set<CommandLine> called(calls.begin(), calls.end());
        EXPECT_EQ(calls.size(), called.size()) << plan_text;
        EXPECT_EQ(called, meant) << "round " << round << "\n" << plan_text;
        carried_total += meant.size();
        refused_total += for_a_person;
        if (::testing::Test::HasFailure())
            break;
    }
    // The seed gives both kinds, so that neither half goes untested.
    EXPECT_GT(carried_total, 100u);
    EXPECT_GT(refused_total, 100u);
}

}  // namespace
}  // namespace crelm::audit
