// What a piece of code prints on standard output and standard error, caught
// in-process, and what report_error prints on both.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <functional>
#include <regex>
#include <string>

namespace sorvane::test {

struct Printed {
    std::string out;
    std::string err;
};

inline Printed printed_by(const std::function<void()>& action) {
    std::fflush(stdout);
    std::fflush(stderr);
    ::testing::internal::CaptureStdout();
    ::testing::internal::CaptureStderr();
    action();
    std::fflush(stdout);
    std::fflush(stderr);
    Printed printed;
    printed.err = ::testing::internal::GetCapturedStderr();
    printed.out = ::testing::internal::GetCapturedStdout();
    return printed;
}

// The same text expected on both streams, as report_error prints it.
inline void expect_reported(const Printed& printed, const std::string& text) {
    EXPECT_EQ(printed.err, text);
    EXPECT_EQ(printed.out, text);
}

// printed with the six random letters or digits of every temporary file's
// name ("<file>.tmp.XXXXXX") written as "XXXXXX", for comparing messages
// that name a temporary file.
inline Printed with_temporary_names_masked(const Printed& printed) {
    static const std::regex kSuffix("\\.tmp\\.[A-Za-z0-9]{6}");
    return Printed{std::regex_replace(printed.out, kSuffix, ".tmp.XXXXXX"),
                   std::regex_replace(printed.err, kSuffix, ".tmp.XXXXXX")};
}

// What report_error prints for message while errno is error: the message,
// "\nSystem error N: <strerror>" and a final newline.
std::string with_system_error(const std::string& message, int error);

}  // namespace sorvane::test
