// What a piece of code prints on standard output and standard error, caught
// in-process.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <functional>
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

}  // namespace sorvane::test
