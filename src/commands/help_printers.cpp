#include <algorithm>
#include <cstdlib>
#include <iomanip>
#include <iostream>

#include "commands/dispatcher.h"
#include "commands/help_table.h"
#include "session/stdin_schema_help.h"

namespace crelm::mail::sorvane_commands {
namespace {

[[noreturn]] void finish(std::ostream& out, int status) {
    out.flush();
    std::exit(status);
}

std::size_t longest_switch_length() {
    std::size_t longest = 0;
    for (const HelpRow& row : help_table())
        longest = std::max(longest, row.command_switch.size());
    return longest;
}

}  // namespace

void print_short_usage(std::ostream& out, int status) {
    out << "Usage: sorvane <COMMAND> <COMMAND OPTIONS...>\n"
        << "\t for a complete list of commands use ``sorvane --help-commands''\n"
        << "\t for help on syntax for a particular command use ``sorvane <COMMAND> --help''\n"
        << "\t for legacy complete help use ``sorvane --help-legacy''\n";
    finish(out, status);
}

void print_command_list(std::ostream& out, int status) {
    const auto width = static_cast<int>(longest_switch_length() + 2);
    out << "Sorvane commands:\n";
    for (const HelpRow& row : help_table())
        out << std::left << std::setw(width) << row.command_switch << row.description << '\n';
    finish(out, status);
}

void print_legacy_help(std::ostream& out, int status) {
    out << "Usage: sorvane [OPTIONS]... \n";
    for (const HelpRow& row : help_table()) {
        out << "  " << row.command_switch << ' ' << row.syntax << '\n';
        out << "        " << row.description << '\n';
    }
    finish(out, status);
}

void print_stdin_help(std::ostream& out, int status) {
    out << "Usage: sorvane <COMMAND> <COMMAND OPTIONS...>[--wait-stdin]\n"
        << "\t [--domain-aliases=<alias1,alias2,...>]\n"
        << "\t [--mail-addresses=<mail_name1,alias11,alias12,...;mail_name2,alias21,...;...>]\n"
        << "\t [--default-domain-quota=<quota>]\n"
        << "\n"
        << "Some commands will accept additional mail data passed via STDIN. Such commands\n"
        << "usually have --wait-stdin option, as well as one or more additional\n"
        << "options for passing similar data via command line, such as --domain-aliases, \n"
        << "--mail-addresses and --default-domain-quota.\n"
        << "\n"
        << "Data passed via STDIN should be a valid JSON document with following structure:\n"
        << crelm::mail::stdin_schema_sketch() << '\n';
    finish(out, status);
}

void dispatch_error(const char* message) {
    if (message != nullptr && message[0] != '\0')
        std::cerr << "Error: " << message << '\n';
    print_short_usage(std::cerr, 1);
}

}  // namespace crelm::mail::sorvane_commands
