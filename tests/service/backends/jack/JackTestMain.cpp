// Runs the tests, or, called as `PROGRAM --hold ADDRESS`, is a program that writes a note to an endpoint,
// holds it and waits to be killed.
#include <gtest/gtest.h>
#include <poll.h>

#include <cstdio>
#include <cstring>

#include "tests/service/backends/jack/DirectPair.h"
#include "tests/service/backends/jack/JackProgram.h"
#include "tests/service/backends/jack/JackTestServer.h"
#include "tests/service/backends/jack/OwnSharedMemory.h"

// The thread sanitizer does not see how JACK hands a port's buffer from one client to the next, which are
// elsewhere processes of their own. One of the two is always a program of the test.
extern "C" const char* __tsan_default_suppressions();  // NOLINT(bugprone-reserved-identifier): its name
extern "C" const char* __tsan_default_suppressions() {
    return "race:vexil::JackProgram::\n";
}

namespace {

// Says of each test that failed how often two programs without the service saw the MIDI system lose or repeat
// a cycle meanwhile.
class FaultReport : public ::testing::EmptyTestEventListener {
    void OnTestStart(const ::testing::TestInfo& /*test*/) override { before = vexil::DirectPair::Faults(); }
    void OnTestEnd(const ::testing::TestInfo& test) override {
        if (const unsigned faults = vexil::DirectPair::Faults() - before;
            test.result()->Failed() && faults != 0) {
            ::testing::Test::RecordProperty("faults", static_cast<int>(faults));
        }
    }

    unsigned before = 0;
};

}  // namespace

int main(int count, char** arguments) {
    ::testing::InitGoogleTest(&count, arguments);
    if (count == 3 && std::strcmp(arguments[1], "--hold") == 0) {
        vexil::JackProgram program;
        if (!program.WriteTo(arguments[2])) {
            return 1;
        }
        for (;;) {
            program.Write({0x90, 60, 100});
            // A server that waits for no client now and then loses what is written over a new connection.
            ::poll(nullptr, 0, 200);
        }
    }
    if (!vexil::TakeOwnSharedMemory()) {
        std::puts("There is no /dev/shm of the test's own: it is shared with other JACK servers.");
    }
    ::testing::UnitTest::GetInstance()->listeners().Append(new FaultReport);  // which owns it from now on
    return RUN_ALL_TESTS();
}
