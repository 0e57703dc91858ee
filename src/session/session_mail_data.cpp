#include "session/session_mail_data.h"

#include <sys/select.h>

#include <cerrno>
#include <cstring>
#include <new>

#include "runtime/log.h"
#include "session/input_buffer.h"
#include "session/json_reader.h"
#include "session/mail_data_normalize.h"
#include "session/stdin_document.h"

using crelm::mail::JsonError;
using crelm::mail::JsonReader;
using crelm::mail::SessionMailData;

namespace {

struct SessionState {
    SessionMailData* data = nullptr;
    InputBuffer input;
};

SessionState& session_state() {
    static SessionState state;
    return state;
}

// The session object lives in memory of the reader's static context.
SessionMailData* create_session_object() {
    const crelm::mail::JsonAllocator& hooks = crelm::mail::json_static_context().allocator;
    void* memory = hooks.allocate(hooks.context, sizeof(SessionMailData));
    return memory == nullptr ? nullptr : new (memory) SessionMailData;
}

void free_session_object() {
    SessionMailData*& data = session_state().data;
    if (data != nullptr) {
        const crelm::mail::JsonAllocator& hooks = crelm::mail::json_static_context().allocator;
        data->~SessionMailData();
        hooks.release(hooks.context, data);
        data = nullptr;
    }
}

// Descriptor count 1 on purpose: only standard input is ever polled.
bool input_is_ready(std::FILE* stream) {
    fd_set readable;
    FD_ZERO(&readable);
    FD_SET(fileno(stream), &readable);
    timeval timeout{0, 1};
    return select(1, &readable, nullptr, nullptr, &timeout) == 1;
}

int parse_into_session(char* buffer) {
    crelm::mail::JsonReaderPtr reader(crelm::mail::json_reader_create(buffer));
    errno = 0;
    SessionState& state = session_state();
    state.data = reader ? create_session_object() : nullptr;
    if (state.data == nullptr) {
        log_message(3, "Failed to allocate session mail DB info object: %s [%d]", std::strerror(errno), errno);
        release_session_mail_data();
        return -3;
    }
    const JsonError result =
        crelm::mail::read_stdin_document(*reader, *state.data, crelm::mail::NameCase::Lower);
    if (result != JsonError::Ok) {
        log_message(3, "Session mail DB info parsing error: %s", crelm::mail::json_error_text(*reader));
        free_session_object();
        return static_cast<int>(result);
    }
    if (!crelm::mail::convert_quotas_to_bytes(*state.data)) {
        free_session_object();
        return static_cast<int>(JsonError::ConstraintFailed);
    }
    return 0;
}

}  // namespace

int read_session_mail_data(std::FILE* stream, StdinPoll poll) {
    SessionState& state = session_state();
    if (state.data != nullptr || state.input) {
        log_message(3, "Session mail DB info have already been initialized. Probably a programming error.");
        return -2;
    }
    if (poll == StdinPoll::First && !input_is_ready(stream)) {
        return -1;
    }
    state.input = read_whole_stream(stream);
    if (!state.input) {
        log_message(3, "Failed to read session mail DB info from input stream (fd=%d): %s [%d]", fileno(stream),
                    std::strerror(errno), errno);
        return -3;
    }
    return parse_into_session(state.input.get());
}

SessionMailData* session_mail_data() {
    SessionState& state = session_state();
    if (state.data == nullptr) {
        state.data = create_session_object();
    }
    return state.data;
}

SessionMailData* existing_session_mail_data() { return session_state().data; }

void release_session_mail_data() {
    free_session_object();
    session_state().input.reset();
}
