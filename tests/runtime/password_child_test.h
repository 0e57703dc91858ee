// Fixture of the password tests: the program reads the password once per
// process and keeps it, so each test reads it in a child of its own.
#pragma once

#include <cstdlib>
#include <functional>
#include <string>

#include "runtime/child.h"
#include "support/sandbox.h"

namespace sorvane::test {

class PasswordChildTest : public SandboxTest {
protected:
    void TearDown() override {
        unsetenv("QVT_PASSWORD");
        unsetenv("QVT_CRYPTED_PASSWORD");
    }

    // Runs action in a child and returns what it produced.
    std::string in_child(const std::function<std::string()>& action) {
        const std::string path = scratch_dir() + "/result";
        const auto run = run_in_child([&] {
            write_file(path, action());
            return 0;
        });
        EXPECT_EQ(run.status, 0) << run.err;
        return read_file(path);
    }
};

}  // namespace sorvane::test
