#include "e2e/server_state.h"

#include <sys/stat.h>
#include <openssl/evp.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <optional>
#include <sstream>

#include "stores/mail_auth_paths.h"
#include "stores/mail_auth_store.h"
#include "stores/mail_handlers_store.h"
#include "stores/mailbox_quota_db.h"

namespace fs = std::filesystem;

namespace sorvane::test {
namespace {

const std::string kQuotaDb = "/var/lib/crelm/mail/userdb/userdb.db";
const std::string kHandlersDb = "/var/lib/crelm/mail/handlers/handlers.db";
const std::string kAuthDb = "/var/lib/crelm/mail/auth/passwd.db";
const std::string kAuthKey = "/var/lib/crelm/mail/auth/passwd_db_key";
const std::string kDeliveryLine = "| /usr/bin/deliverquota ./Maildir\n";
const std::string kMessageName = "1700000000.M1P1.mail.example.test";
const std::string kMessage = "From: someone@neighbour.test\nSubject: hello\n\nhello\n";

const char* const kHandlerName = "spam-filter";
const char* const kHandlerExecutable = "/usr/lib/crelm-9.0/handlers/spam-filter";
const char* const kHandlerContext = "level=5";

// The directories of a mail name's home in the order sorvane makes them.
const char* const kMaildirTree[] = {
    "Maildir",          "Maildir/tmp",        "Maildir/new",        "Maildir/cur",        "Maildir/.Spam",
    "Maildir/.Spam/tmp", "Maildir/.Spam/new", "Maildir/.Spam/cur",  "Maildir/.Sent",      "Maildir/.Sent/tmp",
    "Maildir/.Sent/new", "Maildir/.Sent/cur", "Maildir/.Drafts",    "Maildir/.Drafts/tmp", "Maildir/.Drafts/new",
    "Maildir/.Drafts/cur", "Maildir/.Trash",  "Maildir/.Trash/tmp", "Maildir/.Trash/new", "Maildir/.Trash/cur",
    "@attachments"};
const char* const kFolders[] = {"Maildir/.Spam", "Maildir/.Sent", "Maildir/.Drafts", "Maildir/.Trash"};

std::string sqlite_rows(const std::string& db, const std::string& sql) {
    if (!path_exists(db))
        return "<absent>";
    const ProcessResult result = run_process({"/usr/bin/sqlite3", "-batch", db, sql});
    EXPECT_EQ(result.status, 0) << db << ": " << result.err;
    return result.out;
}

std::vector<std::string> split_fields(const std::string& line, char separator) {
    std::vector<std::string> fields;
    std::string field;
    std::istringstream in(line);
    while (std::getline(in, field, separator))
        fields.push_back(field);
    if (!line.empty() && line.back() == separator)
        fields.emplace_back();
    return fields;
}

// File contents on one line: newlines and backslashes written as escapes.
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

std::string entry_line(const std::string& relative, const FileInfo& info, const std::string* content) {
    char mode[8];
    std::snprintf(mode, sizeof mode, "%04o", static_cast<unsigned>(info.mode));
    std::string line = relative + " " + info.type + " " + std::to_string(info.uid) + ":" + std::to_string(info.gid) +
                       " " + mode;
    if (content != nullptr)
        line += " " + escaped(*content);
    return line + "\n";
}

std::string tree_listing(const std::string& root) {
    std::string lines;
    for (const std::string& relative : list_tree(root)) {
        const std::string path = root + "/" + relative;
        const FileInfo info = file_info(path);
        if (info.type == 'f') {
            const std::string content = read_file(path);
            lines += entry_line(relative, info, &content);
        } else {
            lines += entry_line(relative, info, nullptr);
        }
    }
    return lines;
}

std::string popuser_owner() {
    return std::to_string(popuser_uid()) + ":" + std::to_string(popuser_gid());
}

std::string owned_line(const std::string& relative, char type, const std::string& mode, const std::string* content) {
    std::string line = relative + " " + type + " " + popuser_owner() + " " + mode;
    if (content != nullptr)
        line += " " + escaped(*content);
    return line + "\n";
}

void make_owned_dir(const std::string& path) {
    fs::create_directories(path);
    ASSERT_EQ(chown(path.c_str(), popuser_uid(), popuser_gid()), 0) << path;
    ASSERT_EQ(chmod(path.c_str(), 0700), 0) << path;
}

void write_owned_file(const std::string& path, const std::string& content) {
    write_file(path, content, 0600);
    ASSERT_EQ(chown(path.c_str(), popuser_uid(), popuser_gid()), 0) << path;
}

std::string local_qmail() {
    return "| true\n" + kDeliveryLine;
}

void seed_domain(const std::string& domain, const std::vector<SeededMail>& mails,
                 const std::vector<std::string>& aliases, std::string& assign) {
    assign = domain_record(domain) + assign;
    make_owned_dir(kMailnamesDir + "/" + domain);
    write_owned_file(kMailnamesDir + "/" + domain + "/.qmail-default", kDefaultBounce);
    crelm::mail::MailboxQuotaDb quotas;
    for (const SeededMail& mail : mails) {
        assign = mailname_record(domain, mail.name, mail.name) + assign;
        for (const std::string& alias : mail.aliases)
            assign = mailname_record(domain, alias, mail.name) + assign;
        seed_mail_tree(domain, mail.name);
        ASSERT_TRUE(quotas.setQuota(domain, mail.name, mail.quota));
    }
    std::vector<std::string> domains{domain};
    domains.insert(domains.end(), aliases.begin(), aliases.end());
    for (const std::string& target : domains) {
        seed_key_dir(target);
        for (const SeededMail& mail : mails) {
            seed_auth_user(mail.name, target, mail.password);
            seed_handler(mail.name + "@" + target);
            for (const std::string& alias : mail.aliases) {
                seed_auth_user(alias, target, mail.password);
                seed_handler(alias + "@" + target);
            }
        }
    }
}

}  // namespace

const std::vector<SeededMail>& seeded_mails() {
    static const std::vector<SeededMail> mails{
        {"info", {"sales", "office"}, 1048576, "Info-secret 1"},
        {"john", {"j.doe"}, 0, "john's p4ss"},
        {"box", {"abuse"}, 5242880, "b0x&friends"},
    };
    return mails;
}

const SeededMail& neighbour_mail() {
    static const SeededMail mail{"info", {}, 2097152, "neighbour-pw"};
    return mail;
}

std::size_t seeded_message_size() {
    return kMessage.size();
}

std::vector<std::string> seeded_local_parts() {
    std::vector<std::string> parts;
    for (const SeededMail& mail : seeded_mails()) {
        parts.push_back(mail.name);
        parts.insert(parts.end(), mail.aliases.begin(), mail.aliases.end());
    }
    return parts;
}

std::string seeded_password(const std::string& local) {
    for (const SeededMail& mail : seeded_mails())
        if (mail.name == local || std::find(mail.aliases.begin(), mail.aliases.end(), local) != mail.aliases.end())
            return mail.password;
    ADD_FAILURE() << "no seeded address " << local;
    return "";
}

std::string seeded_mail_addresses() {
    std::string value;
    for (const SeededMail& mail : seeded_mails()) {
        if (!value.empty())
            value += ";";
        value += mail.name;
        for (const std::string& alias : mail.aliases)
            value += "," + alias;
    }
    return value;
}

std::string seeded_document(const std::string& domain, const std::vector<std::string>& aliases) {
    std::string document = R"({"domain": {"name": ")" + domain + R"(", "dom_aliases": [)";
    for (std::size_t i = 0; i < aliases.size(); ++i)
        document += (i ? ", \"" : "\"") + aliases[i] + "\"";
    document += R"(], "mails": [)";
    const auto& mails = seeded_mails();
    for (std::size_t i = 0; i < mails.size(); ++i) {
        document += (i ? ", " : "") + std::string(R"({"name": ")") + mails[i].name +
                    R"(", "mbox_quota": )" + std::to_string(mails[i].quota) + R"(, "aliases": [)";
        for (std::size_t j = 0; j < mails[i].aliases.size(); ++j)
            document += (j ? ", \"" : "\"") + mails[i].aliases[j] + "\"";
        document += "]}";
    }
    return document + "]}}";
}

void seed_empty_server() {
    ASSERT_TRUE(crelm::mail::MailboxQuotaDb().recreate(crelm::mail::KeepOwner::No));
    set_mail_handlers_db_path(kDefaultMailHandlersDbPath);
    ASSERT_EQ(recreate_mail_handlers_db(), 0);
    ASSERT_EQ(init_mail_auth_store(kMailServerQmail), 0);
    write_file("/etc/qvt/qvt.conf", "CRELM_MAILNAMES_D " + kMailnamesDir + "\n", 0644);
    write_file(kMailnamesDir + "/.default_delivery", kDeliveryLine, 0644);
    write_file("/var/qmail/control/locals", "localhost\n", 0644);
    write_file("/var/qmail/control/rcpthosts", "", 0644);
    write_file("/var/qmail/control/virtualdomains", "", 0644);
}

void seed_server_state() {
    seed_empty_server();
    std::string assign = ".\n";
    seed_domain(kNeighbour, {neighbour_mail()}, {}, assign);
    seed_domain(kDomain, seeded_mails(), {kAliasOne, kAliasTwo}, assign);
    write_file("/var/qmail/users/assign", assign, 0644);
    write_file("/var/qmail/control/rcpthosts", kNeighbour + "\n" + kDomain + "\n" + kAliasOne + "\n" + kAliasTwo + "\n",
               0644);
    write_file("/var/qmail/control/virtualdomains",
               kNeighbour + ":" + kNeighbour + "\n" + kDomain + ":" + kDomain + "\n" + kAliasOne + ":" + kDomain +
                   "\n" + kAliasTwo + ":" + kDomain + "\n",
               0644);
    write_file("/var/qmail/control/rejectnonexist", kNeighbour + "\n", 0644);
    MailHandlerRecord global;
    global.name = "virus-check";
    global.type = 2;
    global.queue = 1;
    global.priority = 20;
    global.executable = "/usr/lib/crelm-9.0/handlers/virus-check";
    global.enabled = true;
    ASSERT_EQ(add_global_mail_handler(global), 0);
}

void seed_mail_tree(const std::string& domain, const std::string& mailname) {
    const std::string home = kMailnamesDir + "/" + domain + "/" + mailname;
    make_owned_dir(home);
    write_owned_file(home + "/.qmail", local_qmail());
    for (const char* dir : kMaildirTree)
        make_owned_dir(home + "/" + dir);
    for (const char* folder : kFolders)
        write_owned_file(home + "/" + folder + "/maildirfolder", "");
    write_owned_file(home + "/Maildir/new/" + kMessageName, kMessage);
}

void seed_key_dir(const std::string& domain) {
    const std::string dir = "/etc/domainkeys/" + domain;
    fs::create_directories(dir);
    ASSERT_EQ(chmod(dir.c_str(), 0750), 0);
    write_file(dir + "/default", "private key of " + domain + "\n", 0600);
}

void seed_auth_user(const std::string& local, const std::string& domain, const std::string& password) {
    ASSERT_EQ(set_mail_auth_password(local, domain, password, 0), 0) << local << "@" << domain;
}

void seed_handler(const std::string& address) {
    MailHandlerRecord record;
    record.name = kHandlerName;
    record.type = 2;
    record.queue = 1;
    record.priority = 10;
    record.address = address;
    record.executable = kHandlerExecutable;
    record.context = kHandlerContext;
    record.enabled = true;
    ASSERT_EQ(add_mail_handler(record), 0) << address;
}

ServerState read_server_state() {
    ServerState state;
    state.rcpthosts = control_file("/var/qmail/control/rcpthosts");
    state.virtualdomains = control_file("/var/qmail/control/virtualdomains");
    state.locals = control_file("/var/qmail/control/locals");
    state.rejectnonexist = control_file("/var/qmail/control/rejectnonexist");
    state.assign = control_file("/var/qmail/users/assign");
    state.mail_tree = mail_tree_listing();
    state.key_dirs = key_dirs_listing();
    state.quota_rows = quota_rows();
    state.handler_rows = handler_rows();
    state.auth_domains = auth_domains();
    state.auth_users = auth_users();
    state.qmail_newu_calls = fake_calls("qmail-newu");
    state.killall_calls = fake_calls("killall");
    state.crelmrc_calls = fake_calls("crelmrc");
    return state;
}

void expect_server_state(const ServerState& actual, const ServerState& expected) {
    EXPECT_EQ(actual.rcpthosts, expected.rcpthosts) << "rcpthosts";
    EXPECT_EQ(actual.virtualdomains, expected.virtualdomains) << "virtualdomains";
    EXPECT_EQ(actual.locals, expected.locals) << "locals";
    EXPECT_EQ(actual.rejectnonexist, expected.rejectnonexist) << "rejectnonexist";
    EXPECT_EQ(actual.assign, expected.assign) << "assign";
    EXPECT_EQ(actual.mail_tree, expected.mail_tree) << "mail names tree";
    EXPECT_EQ(actual.key_dirs, expected.key_dirs) << "key directories";
    EXPECT_EQ(actual.quota_rows, expected.quota_rows) << "quota store";
    EXPECT_EQ(actual.handler_rows, expected.handler_rows) << "handlers store";
    EXPECT_EQ(actual.auth_domains, expected.auth_domains) << "authentication domains";
    EXPECT_EQ(actual.auth_users, expected.auth_users) << "authentication users";
    EXPECT_EQ(actual.qmail_newu_calls, expected.qmail_newu_calls) << "qmail-newu calls";
    EXPECT_EQ(actual.killall_calls, expected.killall_calls) << "killall calls";
    EXPECT_EQ(actual.crelmrc_calls, expected.crelmrc_calls) << "crelmrc calls";
}

std::string control_file(const std::string& path) {
    return path_exists(path) ? read_file(path) : "<absent>";
}

std::string mail_tree_listing() {
    return tree_listing(kMailnamesDir);
}

std::string key_dirs_listing() {
    return tree_listing("/etc/domainkeys");
}

std::string quota_rows() {
    return sqlite_rows(kQuotaDb,
                       "SELECT domain_name, mailbox_name, quota FROM mailbox_quota ORDER BY domain_name, mailbox_name;");
}

std::string handler_rows() {
    return sqlite_rows(kHandlersDb,
                       "SELECT queue, type, enabled, priority, name, address, executable, context, protected "
                       "FROM handlers ORDER BY address, name, queue, type;");
}

std::string auth_domains() {
    return sqlite_rows(kAuthDb, "SELECT name, status FROM domains ORDER BY name;");
}

std::string auth_users() {
    const std::string raw = sqlite_rows(
        kAuthDb,
        "SELECT u.name || '@' || d.name, u.status, d.status, u.userPassword, u.cmusaslsecretPLAIN "
        "FROM users AS u JOIN domains AS d ON u.dom_id = d.id ORDER BY d.name, u.name;");
    if (raw == "<absent>")
        return raw;
    std::vector<std::vector<std::string>> rows;
    std::vector<std::string> stored;
    std::istringstream in(raw);
    std::string line;
    while (std::getline(in, line)) {
        rows.push_back(split_fields(line, '|'));
        if (rows.back().size() != 5) {
            ADD_FAILURE() << "unexpected row " << line;
            rows.pop_back();
            continue;
        }
        if (!rows.back()[3].empty())
            stored.push_back(rows.back()[3]);
    }
    const std::vector<std::string> plain = decipher_passwords(stored);
    std::string text;
    std::size_t next = 0;
    for (const auto& fields : rows) {
        const std::string password = fields[3].empty() ? "plain:" + fields[4] : plain.at(next++);
        text += fields[0] + "|" + fields[1] + "|" + fields[2] + "|" + password + "\n";
    }
    return text;
}

std::string decipher_password(const std::string& stored) {
    return decipher_passwords({stored}).at(0);
}

namespace {

// The key file's bytes, read again for every call: a test may replace it.
std::string auth_key_bytes() {
    return path_exists(kAuthKey) ? read_file(kAuthKey) : std::string();
}

// Base64 without line breaks, as the store keeps it; nullopt when it is not
// Base64.
std::optional<std::string> base64_decoded(const std::string& text) {
    if (text.empty() || text.size() % 4 != 0)
        return std::nullopt;
    std::string bytes(text.size() / 4 * 3, '\0');
    const int length = EVP_DecodeBlock(reinterpret_cast<unsigned char*>(bytes.data()),
                                       reinterpret_cast<const unsigned char*>(text.data()),
                                       static_cast<int>(text.size()));
    if (length < 0)
        return std::nullopt;
    // EVP_DecodeBlock counts the bytes that the padding stands for.
    std::size_t padding = 0;
    for (auto it = text.rbegin(); it != text.rend() && *it == '=' && padding < 2; ++it)
        ++padding;
    bytes.resize(static_cast<std::size_t>(length) - padding);
    return bytes;
}

// AES-256-CBC with PKCS#7 padding through libcrypto, the library behind the
// openssl program (the cipher's own tests check the stored form against the
// program itself; here a state is read many times, and a program per row
// cost seconds per test).
std::optional<std::string> aes_256_cbc_decrypted(const std::string& key, const std::string& iv,
                                                 const std::string& cipher_text) {
    if (key.size() != 32 || iv.size() != 16)
        return std::nullopt;
    std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)> context(EVP_CIPHER_CTX_new(),
                                                                            &EVP_CIPHER_CTX_free);
    std::string plain(cipher_text.size() + 16, '\0');
    int written = 0;
    int last = 0;
    auto* out = reinterpret_cast<unsigned char*>(plain.data());
    if (!context ||
        EVP_DecryptInit_ex(context.get(), EVP_aes_256_cbc(), nullptr,
                           reinterpret_cast<const unsigned char*>(key.data()),
                           reinterpret_cast<const unsigned char*>(iv.data())) != 1 ||
        EVP_DecryptUpdate(context.get(), out, &written, reinterpret_cast<const unsigned char*>(cipher_text.data()),
                          static_cast<int>(cipher_text.size())) != 1 ||
        EVP_DecryptFinal_ex(context.get(), out + written, &last) != 1)
        return std::nullopt;
    plain.resize(static_cast<std::size_t>(written + last));
    return plain;
}

}  // namespace

