// Entry point of every test program: refuses to run outside the sandbox,
// then gives this process a mount namespace of its own so that test
// processes running side by side never see each other's trees.
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>

namespace {

bool inside_sandbox() {
    const char* token = std::getenv("SORVANE_SANDBOX");
    if (token == nullptr || token[0] == '\0')
        return false;
    std::ifstream marker("/var/qmail/.sorvane-sandbox");
    std::string line;
    return std::getline(marker, line) && line == token;
}

}  // namespace

int main(int argc, char** argv) {
    if (!inside_sandbox()) {
        std::fprintf(stderr,
                     "%s: refusing to run outside the test sandbox; it would change system paths.\n"
                     "Run the suite with: tests/sandbox/run-tests <build-dir> [ctest arguments]\n",
                     argv[0]);
        return 2;
    }
    if (unshare(CLONE_NEWNS) != 0 || mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
        std::perror("unshare/mount");
        return 2;
    }
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
