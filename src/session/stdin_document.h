// The standard-input document: which members are read into the session
// data, which are skipped, and the checks made on each value.
#pragma once

#include "session/json_reader.h"
#include "session/mail_data.h"

namespace crelm::mail {

// NameCase::Lower lower-cases the domain name, domain aliases, mail names,
// mail aliases and certificate names as they are stored (C locale), which
// spares the session a second pass over a large document. The checks see
// the names as written either way, and the rules accept both cases.
enum class NameCase { AsWritten, Lower };

// Reads the document at the reader's position into data (which should be
// empty). Returns JsonError::Ok when the document was accepted, otherwise
// the first error, which the reader also holds; data is then partly filled
// and meant to be discarded. Texts in data point into the reader's buffer.
// Quotas are kept as written; their units are applied by the caller.
JsonError read_stdin_document(JsonReader& reader, SessionMailData& data, NameCase name_case = NameCase::AsWritten);

}  // namespace crelm::mail
