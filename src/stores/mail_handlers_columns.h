// The column orders of the handlers store's SELECT statements. Internal.
#pragma once

#include "stores/mail_handlers_statement.h"

#include <array>

namespace handler_columns {

using F = HandlerField;

// "SELECT priority, type, queue, name, address, executable, context, enabled"
inline constexpr std::array kFull{F::Priority, F::Type,       F::Queue,   F::Name,
                                  F::Address,  F::Executable, F::Context, F::Enabled};
// "SELECT priority, type, queue, name, executable, context, enabled"
inline constexpr std::array kShortOfAddress{F::Priority,   F::Type,    F::Queue,  F::Name,
                                            F::Executable, F::Context, F::Enabled};
// "SELECT priority, type, queue, name, executable, context, enabled, address"
inline constexpr std::array kShortContaining{F::Priority,   F::Type,    F::Queue,   F::Name,
                                             F::Executable, F::Context, F::Enabled, F::Address};
// "SELECT executable, context, name"
inline constexpr std::array kToRun{F::Executable, F::Context, F::Name};

}  // namespace handler_columns
