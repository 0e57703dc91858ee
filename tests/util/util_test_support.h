// What the utility tests share: the sandbox, what code prints, and a fixture
// with a scratch directory of its own.
#pragma once

#include <sys/stat.h>

#include <string>

#include "printed.h"
#include "support/sandbox.h"

namespace sorvane::test {

// A sandbox test with a fresh scratch directory, dir_, under the umask the
// program runs with.
class ScratchDirTest : public SandboxTest {
protected:
    void SetUp() override {
        SandboxTest::SetUp();
        umask(022);
        dir_ = scratch_dir();
    }
    std::string dir_;
};

}  // namespace sorvane::test
