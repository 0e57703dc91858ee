// The help table: one row per command, in the order users see them.
#pragma once

#include <array>
#include <string_view>

namespace crelm::mail::sorvane_commands {

struct HelpRow {
    std::string_view command_switch;
    std::string_view syntax;
    std::string_view description;
};

inline constexpr std::size_t kHelpRowCount = 23;

const std::array<HelpRow, kHelpRowCount>& help_table();

}  // namespace crelm::mail::sorvane_commands