std::vector<std::string> decipher_passwords(const std::vector<std::string>& stored) {
    // Each "$AES-256-CBC:PKCS$<IV in Base64>$<cipher text in Base64>" with
    // the key file's bytes.
    static const std::string kPrefix = "$AES-256-CBC:PKCS$";
    const std::string key = auth_key_bytes();
    std::vector<std::string> plain;
    for (const std::string& each : stored) {
        if (each.compare(0, kPrefix.size(), kPrefix) != 0) {
            plain.push_back("<not enciphered: " + each + ">");
            continue;
        }
        const std::string rest = each.substr(kPrefix.size());
        const std::size_t dollar = rest.find('$');
        const auto iv = base64_decoded(rest.substr(0, dollar));
        const auto cipher_text =
            dollar == std::string::npos ? std::nullopt : base64_decoded(rest.substr(dollar + 1));
        const auto deciphered =
            iv && cipher_text ? aes_256_cbc_decrypted(key, *iv, *cipher_text) : std::nullopt;
        plain.push_back(deciphered ? *deciphered : "<undecipherable>");
    }
    return plain;
}

std::string quota_row(const std::string& domain, const std::string& mailbox, const std::string& quota) {
    return domain + "|" + mailbox + "|" + quota + "\n";
}

std::string handler_row(const std::string& address, bool enabled) {
    return std::string("1|2|") + (enabled ? "1" : "0") + "|10|" + kHandlerName + "|" + address + "|" +
           kHandlerExecutable + "|" + kHandlerContext + "|0\n";
}

