// The command handlers. Each takes the argument count and vector with the
// command switch in the program-name position, and returns the exit status.
// Each declares its options with CommandOptions and parses them first: --help
// ends the process with 0, an option error with 1 (message on the error
// stream, the command's help on standard output); a refused name escapes as
// an exception for main to report.
#pragma once

namespace crelm::mail::sorvane_commands {

class CommandOptions;

using CommandHandler = int (*)(int argc, char** argv);

int add_mailname_command(int argc, char** argv);
int remove_mailname_command(int argc, char** argv);
int rename_mailname_command(int argc, char** argv);
int add_mailbox_command(int argc, char** argv);
int remove_mailbox_command(int argc, char** argv);
int set_password_command(int argc, char** argv);
int add_alias_command(int argc, char** argv);
int remove_alias_command(int argc, char** argv);
int add_domain_command(int argc, char** argv);
int remove_domain_command(int argc, char** argv);
int rename_domain_command(int argc, char** argv);
int turn_on_domain_command(int argc, char** argv);
int turn_off_domain_command(int argc, char** argv);
int add_domain_alias_command(int argc, char** argv);
int del_domain_alias_command(int argc, char** argv);
int rename_domain_alias_command(int argc, char** argv);
int get_mailbox_size_command(int argc, char** argv);
int set_mailbox_disk_quota_command(int argc, char** argv);
int set_domain_disk_quota_command(int argc, char** argv);

}  // namespace crelm::mail::sorvane_commands
