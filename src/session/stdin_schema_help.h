// The outline of the standard-input document, as --help-stdin prints it.
#pragma once

#include <string_view>

namespace crelm::mail {

// Tab-indented JSON-like sketch of the document; no newline at its end.
std::string_view stdin_schema_sketch();

}  // namespace crelm::mail