std::string auth_domain_row(const std::string& domain, int status) {
    return domain + "|" + std::to_string(status) + "\n";
}

std::string auth_user_row(const std::string& local, const std::string& domain, const std::string& password,
                          int domain_status) {
    return local + "@" + domain + "|0|" + std::to_string(domain_status) + "|" + password + "\n";
}

std::string mail_tree_lines(const std::string& domain, const std::string& mailname) {
    const std::string home = domain + "/" + mailname;
    std::vector<std::string> lines;
    lines.push_back(owned_line(home + "/", 'd', "0700", nullptr));
    const std::string qmail = local_qmail();
    lines.push_back(owned_line(home + "/.qmail", 'f', "0600", &qmail));
    for (const char* dir : kMaildirTree)
        lines.push_back(owned_line(home + "/" + dir + "/", 'd', "0700", nullptr));
    const std::string empty;
    for (const char* folder : kFolders)
        lines.push_back(owned_line(home + "/" + folder + "/maildirfolder", 'f', "0600", &empty));
    lines.push_back(owned_line(home + "/Maildir/new/" + kMessageName, 'f', "0600", &kMessage));
    std::sort(lines.begin(), lines.end());
    std::string text;
    for (const auto& line : lines)
        text += line;
    return text;
}

std::string domain_dir_lines(const std::string& domain, const std::string& qmail_default) {
    std::string lines = owned_line(domain + "/", 'd', "0700", nullptr);
    if (!qmail_default.empty())
        lines += owned_line(domain + "/.qmail-default", 'f', "0600", &qmail_default);
    return lines;
}

