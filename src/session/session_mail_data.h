// The one process-wide session object: the picture of the mail domain that
// the running command works on. Absent until filled, filled at most once
// (from standard input or from the command line), released when the
// command ends.
#pragma once

#include <cstdio>

#include "session/mail_data.h"

enum class StdinPoll { Skip, First };

// Fills the session object from the JSON document on stream. With
// StdinPoll::First, descriptor 0 is polled without waiting first.
// Returns 0 when the document was read, -1 when polling found no data, -2
// when the session was filled already (the first data stays), -3 when
// reading or allocation failed, and otherwise the reader's error code (the
// document was rejected; the session object is gone, the input kept until
// release). Every failure is logged.
int read_session_mail_data(std::FILE* stream, StdinPoll poll);

// The session object, created empty when none exists; nullptr when it
// cannot be allocated.
crelm::mail::SessionMailData* session_mail_data();

// The session object if it exists, else nullptr; creates nothing.
crelm::mail::SessionMailData* existing_session_mail_data();

// Frees the session object and the input buffer.
void release_session_mail_data();

// Debug dump of data (nullptr allowed) to stream, or to standard error
// when stream is nullptr.
void dump_session_mail_data(std::FILE* stream, const crelm::mail::SessionMailData* data);
