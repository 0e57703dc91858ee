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

void SessionTest::TearDown() {
    release_session_mail_data();
    LoggingTest::TearDown();
}

}  // namespace sorvane::test
