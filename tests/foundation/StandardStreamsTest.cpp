// Each case runs in a child process, whose standard streams it may close.
#include "shared/System/StandardStreams.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <string>

namespace vexil {
namespace {

bool InChild(const std::function<bool()>& holds) {
    const pid_t child = fork();
    if (child == 0) {
        _exit(holds() ? 0 : 1);
    }
    int status = -1;
    waitpid(child, &status, 0);
    return status == 0;
}

std::string Target(int descriptor) {
    std::error_code error;
    return std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(descriptor), error).string();
}

TEST(StandardStreams, ClosedOnesAreHeldByTheNullDevice) {
    EXPECT_TRUE(InChild([] {
        close(STDIN_FILENO);
        close(STDOUT_FILENO);
        close(STDERR_FILENO);
        HoldStandardStreams();
        return Target(0) == "/dev/null" && Target(1) == "/dev/null" && Target(2) == "/dev/null" &&
               open("/dev/zero", O_RDONLY) > STDERR_FILENO;
    }));
}

TEST(StandardStreams, OpenOnesAreKept) {
    EXPECT_TRUE(InChild([] {
        dup2(open("/dev/zero", O_RDWR), STDOUT_FILENO);
        close(STDERR_FILENO);
        HoldStandardStreams();
        return Target(1) == "/dev/zero" && Target(2) == "/dev/null";
    }));
}

TEST(StandardStreams, HeldOnesFailAsClosedOnesDo) {
    EXPECT_TRUE(InChild([] {
        close(STDIN_FILENO);
        close(STDOUT_FILENO);
        HoldStandardStreams();
        char byte = 0;
        return read(STDIN_FILENO, &byte, 1) == -1 && write(STDOUT_FILENO, &byte, 1) == -1;
    }));
}

}  // namespace
}  // namespace vexil