std::string key_dir_lines(const std::string& domain) {
    return domain + "/ d 0:0 0750\n" + domain + "/default f 0:0 0600 private key of " + domain + "\\n\n";
}

std::string default_delivery_lines() {
    return ".default_delivery f 0:0 0644 " + escaped(kDeliveryLine) + "\n";
}

std::string domain_tree_lines(const std::string& domain, const std::string& qmail_default,
                              const std::vector<std::string>& mailnames) {
    std::string lines = domain_dir_lines(domain, qmail_default);
    for (const std::string& mailname : mailnames)
        lines += mail_tree_lines(domain, mailname);
    return sorted_lines(lines);
}

std::vector<std::string> seeded_mailnames() {
    std::vector<std::string> names;
    for (const SeededMail& mail : seeded_mails())
        names.push_back(mail.name);
    return names;
}

std::string neighbour_tree_lines() {
    return domain_tree_lines(kNeighbour, kDefaultBounce, {neighbour_mail().name});
}

std::string sorted_lines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    std::string line;
    while (std::getline(in, line))
        lines.push_back(line + "\n");
    std::sort(lines.begin(), lines.end());
    std::string out;
    for (const auto& each : lines)
        out += each;
    return out;
}

std::string domain_record(const std::string& domain) {
    return "+" + domain + ":popuser:" + std::to_string(popuser_uid()) + ":" + std::to_string(popuser_gid()) + ":" +
           kMailnamesDir + "/" + domain + ":::\n";
}

