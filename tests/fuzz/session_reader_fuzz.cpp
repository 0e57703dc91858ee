// Fuzz target: arbitrary bytes through the JSON reader and the document
// schema, then through the whole session read, dump, queries and release.
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "runtime/log.h"
#include "session/json_reader.h"
#include "session/mail_data_normalize.h"
#include "session/session_mail_data.h"
#include "session/session_queries.h"
#include "session/stdin_document.h"

namespace {

void read_with_schema(const std::uint8_t* data, std::size_t size) {
    std::vector<char> buffer(data, data + size);
    buffer.push_back('\0');
    crelm::mail::JsonReaderPtr reader(crelm::mail::json_reader_create(buffer.data()));
    crelm::mail::SessionMailData session;
    if (crelm::mail::read_stdin_document(*reader, session) == crelm::mail::JsonError::Ok) {
        crelm::mail::normalize_read_mail_data(session);
    }
    const char* text = crelm::mail::json_error_text(*reader);
    if (std::strlen(text) >= 1024) {
        __builtin_trap();
    }
}

void skip_everything(const std::uint8_t* data, std::size_t size) {
    std::vector<char> buffer(data, data + size);
    buffer.push_back('\0');
    crelm::mail::JsonReaderPtr reader(crelm::mail::json_reader_create(buffer.data()));
    while (crelm::mail::json_skip_value(*reader)) {
    }
    if (reader->position < buffer.data() || reader->position >= buffer.data() + buffer.size()) {
        __builtin_trap();  // the position must never leave the buffer
    }
}

void query_session() {
    SessionNameList list;
    std::optional<std::string> domain;
    get_domain_by_domainalias("a.test", domain);
    get_mailnames_by_domain("a.test", list);
    get_aliases_by_mailname("john", "a.test", list);
    get_domaliases_by_domain("a.test", list);
    get_maillists_by_domain("a.test", list);
}

void read_as_session(const std::uint8_t* data, std::size_t size) {
    std::FILE* stream = size > 0 ? fmemopen(const_cast<std::uint8_t*>(data), size, "r") : nullptr;
    if (stream == nullptr) {
        return;
    }
    if (read_session_mail_data(stream, StdinPoll::Skip) == 0) {
        static std::FILE* sink = std::fopen("/dev/null", "w");
        dump_session_mail_data(sink, existing_session_mail_data());
        query_session();
    }
    std::fclose(stream);
    release_session_mail_data();
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    log_init("silent", 6, 16, 0, "sorvane");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    read_with_schema(data, size);
    skip_everything(data, size);
    read_as_session(data, size);
    return 0;
}
