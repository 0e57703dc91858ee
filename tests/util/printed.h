// What a piece of code prints on standard output and standard error, caught
// in-process, and small helpers shared by the utility tests.
#pragma once

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/types.h>

#include <cstdio>
#include <functional>
#include <string>
#include <vector>

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

// What report_error prints for message while errno is error: the message,
// "\nSystem error N: <strerror>" and a final newline.
std::string with_system_error(const std::string& message, int error);

// Lowers the descriptor limit so that the next open, pipe or mkstemp fails
// with EMFILE; restores it when it goes out of scope.
class NoFreeDescriptors {
public:
    // spare: how many descriptors stay free.
    explicit NoFreeDescriptors(int spare = 0);
    // For code that ends the program: the limit is restored when exit runs,
    // before anything that needs a descriptor on the way out.
    static void restore_at_exit();
    ~NoFreeDescriptors();
    NoFreeDescriptors(const NoFreeDescriptors&) = delete;
    NoFreeDescriptors& operator=(const NoFreeDescriptors&) = delete;

private:
    rlimit saved_{};
    std::vector<int> fillers_;
};

// Splits text at '\n'; a trailing newline gives no empty last piece.
std::vector<std::string> split_lines(const std::string& text);

// Waits (blocking) for a process of ours and tells how it ended: the exit
// code, or 128 + the signal that killed it.
int reap(pid_t pid);

}  // namespace sorvane::test
