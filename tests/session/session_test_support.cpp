#include "session_test_support.h"

#include <cerrno>
#include <fstream>

#include "runtime/log.h"
#include "session/session_mail_data.h"

namespace sorvane::test {

int read_session_text(const std::string& text) {
    const std::string path = scratch_dir() + "/document.json";
    write_file(path, text);
    std::FILE* stream = std::fopen(path.c_str(), "r");
    EXPECT_NE(stream, nullptr);
    const int result = read_session_mail_data(stream, StdinPoll::Skip);
    std::fclose(stream);
    return result;
}

void SessionTest::SetUp() {
    SandboxTest::SetUp();
    capture_ = std::make_unique<SyslogCapture>();
    log_init(nullptr, 6, 16, 0, "sorvane");
}

void SessionTest::TearDown() {
    release_session_mail_data();
    SandboxTest::TearDown();
}

}  // namespace sorvane::test
