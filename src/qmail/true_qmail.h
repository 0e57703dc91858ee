// The body of write_true_qmail, for callers that tell a failure their own
// way (create_mailname ends the program with it).
#pragma once

#include <optional>
#include <string>

namespace crelm::qmail {

// Writes "| true\n" as write_true_qmail does; nullopt on success, else the
// failure's message (not yet told).
std::optional<std::string> write_true_line(const std::string& path);

}  // namespace crelm::qmail
