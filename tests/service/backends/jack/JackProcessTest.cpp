// What a cycle of JACK does to ports that have been taken away.
#include "service/backends/jack/JackProcess.h"

#include <gtest/gtest.h>
#include <jack/midiport.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include "tests/service/backends/jack/JackTestServer.h"

namespace vexil {
namespace {

class JackProcessTest : public ::testing::Test {
  protected:
    static constexpr jack_nframes_t kFrames = 64;

    void SetUp() override {
        if (IsPipeWire()) {
            GTEST_SKIP() << "the test runs the cycles, as a server of JACK lets it";
        }
        if (const std::string reason = JackTestServer::WhyNot(); !reason.empty()) {
            GTEST_SKIP() << reason;
        }
        ASSERT_TRUE(JackTestServer::Instance().Start());
        client = jack_client_open("cycles", JackNoStartServer, nullptr);
        ASSERT_NE(client, nullptr);
        process = std::make_unique<JackProcess>(engine, client, wake, pulse);
    }
    void TearDown() override {
        if (client != nullptr) {
            jack_client_close(client);
        }
        ::close(wake);
    }
    jack_port_t* Register(const char* name) {
        return jack_port_register(client, name, JACK_DEFAULT_MIDI_TYPE, JackPortIsOutput, 0);
    }
    static std::uint32_t EventsIn(jack_port_t* port) {
        return jack_midi_get_event_count(jack_port_get_buffer(port, kFrames));
    }
    static void PutEvent(jack_port_t* port) {
        void* buffer = jack_port_get_buffer(port, kFrames);
        jack_midi_clear_buffer(buffer);
        ASSERT_NE(jack_midi_event_reserve(buffer, 0, 3), nullptr);
    }

    const int wake = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    Engine engine;
    JackPulse pulse;
    jack_client_t* client = nullptr;  // never active: the test runs the cycles
    std::unique_ptr<JackProcess> process;
};

TEST_F(JackProcessTest, APortThatIsLeftEmptyIsClearedAndNothingGoesIntoIt) {
    jack_port_t* port = Register("one");
    process->SetPort(0, false, port);
    ASSERT_TRUE(engine.PostWay(kTestSourceBase, {Destination::Input(0)}));
    const std::array<std::uint8_t, 3> note = {0x90, 60, 100};
    ASSERT_TRUE(engine.PostTestBytes(0, note));
    process->Cycle(kFrames);
    ASSERT_EQ(EventsIn(port), 1U);
    process->LeaveEmpty(0);
    ASSERT_TRUE(engine.PostTestBytes(0, note));
    process->Cycle(kFrames);
    EXPECT_EQ(EventsIn(port), 0U);
    process->SetPort(0, false, port);
    ASSERT_TRUE(engine.PostTestBytes(0, note));
    process->Cycle(kFrames);
    EXPECT_EQ(EventsIn(port), 1U);
}

// As JACK's mix of several writers does.
TEST_F(JackProcessTest, EventsThatJackLostAreCountedAndEndTheWay) {
    jack_port_t* written = Register("written");
    jack_port_t* heard = Register("heard");
    process->SetPort(3, true, written);
    process->SetPort(7, false, heard);
    WayTable ways;
    ways[3].to = Destination::Input(7);
    ASSERT_TRUE(engine.PostWays(ways));
    void* buffer = jack_port_get_buffer(written, kFrames);
    jack_midi_clear_buffer(buffer);
    const std::array<std::uint8_t, 3> note = {0x90, 60, 100};
    ASSERT_EQ(jack_midi_event_write(buffer, 0, note.data(), note.size()), 0);
    ASSERT_EQ(jack_midi_event_reserve(buffer, 0, jack_midi_max_event_size(buffer) + 1), nullptr);
    process->Cycle(kFrames);
    ASSERT_EQ(EventsIn(heard), 2U);
    jack_midi_event_t end{};
    ASSERT_EQ(jack_midi_event_get(&end, jack_port_get_buffer(heard, kFrames), 1), 0);
    EXPECT_EQ(end.buffer[0], 0x80);
    EXPECT_EQ(end.buffer[1], 60);
    EXPECT_EQ(engine.CountersOfSource(3).dropped, 1U);
    EXPECT_EQ(process->TakeLost(), 1U);
}

// JACK gives the number of a port that has gone to the next, which may be anybody's.
TEST_F(JackProcessTest, APortThatWasTakenAwayIsNotTouchedAnyMore) {
    jack_port_t* port = Register("one");
    process->SetPort(0, false, port);
    process->Cycle(kFrames);
    process->SetPort(0, false, nullptr);
    ASSERT_EQ(jack_port_unregister(client, port), 0);
    jack_port_t* next = Register("two");
    ASSERT_EQ(next, port);
    PutEvent(next);
    process->Cycle(kFrames);
    EXPECT_EQ(EventsIn(next), 1U);
}

}  // namespace
}  // namespace vexil