std::string mailname_record(const std::string& domain, const std::string& key, const std::string& mailname) {
    return "=" + domain + "-" + key + ":popuser:" + std::to_string(popuser_uid()) + ":" +
           std::to_string(popuser_gid()) + ":" + kMailnamesDir + "/" + domain + "/" + mailname + ":::\n";
}

namespace {

std::vector<DomainView> with_neighbour(const std::vector<DomainView>& domains) {
    std::vector<DomainView> all = domains;
    all.push_back({kNeighbour, 0, true});
    std::sort(all.begin(), all.end(), [](const DomainView& a, const DomainView& b) { return a.domain < b.domain; });
    return all;
}

std::vector<std::string> local_parts_at(const std::string& domain) {
    std::vector<std::string> parts = domain == kNeighbour ? std::vector<std::string>{neighbour_mail().name}
                                                          : seeded_local_parts();
    std::sort(parts.begin(), parts.end());
    return parts;
}

std::string password_at(const std::string& local, const std::string& domain) {
    return domain == kNeighbour ? neighbour_mail().password : seeded_password(local);
}

}  // namespace

std::string expected_auth_domains(const std::vector<DomainView>& domains) {
    std::string rows;
    for (const DomainView& view : with_neighbour(domains))
        rows += auth_domain_row(view.domain, view.auth_status);
    return rows;
}

