// Obtains the session data as a command does, so that tests can drive the
// acquisition through real standard input and read what it prints.
//
//   session_acquire [--wait-stdin] [--required] [--domain-name=<name>]
//                   [--domain-aliases=<list>] [--mail-addresses=<list>]
//
// Prints the session dump, then one line "certificate <name> <file>" per
// certificate, on standard output. A failure is printed on standard error
// with status 1.
#include <boost/program_options.hpp>

#include <cstdio>
#include <iostream>
#include <map>
#include <optional>
#include <string>

#include "runtime/log.h"
#include "session/acquire_session.h"
#include "session/session_mail_data.h"

namespace po = boost::program_options;
using namespace crelm::mail;

namespace {

template <typename List>
std::optional<List> optional_list(const po::variables_map& options, const char* name) {
    return options.count(name) ? std::optional<List>(options[name].as<List>()) : std::nullopt;
}

void print_certificates(const std::map<std::string, std::string>& certificates) {
    for (const auto& [name, file] : certificates) {
        std::printf("certificate %s %s\n", name.c_str(), file.c_str());
    }
}

}  // namespace

int main(int argc, char** argv) {
    log_init(nullptr, 6, 16, 32, "sorvane");
    po::options_description description;
    description.add_options()("wait-stdin", "")("required", "")("domain-name", po::value<std::string>(), "")(
        "domain-aliases", po::value<MailDbDomainAliasesList>(), "")("mail-addresses",
                                                                    po::value<MailDbMailAddressesList>(), "");
    po::variables_map options;
    po::store(po::parse_command_line(argc, argv, description), options);
    try {
        SessionMailDataGuard guard;
        std::map<std::string, std::string> certificates;
        acquire_session_mail_data(options.count("wait-stdin") ? WaitStdin::Yes : WaitStdin::No,
                                  options.count("required") ? SessionDataUse::Required : SessionDataUse::NotRequired,
                                  options.count("domain-name") ? options["domain-name"].as<std::string>() : "",
                                  optional_list<MailDbDomainAliasesList>(options, "domain-aliases"),
                                  optional_list<MailDbMailAddressesList>(options, "mail-addresses"), certificates);
        std::fflush(stdout);
        dump_session_mail_data(stdout, existing_session_mail_data());
        print_certificates(certificates);
    } catch (const std::exception& error) {
        std::cerr << error.what() << std::endl;
        return 1;
    }
    return 0;
}
