#include "runtime/host_name_rules.h"

#include <algorithm>

namespace crelm {
namespace {

bool is_localhost(std::string_view name) {
    return name == "localhost" || name.starts_with("localhost.");
}

bool is_address_literal(std::string_view name) {
    if (name.starts_with('[') || name.find(':') != std::string_view::npos)
        return true;
    const std::size_t dot = name.rfind('.');
    const std::string_view last = dot == std::string_view::npos ? name : name.substr(dot + 1);
    return !last.empty() && std::all_of(last.begin(), last.end(), [](char c) { return c >= '0' && c <= '9'; });
}

}  // namespace

const char* hosted_name_refusal(std::string_view name) {
    if (is_localhost(name))
        return "it names the local host";
    if (is_address_literal(name))
        return "it is an address literal";
    if (name.find('.') == std::string_view::npos)
        return "it has a single label";
    return nullptr;
}

}  // namespace crelm
