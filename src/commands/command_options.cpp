#include "commands/command_options.h"

#include <boost/program_options/parsers.hpp>
#include <boost/program_options/positional_options.hpp>

#include <cstdlib>
#include <iostream>

#include "commands/domain_name_option.h"
#include "commands/mail_name_option.h"
#include "commands/missing_mandatory_option.h"
#include "runtime/error_stream.h"

namespace po = boost::program_options;

namespace crelm::mail::sorvane_commands {
namespace {

// Boost's default width, with descriptions starting no later than half of it.
constexpr unsigned kLineLength = 80;

std::string long_name(const char* name) {
    const std::string text = name;
    return text.substr(0, text.find(','));
}

}  // namespace

CommandOptions::CommandOptions(std::string description, std::string usage)
    : description_(std::move(description)),
      usage_(std::move(usage)),
      options_("Allowed options to " + description_, kLineLength, kLineLength / 2) {}

CommandOptions& CommandOptions::add(const char* name, const po::value_semantic* semantic, const std::string& text,
                                    Mandatory mandatory) {
    const std::string shown = mandatory == Mandatory::Yes ? text + " (mandatory)" : text;
    if (semantic)
        options_.add_options()(name, semantic, shown.c_str());
    else
        options_.add_options()(name, shown.c_str());
    if (mandatory == Mandatory::Yes)
        mandatory_.insert(mandatory_.begin(), long_name(name));
    return *this;
}

CommandOptions& CommandOptions::add_flag(const char* name, const std::string& text) {
    return add(name, nullptr, text, Mandatory::No);
}

void CommandOptions::parse(int argc, char** argv) {
    add_help_option();
    store_command_line(argc, argv);
    if (values_.count("help"))
        print_help(std::cout, 0);
    require_mandatory_options();
}

void CommandOptions::parse_or_exit(int argc, char** argv) {
    try {
        parse(argc, argv);
    } catch (const po::error& e) {
        crelm::error_stream() << e.what() << std::endl;
        print_help(std::cout, 1);
    }
}

void CommandOptions::write_help(std::ostream& out) const {
    out << description_ << "\n";
    out << "Usage: " << usage_ << "\n";
    out << options_ << "\n";
}

void CommandOptions::print_help(std::ostream& out, int status) const {
    write_help(out);
    out.flush();
    std::exit(status);
}

bool CommandOptions::has(const std::string& name) const {
    return values_.count(name) != 0;
}

std::string CommandOptions::domain_name(const std::string& name) const {
    return values_[name].as<DomainNameTOpt>().str();
}

std::string CommandOptions::mail_name(const std::string& name) const {
    return values_[name].as<MailNameTOpt>().str();
}

long CommandOptions::quota(const std::string& name) const {
    return values_[name].as<long>();
}

// Added at parse time so that every command lists it last.
void CommandOptions::add_help_option() {
    if (help_added_)
        return;
    options_.add_options()("help,h", "displays this help message");
    help_added_ = true;
}

// No positional arguments are declared, so a stray word on the command line
// is an option error rather than something silently ignored.
void CommandOptions::store_command_line(int argc, char** argv) {
    const po::positional_options_description no_positional_arguments;
    po::store(po::command_line_parser(argc, argv)
                  .options(options_)
                  .positional(no_positional_arguments)
                  .style(kParserStyle)
                  .run(),
              values_);
    po::notify(values_);
}

void CommandOptions::require_mandatory_options() const {
    for (const auto& name : mandatory_)
        if (!values_.count(name))
            throw MissingMandatoryOption(name);
}

}  // namespace crelm::mail::sorvane_commands
