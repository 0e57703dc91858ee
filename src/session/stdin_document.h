// The standard-input document: which members are read into the session
// data, which are skipped, and the checks made on each value.
#pragma once

#include "session/json_reader.h"
#include "session/mail_data.h"

namespace crelm::mail {

// Reads the document at the reader's position into data (which should be
// empty). Returns JsonError::Ok when the document was accepted, otherwise
// the first error, which the reader also holds; data is then partly filled
// and meant to be discarded. Texts in data point into the reader's buffer.
// Names are kept as written; lower-casing and quota units are applied by
// the caller afterwards.
JsonError read_stdin_document(JsonReader& reader, SessionMailData& data);

}  // namespace crelm::mail
