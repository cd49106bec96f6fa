// The back ends that need no MIDI system of the machine.
#include "service/backends/none/NoneBackend.h"
#include "tests/doubles/FaultyMidiBackend.h"
#include "tests/doubles/MemoryMidiBackend.h"
#include "tests/doubles/MidiBackendContract.h"

namespace vexil {
namespace {

struct NoneSubject {
    void SetUp() {}
    MidiBackend& Backend() { return backend; }
    void Step() { backend.HandleEvents(); }

    NoneBackend backend;
};

struct MemorySubject {
    void SetUp() {}
    MidiBackend& Backend() { return backend; }
    void Step() { backend.Cycle(); }
    std::unique_ptr<MidiProgram> NewProgram() { return backend.NewProgram(); }
    void LoseSystem() {
        backend.LoseSystem();
        backend.HandleEvents();
    }
    void ReturnSystem() {
        backend.ReturnSystem();
        backend.HandleEvents();
    }

    MemoryMidiBackend backend;
};

struct UnhidingSubject : MemorySubject {
    UnhidingSubject() { backend.canHide = false; }
};

struct FaultySubject : MemorySubject {
    MidiBackend& Backend() { return faulty; }

    FaultyMidiBackend faulty{backend};
};

using All = ::testing::Types<NoneSubject, MemorySubject, UnhidingSubject, FaultySubject>;
INSTANTIATE_TYPED_TEST_SUITE_P(WithoutASystem, MidiBackendContract, All);
using Transports = ::testing::Types<MemorySubject, UnhidingSubject, FaultySubject>;
INSTANTIATE_TYPED_TEST_SUITE_P(InMemory, MidiTransportContract, Transports);

class FaultyMidiBackendTest : public ::testing::Test {
  protected:
    Engine engine;
    MemoryMidiBackend memory;
    FaultyMidiBackend faulty{memory};
};

TEST_F(FaultyMidiBackendTest, ASystemThatIsAwayIsTakenUpWhenItIsThere) {
    faulty.away = "There is no server.";
    faulty.Start(engine);
    EXPECT_FALSE(faulty.IsRunning());
    EXPECT_EQ(faulty.Problem(), "There is no server.");
    faulty.away.clear();
    faulty.HandleEvents();
    EXPECT_TRUE(faulty.IsRunning());
    EXPECT_EQ(faulty.Problem(), "");
}

TEST_F(FaultyMidiBackendTest, ARefusedEndpointStandsInItsPlaceWithTheProblem) {
    faulty.refused[{1, false}] = "No more ports.";
    faulty.Start(engine);
    faulty.Publish({{0, true, "a", false}, {1, false, "b", false}, {1, true, "c", false}});
    const std::vector<PublishedEndpoint> published = faulty.Published();
    ASSERT_EQ(published.size(), 3U);
    EXPECT_EQ(published[0].problem, "");
    EXPECT_EQ(published[1].problem, "No more ports.");
    EXPECT_EQ(published[1].port, 1);
    EXPECT_FALSE(published[1].output);
    EXPECT_EQ(published[2].problem, "");
}

TEST_F(FaultyMidiBackendTest, TheRealtimeProblemIsItsOwnWhenThereIsOne) {
    memory.realtimeProblem = "wrapped";
    EXPECT_EQ(faulty.RealtimeProblem(), "wrapped");
    faulty.realtimeProblem = "not permitted";
    EXPECT_EQ(faulty.RealtimeProblem(), "not permitted");
}

}  // namespace
}  // namespace vexil
