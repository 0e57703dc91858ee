// The standard-input document: which members are read into the session
// data, which are skipped, and the checks made on each value.
#pragma once

#include <cstddef>
#include <string_view>

#include "session/json_reader.h"
#include "session/mail_data.h"

namespace crelm::mail {

// NameCase::Lower lower-cases the domain name, domain aliases, mail names,
// mail aliases and certificate names as they are stored (C locale), which
// spares the session a second pass over a large document. The checks see
// the names as written either way, and the rules accept both cases.
enum class NameCase { AsWritten, Lower };

// Members beyond the ones read into the session data, for another reader of
// the same schema: each member of a domain or of a mail that the document
// reader would skip is offered here first. A hook reads the value itself and
// answers Taken, or answers Skipped without touching the reader (the value
// is then skipped as before), or fails the reader (json_fail or a failed
// read) and answers Failed.
class DocumentExtension {
public:
    enum class Read { Taken, Skipped, Failed };

    virtual ~DocumentExtension() = default;
    virtual Read read_domain_member(JsonReader& reader, std::string_view name) = 0;
    // mail is the index of the mail in the session data's mails.
    virtual Read read_mail_member(JsonReader& reader, std::size_t mail, std::string_view name) = 0;
};

// Reads the document at the reader's position into data (which should be
// empty). Returns JsonError::Ok when the document was accepted, otherwise
// the first error, which the reader also holds; data is then partly filled
// and meant to be discarded. Texts in data point into the reader's buffer.
// Quotas are kept as written; their units are applied by the caller.
// With an extension, the members it takes are read by it.
JsonError read_stdin_document(JsonReader& reader, SessionMailData& data, NameCase name_case = NameCase::AsWritten,
                              DocumentExtension* extension = nullptr);

}  // namespace crelm::mail