std::string expected_auth_users(const std::vector<DomainView>& domains) {
    std::string rows;
    for (const DomainView& view : with_neighbour(domains))
        for (const std::string& local : local_parts_at(view.domain))
            rows += auth_user_row(local, view.domain, password_at(local, view.domain), view.auth_status);
    return rows;
}

std::string expected_handler_rows(const std::vector<DomainView>& domains) {
    std::vector<std::pair<std::string, std::string>> rows;
    for (const DomainView& view : with_neighbour(domains))
        for (const std::string& local : local_parts_at(view.domain)) {
            const std::string address = local + "@" + view.domain;
            rows.emplace_back(address, handler_row(address, view.handlers_enabled));
        }
    rows.emplace_back("all", "1|2|1|20|virus-check|all|/usr/lib/crelm-9.0/handlers/virus-check|none|0\n");
    std::sort(rows.begin(), rows.end());
    std::string text;
    for (const auto& row : rows)
        text += row.second;
    return text;
}

std::string expected_quota_rows(const std::string& domain) {
    std::vector<std::string> rows;
    if (!domain.empty())
        for (const SeededMail& mail : seeded_mails())
            rows.push_back(quota_row(domain, mail.name, std::to_string(mail.quota) + "B"));
    rows.push_back(quota_row(kNeighbour, neighbour_mail().name, std::to_string(neighbour_mail().quota) + "B"));
    std::sort(rows.begin(), rows.end());
    std::string text;
    for (const auto& row : rows)
        text += row;
    return text;
}

