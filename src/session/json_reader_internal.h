// Pieces shared by the reader's source files; not for schema code.
#pragma once

#include "session/json_reader.h"

namespace crelm::mail {

// White space as isspace() sees it in the C locale.
inline bool json_is_space(char byte) {
    return byte == ' ' || byte == '\t' || byte == '\n' || byte == '\v' || byte == '\f' || byte == '\r';
}

// False when the reader has failed; otherwise skips white space, true.
bool json_reader_ready(JsonReader& reader);

}  // namespace crelm::mail
