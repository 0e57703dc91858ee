// The option set of one command: its description, usage text and options,
// the mandatory ones among them, the built-in --help, parsing, the help
// printer and the one way option errors end a command.
#pragma once

#include <boost/program_options/options_description.hpp>
#include <boost/program_options/variables_map.hpp>

#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

namespace crelm::mail::sorvane_commands {

enum class Mandatory { No, Yes };

class CommandOptions {
public:
    // Boost's unix style without guessing abbreviated long names.
    static constexpr int kParserStyle = 503;

    CommandOptions(std::string description, std::string usage);

    // Declares an option. name is "long" or "long,s" as Boost takes it;
    // semantic (owned by Boost from here on) is nullptr for a flag. A
    // mandatory option's text gets " (mandatory)" and its long name goes to
    // the front of the mandatory list.
    CommandOptions& add(const char* name, const boost::program_options::value_semantic* semantic,
                        const std::string& text, Mandatory mandatory = Mandatory::No);
    CommandOptions& add_flag(const char* name, const std::string& text);

    // Parses the options that follow argv[0] (the command switch). Typed
    // values are converted and checked on the way; with --help or -h the
    // help goes to standard output and the process exits with 0; otherwise
    // the latest-declared missing mandatory option is a
    // MissingMandatoryOption. Throws boost::program_options::error for
    // option errors; anything a typed value throws passes through.
    void parse(int argc, char** argv);

    // parse, ending an option error (boost::program_options::error) the one
    // way commands do: its text on the error stream, this command's help on
    // standard output, exit status 1. Other exceptions pass through.
    void parse_or_exit(int argc, char** argv);

    // Writes the description, "Usage: " and the usage text, and the option
    // table, each followed by a newline.
    void write_help(std::ostream& out) const;
    // write_help, then ends the process with status.
    [[noreturn]] void print_help(std::ostream& out, int status) const;

    // Values after parsing. A name option yields its converted name, a quota
    // its number; a flag is only ever tested with has().
    bool has(const std::string& name) const;
    std::string domain_name(const std::string& name) const;
    std::string mail_name(const std::string& name) const;
    long quota(const std::string& name) const;
    // The typed value of an option that may be absent (the session lists).
    template <typename T>
    std::optional<T> optional_value(const std::string& name) const {
        if (!has(name))
            return std::nullopt;
        return values_[name].as<T>();
    }
    const boost::program_options::variables_map& values() const { return values_; }

    const std::string& description_text() const { return description_; }
    const std::string& usage_text() const { return usage_; }
    // Long names of the mandatory options, the most recently declared first.
    const std::vector<std::string>& mandatory_options() const { return mandatory_; }
    const boost::program_options::options_description& options() const { return options_; }

private:
    void add_help_option();
    void store_command_line(int argc, char** argv);
    void require_mandatory_options() const;

    std::string description_;
    std::string usage_;
    boost::program_options::options_description options_;
    boost::program_options::variables_map values_;
    std::vector<std::string> mandatory_;
    bool help_added_ = false;
};

}  // namespace crelm::mail::sorvane_commands
