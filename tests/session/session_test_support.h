// Helpers of the session tests: reading texts into the process-wide
// session, and logging to the sandbox's syslog capture.
#pragma once

#include <cstdio>
#include <string>

#include "support/logging_test.h"
#include "support/sandbox.h"

namespace sorvane::test {

// Writes text to a scratch file and reads it into the session without
// polling; returns read_session_mail_data's result.
int read_session_text(const std::string& text);

// What fn writes to a FILE*, as a string.
template <typename Write>
std::string written_by(Write write) {
    char* data = nullptr;
    std::size_t size = 0;
    std::FILE* stream = open_memstream(&data, &size);
    write(stream);
    std::fclose(stream);
    std::string text(data, size);
    std::free(data);
    return text;
}

// A logging test whose session is released at the end.
class SessionTest : public LoggingTest {
protected:
    void TearDown() override;
    std::vector<std::string> logged() { return syslog_capture().messages(); }
};

}  // namespace sorvane::test
