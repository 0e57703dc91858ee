#include "commands/disk_quota_option.h"

#include <boost/program_options/value_semantic.hpp>

namespace po = boost::program_options;

namespace crelm::mail::sorvane_commands {

void add_disk_quota_option(CommandOptions& options, Mandatory mandatory) {
    options.add("disk-quota", po::value<long>(), "disk quota", mandatory);
}

}  // namespace crelm::mail::sorvane_commands
