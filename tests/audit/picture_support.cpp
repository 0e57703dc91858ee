#include "audit/picture_support.h"

#include <gtest/gtest.h>

namespace sorvane::test {

namespace {

std::string quoted_list(const std::vector<std::string>& names) {
    std::string text = "[";
    for (std::size_t i = 0; i < names.size(); ++i)
        text += (i ? ", \"" : "\"") + names[i] + "\"";
    return text + "]";
}

std::string mail_json(const MailPicture& mail) {
    std::string text = R"({"name": ")" + mail.name + "\"";
    if (mail.quota != -1)
        text += R"(, "mbox_quota": )" + std::to_string(mail.quota);
    text += R"(, "aliases": )" + quoted_list(mail.aliases);
    if (!mail.extra.empty())
        text += ", " + mail.extra;
    return text + "}";
}

std::string domain_json(const DomainPicture& domain) {
    std::string text = R"({"domain": {"name": ")" + domain.name + R"(", "dom_aliases": )" +
                       quoted_list(domain.aliases) + R"(, "mails": [)";
    for (std::size_t i = 0; i < domain.mails.size(); ++i)
        text += (i ? ", " : "") + mail_json(domain.mails[i]);
    text += "]";
    if (!domain.extra.empty())
        text += ", " + domain.extra;
    return text + "}}";
}

}  // namespace

std::vector<DomainPicture> seeded_picture() {
    DomainPicture example{kDomain, {kAliasOne, kAliasTwo}, {}, ""};
    for (const SeededMail& mail : seeded_mails())
        example.mails.push_back({mail.name, mail.quota, mail.aliases, ""});
    DomainPicture neighbour{kNeighbour, {}, {{neighbour_mail().name, neighbour_mail().quota, {}, ""}}, ""};
    return {example, neighbour};
}

DomainPicture& domain_of(std::vector<DomainPicture>& picture, const std::string& domain) {
    for (DomainPicture& each : picture)
        if (each.name == domain)
            return each;
    ADD_FAILURE() << "no domain " << domain << " in the picture";
    return picture.front();
}

MailPicture& mail_of(std::vector<DomainPicture>& picture, const std::string& domain, const std::string& name) {
    DomainPicture& found = domain_of(picture, domain);
    for (MailPicture& mail : found.mails)
        if (mail.name == name)
            return mail;
    ADD_FAILURE() << "no mail " << name << " in the picture";
    return found.mails.front();
}

std::string picture_json(const std::vector<DomainPicture>& picture) {
    std::string text = "[";
    for (std::size_t i = 0; i < picture.size(); ++i)
        text += (i ? ",\n " : "") + domain_json(picture[i]);
    return text + "]\n";
}

ProcessResult audit_against(const std::string& picture, const std::vector<std::string>& args) {
    RunOptions options;
    options.stdin_mode = RunOptions::Stdin::Pipe;
    options.input = picture;
    std::vector<std::string> all{"--expect=-"};
    all.insert(all.end(), args.begin(), args.end());
    return run_sorvane_audit(all, options);
}

void expect_repaired_to(const std::string& picture) {
    const ProcessResult planned = audit_against(picture, {"--repair-plan"});
    EXPECT_EQ(planned.status, 1) << planned.out << planned.err;
    run_repair_plan(planned.out);
    const ProcessResult after = audit_against(picture);
    EXPECT_EQ(after.err, "");
    EXPECT_EQ(finding_lines(after.out), std::vector<std::string>{}) << after.out;
    EXPECT_EQ(after.status, 0) << after.out;
}

}  // namespace sorvane::test
