#include "commands/disk_quota_option.h"

namespace po = boost::program_options;

namespace crelm::mail::sorvane_commands {

po::typed_value<long>* quota_number_value() {
    return po::value<long>();
}

void add_disk_quota_option(CommandOptions& options, Mandatory mandatory) {
    options.add("disk-quota", quota_number_value(), "disk quota", mandatory);
}

}  // namespace crelm::mail::sorvane_commands