std::string expected_key_dirs(const std::vector<std::string>& domains) {
    std::string lines = key_dir_lines(kNeighbour);
    for (const std::string& domain : domains)
        lines += key_dir_lines(domain);
    return sorted_lines(lines);
}

ServerState seeded_server_state() {
    ServerState state;
    state.rcpthosts = kNeighbour + "\n" + kDomain + "\n" + kAliasOne + "\n" + kAliasTwo + "\n";
    state.virtualdomains = kNeighbour + ":" + kNeighbour + "\n" + kDomain + ":" + kDomain + "\n" + kAliasOne + ":" +
                           kDomain + "\n" + kAliasTwo + ":" + kDomain + "\n";
    state.locals = "localhost\n";
    state.rejectnonexist = kNeighbour + "\n";
    std::string assign = ".\n";
    assign = domain_record(kNeighbour) + assign;
    assign = mailname_record(kNeighbour, neighbour_mail().name, neighbour_mail().name) + assign;
    assign = domain_record(kDomain) + assign;
    for (const SeededMail& mail : seeded_mails()) {
        assign = mailname_record(kDomain, mail.name, mail.name) + assign;
        for (const std::string& alias : mail.aliases)
            assign = mailname_record(kDomain, alias, mail.name) + assign;
    }
    state.assign = assign;
    state.mail_tree = sorted_lines(default_delivery_lines() + neighbour_tree_lines() +
                                   domain_tree_lines(kDomain, kDefaultBounce, seeded_mailnames()));
    state.key_dirs = expected_key_dirs({kDomain, kAliasOne, kAliasTwo});
    state.quota_rows = expected_quota_rows(kDomain);
    const std::vector<DomainView> domains{{kDomain}, {kAliasOne}, {kAliasTwo}};
    state.handler_rows = expected_handler_rows(domains);
    state.auth_domains = expected_auth_domains(domains);
    state.auth_users = expected_auth_users(domains);
    return state;
}

ProcessResult run_sorvane_with_input(const std::vector<std::string>& args, const std::string& input) {
    RunOptions options;
    options.stdin_mode = RunOptions::Stdin::Pipe;
    options.input = input;
    return run_sorvane(args, options);
}

}  // namespace sorvane::test
