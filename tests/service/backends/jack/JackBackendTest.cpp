// What is particular to JACK.
#include <gmock/gmock.h>
#include <jack/metadata.h>
#include <jack/uuid.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <mutex>
#include <stop_token>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "service/backends/ClientName.h"
#include "tests/doubles/MidiBackendContract.h"
#include "tests/service/backends/jack/JackSubject.h"

namespace vexil {
namespace {

using ::testing::ElementsAre;

#if defined(__SANITIZE_ADDRESS__)
constexpr bool kIsSanitized = true;
#elif defined(__has_feature)
constexpr bool kIsSanitized = __has_feature(address_sanitizer);
#else
constexpr bool kIsSanitized = false;
#endif

class JackBackendTest : public MidiTransportContract<JackSubject> {
  protected:
    // Waits until what goes has gone, and what waited for that has come.
    bool Settled() {
        return Eventually([&] { return subject->backend.IsSettled(); });
    }
    // What one program hears of another's message, without the service, when it is late.
    MidiProgram::Bytes HeardDirectly(std::chrono::milliseconds late) {
        auto& writer = dynamic_cast<JackProgram&>(Program());
        auto& reader = dynamic_cast<JackProgram&>(Program());
        EXPECT_TRUE(writer.Connect(writer.Source(), reader.Destination()));
        reader.BeLateWhenHeard(late);
        writer.Write({0x80, 60, 64});
        Settle();
        std::this_thread::sleep_for(2 * late);
        return reader.Read();
    }
};

// A program of its own process, which holds a note.
class HoldingProcess {
  public:
    explicit HoldingProcess(const std::string& address) : process(::fork()) {
        if (process == 0) {
            ::execl("/proc/self/exe", "service_jack_test", "--hold", address.c_str(), nullptr);
            ::_exit(127);
        }
    }
    ~HoldingProcess() { Kill(); }
    HoldingProcess(const HoldingProcess&) = delete;
    HoldingProcess& operator=(const HoldingProcess&) = delete;

    void Kill() {
        if (process > 0) {
            ::kill(process, SIGKILL);
            ::waitpid(process, nullptr, 0);
            process = -1;
        }
    }

  private:
    pid_t process;
};

// Clients that have every port that a server of JACK has left.
class JackCrowd {
  public:
    JackCrowd() {
        while (Fill()) {
        }
    }
    ~JackCrowd() {
        for (jack_client_t* client : clients) {
            jack_client_close(client);
        }
    }
    JackCrowd(const JackCrowd&) = delete;
    JackCrowd& operator=(const JackCrowd&) = delete;

  private:
    // With one more client; whether it got any.
    bool Fill() {
        const std::string name = "crowd " + std::to_string(clients.size());
        jack_client_t* client = jack_client_open(name.c_str(), JackNoStartServer, nullptr);
        if (client == nullptr) {
            return false;
        }
        clients.push_back(client);
        int ports = 0;
        while (jack_port_register(client, std::to_string(ports).c_str(), JACK_DEFAULT_MIDI_TYPE,
                                  JackPortIsOutput, 0) != nullptr) {
            ++ports;
        }
        return ports != 0;
    }

    std::vector<jack_client_t*> clients;
};

// A client that is told what happens to ports, and keeps it as letters in its order: o for an order of the
// graph, u for a port that is unregistered.
class JackWitness {
  public:
    JackWitness() : client(jack_client_open("witness", JackNoStartServer, nullptr)) {
        jack_set_graph_order_callback(
            client,
            [](void* self) {
                Note(self, true, 'o');
                return 0;
            },
            this);
        jack_set_port_registration_callback(
            client, [](jack_port_id_t, int registered, void* self) { Note(self, registered == 0, 'u'); },
            this);
        jack_activate(client);
    }
    ~JackWitness() { jack_client_close(client); }
    JackWitness(const JackWitness&) = delete;
    JackWitness& operator=(const JackWitness&) = delete;

    std::string Seen() {
        const std::lock_guard lock(mutex);
        return seen;
    }

  private:
    static void Note(void* self, bool counts, char letter) {
        auto& witness = *static_cast<JackWitness*>(self);
        const std::lock_guard lock(witness.mutex);
        if (counts) {
            witness.seen += letter;
        }
    }

    jack_client_t* client;
    std::mutex mutex;
    std::string seen;
};

// On a server that does not wait for its clients, as most are.
struct HastySubject : JackSubject {
    HastySubject() {
        server.End();
        server.SetSynchronous(false);
    }
    ~HastySubject() {
        backend.Stop();
        server.End();
        server.SetSynchronous(true);
    }
};

class HastyJackTest : public MidiTransportContract<HastySubject> {};

TEST_F(HastyJackTest, AWriterThatIsKilledHoldsNoNote) {
    Publish(Both(0, "Port"));
    ASSERT_TRUE(PostWays({{0, 0}}));
    MidiProgram& reader = Reader(0);
    HoldingProcess writer(AddressOf(0, true));
    ASSERT_EQ(Hear(reader, 3), (MidiProgram::Bytes{0x90, 60, 100}));
    writer.Kill();
    MidiProgram::Bytes heard;
    EXPECT_TRUE(Eventually([&] {
        const MidiProgram::Bytes more = reader.Read();
        heard.insert(heard.end(), more.begin(), more.end());
        return heard.size() >= 3 && heard[heard.size() - 3] == 0x80 && heard[heard.size() - 2] == 60;
    }));
}

TEST_F(JackBackendTest, AWriterThatGoesHoldsNoNoteWhileAnotherStays) {
    Publish(Both(0, "Port"));
    ASSERT_TRUE(PostWays({{0, 0}}));
    MidiProgram& reader = Reader(0);
    MidiProgram& goes = Writer(0);
    Writer(0);
    ASSERT_TRUE(Connected(0, true, 2));
    goes.Write({0x90, 60, 100});
    ASSERT_EQ(Hear(reader, 3), (MidiProgram::Bytes{0x90, 60, 100}));
    Disconnect(goes);
    EXPECT_THAT(Hear(reader, 3), ElementsAre(0x80, 60, ::testing::_));
}

TEST_F(JackBackendTest, AWriterThatGoesLeavesTheSystemExclusiveOfAnotherWhole) {
    Publish(Both(0, "Port"));
    ASSERT_TRUE(PostWays({{0, 0}}));
    MidiProgram& reader = Reader(0);
    MidiProgram& goes = Writer(0);
    MidiProgram& stays = Writer(0);
    ASSERT_TRUE(Connected(0, true, 2));
    goes.Write({0x90, 60, 100});
    ASSERT_EQ(Hear(reader, 3), (MidiProgram::Bytes{0x90, 60, 100}));
    stays.Write({0xF0, 1, 2});
    ASSERT_EQ(Hear(reader, 3), (MidiProgram::Bytes{0xF0, 1, 2}));
    Disconnect(goes);
    ASSERT_TRUE(Connected(0, true, 1));
    Settle();
    stays.Write({3, 4, 0xF7});
    EXPECT_THAT(Hear(reader, 6), ElementsAre(3, 4, 0xF7, 0x80, 60, ::testing::_));
    EXPECT_EQ(engine->CountersOfSource(0).dropped, 0U);
}

TEST_F(JackBackendTest, ASystemExclusiveThatNobodyGoesOnWithEndsAfterASecondOfSilence) {
    Publish(Both(0, "Port"));
    ASSERT_TRUE(PostWays({{0, 0}}));
    MidiProgram& reader = Reader(0);
    MidiProgram& goes = Writer(0);
    Writer(0);
    ASSERT_TRUE(Connected(0, true, 2));
    goes.Write({0x90, 60, 100});
    goes.Write({0xF0, 1, 2});
    ASSERT_EQ(Hear(reader, 6), (MidiProgram::Bytes{0x90, 60, 100, 0xF0, 1, 2}));
    Disconnect(goes);
    EXPECT_THAT(Hear(reader, 4), ElementsAre(0xF7, 0x80, 60, ::testing::_));
    EXPECT_EQ(engine->CountersOfSource(0).dropped, 1U);
}

TEST_F(JackBackendTest, TheLastWriterThatGoesInsideASystemExclusiveEndsItAtOnce) {
    Publish(Both(0, "Port"));
    ASSERT_TRUE(PostWays({{0, 0}}));
    MidiProgram& reader = Reader(0);
    MidiProgram& goes = Writer(0);
    ASSERT_TRUE(Connected(0, true, 1));
    goes.Write({0x90, 60, 100});
    goes.Write({0xF0, 1, 2});
    ASSERT_EQ(Hear(reader, 6), (MidiProgram::Bytes{0x90, 60, 100, 0xF0, 1, 2}));
    goes.Disconnect();
    EXPECT_THAT(Hear(reader, 4), ElementsAre(0xF7, 0x80, 60, ::testing::_));
    EXPECT_EQ(engine->CountersOfSource(0).dropped, 0U) << "it was not waited for";
}

// How long a program of the test takes to be there with as many ports as the service has.
std::chrono::nanoseconds TimeOfBareProgram() {
    const auto begin = std::chrono::steady_clock::now();
    jack_client_t* client = jack_client_open("bare", JackNoStartServer, nullptr);
    if (client != nullptr) {
        for (int port = 0; port < 2 * kMaxPorts; ++port) {
            const auto flags = port % 2 == 0 ? JackPortIsInput : JackPortIsOutput;
            jack_port_register(client, std::to_string(port).c_str(), JACK_DEFAULT_MIDI_TYPE, flags, 0);
        }
        jack_client_close(client);
    }
    return std::chrono::steady_clock::now() - begin;
}

// On a computer that is so busy that any program takes long, the service does as well.
TEST_F(JackBackendTest, EverythingIsBackTwoSecondsAfterTheServerIs) {
    std::vector<Endpoint> endpoints;
    for (int port = 0; port < kMaxPorts; ++port) {
        endpoints.push_back({port, true, "Out " + std::to_string(port), false});
        endpoints.push_back({port, false, "In " + std::to_string(port), false});
    }
    Publish(endpoints);
    subject->LoseSystem();
    ASSERT_TRUE(Eventually([&] { return !Backend().IsRunning(); }));
    subject->ReturnSystem();
    const auto back = std::chrono::steady_clock::now();
    ASSERT_TRUE(Eventually([&] { return Backend().IsRunning(); }));
    MidiProgram& program = Program();
    ASSERT_TRUE(Eventually([&] {
        return program.Listed(true).size() == static_cast<std::size_t>(kMaxPorts) &&
               program.Listed(false).size() == static_cast<std::size_t>(kMaxPorts);
    }));
    const auto took = std::chrono::steady_clock::now() - back;
    EXPECT_LT(took, std::chrono::seconds(2) + 5 * TimeOfBareProgram());
}

// How often any thread of this process has gone to sleep.
long Sleeps() {
    long sleeps = 0;
    for (const auto& thread : std::filesystem::directory_iterator("/proc/self/task")) {
        std::ifstream status(thread.path() / "status");
        for (std::string word; status >> word;) {
            long count = 0;
            if (word == "voluntary_ctxt_switches:" && status >> count) {
                sleeps += count;
            }
        }
    }
    return sleeps;
}

TEST_F(JackBackendTest, NoThreadWakesUpAnyMoreWhileTheServerStaysAway) {
    subject->LoseSystem();
    ASSERT_TRUE(Eventually([&] { return !Backend().IsRunning(); }));
    // This thread sleeps once for each look.
    const auto isQuiet = [] {
        const long before = Sleeps();
        std::this_thread::sleep_for(std::chrono::milliseconds(2500));
        return Sleeps() - before <= 2;
    };
    EXPECT_TRUE(Eventually(isQuiet));
}

TEST_F(JackBackendTest, NothingWakesTheServiceWhileTheServerIsThere) {
    Publish(Both(0, "Port"));
    EXPECT_TRUE(Eventually([&] { return Backend().EventTimeout() == -1; }));
    Writer(0);
    // What the connection still brings comes first, on a busy computer a while after it.
    pollfd event{Backend().EventDescriptor(), POLLIN, 0};
    EXPECT_TRUE(Eventually([&] { return ::poll(&event, 1, 300) == 0; }));
}

TEST_F(JackBackendTest, AServerThatComesAfterTheStartIsTakenUp) {
    Backend().Stop();
    JackTestServer::Instance().End();
    JackBackend late;
    late.Start(*engine);
    EXPECT_FALSE(late.IsRunning());
    EXPECT_NE(late.Problem(), "");
    subject->ReturnSystem();
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!late.IsRunning() && std::chrono::steady_clock::now() < end) {
        pollfd event{late.EventDescriptor(), POLLIN, 0};
        ::poll(&event, 1, late.EventTimeout() < 0 ? 100 : late.EventTimeout());
        late.HandleEvents();
    }
    EXPECT_TRUE(late.IsRunning()) << late.Problem();
}

TEST_F(JackBackendTest, SixtyFourPortsWithTwentyEventsAPeriodLoseNothing) {
    std::vector<Endpoint> endpoints;
    std::vector<std::pair<int, int>> ways;
    for (int port = 0; port < kMaxPorts; ++port) {
        endpoints.push_back({port, true, "Out " + std::to_string(port), false});
        endpoints.push_back({port, false, "In " + std::to_string(port), false});
        ways.emplace_back(port, port);
    }
    Publish(endpoints);
    ASSERT_TRUE(PostWays(ways));
    MidiProgram& writer = Program();
    MidiProgram& reader = Program();
    for (int port = 0; port < kMaxPorts; ++port) {
        ASSERT_TRUE(writer.WriteTo(AddressOf(port, true)));
        ASSERT_TRUE(reader.ReadFrom(AddressOf(port, false)));
    }
    constexpr int kPeriods = 300;
    // Under sanitizers twenty take more than the half of a cycle that the back end leaves itself, and are
    // more than 5,000 a second for longer than it believes.
    constexpr int kEvents = kIsSanitized ? 5 : 20;
    // Where the computer is late, more would come together, and be lost where JACK mixes 64 ports for one
    // reader.
    dynamic_cast<JackProgram&>(writer).WriteAtMostInACycle(kEvents);
    const auto total = static_cast<std::uint64_t>(kPeriods * kEvents);
    for (int period = 0; period < kPeriods; ++period) {
        for (int event = 0; event < kEvents; ++event) {
            writer.Write({0x90, static_cast<std::uint8_t>(event), static_cast<std::uint8_t>(period % 128)});
        }
        subject->Step();
    }
    const std::size_t heard = Hear(reader, total * kMaxPorts * 3).size();
    EXPECT_EQ(heard, total * kMaxPorts * 3);
    for (int port = 0; port < kMaxPorts; ++port) {
        EXPECT_EQ(engine->CountersOfSource(port).messages, total) << port;
        EXPECT_EQ(engine->CountersOfSource(port).dropped, 0U) << port;
        EXPECT_EQ(engine->CountersOfInput(port).messages, total) << port;
    }
}

TEST_F(JackBackendTest, ASecondServiceCarriesItsUsersName) {
    Publish({{0, true, "Piano", false}});
    ASSERT_TRUE(Eventually([&] { return AddressOf(0, true) == "Vexil III:Piano out"; }));
    Engine secondEngine;
    JackBackend second;
    second.Start(secondEngine);
    second.Publish({{0, true, "Piano", false}});
    EXPECT_TRUE(Eventually([&] {
        second.HandleEvents();
        return !second.Published()[0].address.empty();
    }));
    EXPECT_EQ(second.Published()[0].address, "Vexil III (" + NameOfUser() + "):Piano out");
}

TEST_F(JackBackendTest, LongNamesKeepAFullNameThatProgramsHaveRoomFor) {
    Publish({{0, true, std::string(1000, 'x'), false}});
    EXPECT_EQ(AddressOf(0, true).size(), 255U);
}

TEST_F(JackBackendTest, EndpointsThatAreHiddenLeaveNoNoteHeld) {
    Publish(Both(0, "Port"));
    ASSERT_TRUE(PostWays({{0, 0}}));
    MidiProgram& reader = Reader(0);
    MidiProgram& writer = Writer(0);
    writer.Write({0x90, 60, 100});
    ASSERT_EQ(Hear(reader, 3), (MidiProgram::Bytes{0x90, 60, 100}));
    std::vector<Endpoint> hidden = Both(0, "Port");
    for (Endpoint& endpoint : hidden) {
        endpoint.hidden = true;
    }
    Publish(hidden);
    EXPECT_THAT(Hear(reader, 3), ElementsAre(0x80, 60, ::testing::_));
}

TEST_F(JackBackendTest, WhatIsHeldBackWhenEndpointsAreHiddenIsHeardAndReleased) {
    Publish(Both(0, "Port"));
    ASSERT_TRUE(PostWays({{0, 0}}));
    ASSERT_TRUE(engine->PostQuantization(kMaxSendGranularity) && CarriedOut());
    MidiProgram& reader = Reader(0);
    MidiProgram& writer = Writer(0);
    std::vector<Endpoint> hidden = Both(0, "Port");
    for (Endpoint& endpoint : hidden) {
        endpoint.hidden = true;
    }
    writer.Write({0x90, 60, 100});
    ASSERT_TRUE(Eventually([&] { return engine->CountersOfSource(0).messages == 1; }));
    Publish(hidden);
    EXPECT_THAT(Hear(reader, 6), ElementsAre(0x90, 60, 100, 0x80, 60, ::testing::_));
}

TEST_F(JackBackendTest, HiddenEndpointsSayWhyTheyAreNotThere) {
    Publish({{0, true, "Port", true}});
    EXPECT_EQ(Backend().Published()[0].problem, "Connectors are not shown, and JACK cannot hide a port.");
}

// Calls as the service's loop does, for a while; the longest time that one call took.
std::chrono::milliseconds LongestCall(MidiBackend& backend, std::chrono::milliseconds time) {
    using Clock = std::chrono::steady_clock;
    Clock::duration longest{};
    int port = 0;
    for (const auto end = Clock::now() + time; Clock::now() < end;) {
        const auto begin = Clock::now();
        backend.Publish(
            {{0, true, "Name " + std::to_string(++port), false}, {port % kMaxPorts, false, "In", false}});
        backend.HandleEvents();
        static_cast<void>(backend.Published());
        static_cast<void>(backend.Problem());
        static_cast<void>(backend.RealtimeProblem());
        static_cast<void>(backend.EventTimeout());
        longest = std::max(longest, Clock::now() - begin);
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return std::chrono::duration_cast<std::chrono::milliseconds>(longest);
}

TEST_F(JackBackendTest, NoCallWaitsForAServerThatStandsStill) {
    Publish({{0, true, "Before", false}});
    subject->server.Pause();
    // A call that waits comes back when the server goes on. On a busy computer any call may take 100 ms.
    EXPECT_LT(LongestCall(Backend(), std::chrono::seconds(3)), std::chrono::milliseconds(1000));
    EXPECT_THAT(Backend().Problem(), ::testing::MatchesRegex("JACK does not answer since ..:..:..\\."));
    subject->server.Resume();
    EXPECT_TRUE(Eventually([&] { return Backend().Problem().empty() || !Backend().IsRunning(); }));
    ASSERT_TRUE(Eventually([&] { return Backend().IsRunning(); }));
    Publish({{0, true, "After", false}});
    EXPECT_TRUE(Eventually([&] { return AddressOf(0, true).ends_with("After out"); }));
}

TEST_F(JackBackendTest, AServerThatStandsStillIsToldOfAlsoWhenNothingIsAskedOfIt) {
    Publish({{0, true, "Port", false}});
    ASSERT_EQ(Backend().Problem(), "");
    subject->server.Pause();
    EXPECT_TRUE(Eventually([&] { return Backend().Problem().starts_with("JACK does not answer since "); }));
    subject->server.Resume();
    EXPECT_TRUE(Eventually([&] { return Backend().Problem().empty() || !Backend().IsRunning(); }));
}

// JACK gives the two one buffer.
TEST_F(JackBackendTest, AnInputOfTheServiceIsHeardByAnOutputOfItThatItIsConnectedTo) {
    Publish({{0, true, "First out", false},
             {1, false, "First in", false},
             {2, true, "Second out", false},
             {3, false, "Second in", false}});
    ASSERT_TRUE(PostWays({{0, 1}, {2, 3}}));
    MidiProgram& writer = Writer(0);
    MidiProgram& reader = Reader(3);
    ASSERT_TRUE(dynamic_cast<JackProgram&>(Program()).Connect(AddressOf(1, false), AddressOf(2, true)));
    constexpr int kMessages = 50;
    MidiProgram::Bytes written;
    for (int message = 0; message < kMessages; ++message) {
        const MidiProgram::Bytes bytes = {0xB0, 7, static_cast<std::uint8_t>(message)};
        writer.Write(bytes);
        written.insert(written.end(), bytes.begin(), bytes.end());
        subject->Step();
    }
    EXPECT_EQ(Hear(reader, written.size()), written);
}

// The processor's time that each thread of this process has used.
std::map<std::string, std::chrono::nanoseconds> UsedByThreads() {
    std::map<std::string, std::chrono::nanoseconds> used;
    for (const auto& thread : std::filesystem::directory_iterator("/proc/self/task")) {
        std::ifstream file(thread.path() / "schedstat");
        std::int64_t nanoseconds = 0;
        if (file >> nanoseconds) {
            used[thread.path().filename()] = std::chrono::nanoseconds(nanoseconds);
        }
    }
    return used;
}

// Each input of eight ports is connected to all their outputs: from one note there are eight times as many in
// each cycle.
TEST_F(JackBackendTest, ALoopThatGrowsIsSuspectedAndLeavesTimeToOtherPorts) {
    constexpr int kLooped = 8;
    std::vector<Endpoint> endpoints;
    std::vector<std::pair<int, int>> pairs;
    for (int port = 0; port <= kLooped; ++port) {
        endpoints.push_back({port, true, "Out " + std::to_string(port), false});
        endpoints.push_back({port, false, "In " + std::to_string(port), false});
        pairs.emplace_back(port, port);
    }
    Publish(endpoints);
    ASSERT_TRUE(PostWays(pairs));
    MidiProgram& writer = Writer(kLooped);
    MidiProgram& reader = Reader(kLooped);
    auto& user = dynamic_cast<JackProgram&>(Writer(0));
    for (int input = 0; input < kLooped; ++input) {
        for (int output = 0; output < kLooped; ++output) {
            ASSERT_TRUE(user.Connect(AddressOf(input, false), AddressOf(output, true)));
        }
    }
    user.Write({0x90, 60, 100});
    EXPECT_TRUE(Eventually([&] { return engine->SuspectedRate(0) != 0; }));
    const auto start = std::chrono::steady_clock::now();
    const auto before = UsedByThreads();
    constexpr int kMessages = 20;
    for (std::uint8_t message = 0; message < kMessages; ++message) {
        writer.Write({0xB0, 7, message});
        ASSERT_EQ(Hear(reader, 3), (MidiProgram::Bytes{0xB0, 7, message}));
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    const auto passed = std::chrono::steady_clock::now() - start;
    for (const auto& [thread, used] : UsedByThreads()) {
        const auto found = before.find(thread);
        const auto more = found == before.end() ? used : used - found->second;
        EXPECT_LT(more, passed * 3 / 4) << "thread " << thread;
    }
    EXPECT_EQ(engine->CountersOfSource(kLooped).dropped, 0U);
    EXPECT_EQ(engine->SuspectedRate(kLooped), 0U);
}

TEST_F(JackBackendTest, AnEndpointThatGoesWaitsForAReaderThatIsLate) {
    constexpr std::chrono::milliseconds kLate{500};
    Publish(Both(0, "Port"));
    ASSERT_TRUE(PostWays({{0, 0}}));
    MidiProgram& writer = Writer(0);
    MidiProgram& reader = Reader(0);
    writer.Write({0x90, 60, 100});
    ASSERT_EQ(Hear(reader, 3), (MidiProgram::Bytes{0x90, 60, 100}));
    dynamic_cast<JackProgram&>(reader).BeLateWhenHeard(kLate);
    ASSERT_TRUE(PostWays({}));
    Publish({});
    ASSERT_TRUE(Settled());
    if (IsPipeWire()) {
        // It waits for no program, and what it sends to one that is late is lost on a direct connection as
        // well.
        EXPECT_THAT(HeardDirectly(kLate), ::testing::IsEmpty());
        return;
    }
    EXPECT_THAT(Hear(reader, 3), ElementsAre(0x80, 60, ::testing::_));
}

TEST_F(JackBackendTest, AnEndpointThatGoesRepeatsNothing) {
    Publish(Both(0, "Port"));
    ASSERT_TRUE(PostWays({{0, 0}}));
    auto& writer = dynamic_cast<JackProgram&>(Writer(0));
    MidiProgram& reader = Reader(0);
    writer.WriteAtMostInACycle(1);
    constexpr int kMessages = 500;
    for (int message = 0; message < kMessages; ++message) {
        writer.Write(
            {0xB0, static_cast<std::uint8_t>(message / 128), static_cast<std::uint8_t>(message % 128)});
    }
    MidiProgram::Bytes heard = Hear(reader, 3);
    Publish({{0, true, "Port", false}});
    ASSERT_TRUE(Settled());
    const MidiProgram::Bytes last = reader.Read();
    heard.insert(heard.end(), last.begin(), last.end());
    ASSERT_LT(heard.size() / 3, kMessages);  // it went while there was something to hear
    // What is left in a port is repeated in each cycle until the port has gone. PipeWire by itself repeats or
    // loses a single cycle where a program is late.
    const int mostRepeats = IsPipeWire() ? 1 : 0;
    int repeats = 0;
    int before = -1;
    for (std::size_t place = 0; place + 3 <= heard.size(); place += 3) {
        const int message = heard[place + 1] * 128 + heard[place + 2];
        repeats = message == before ? repeats + 1 : 0;
        ASSERT_LE(repeats, mostRepeats) << message;
        ASSERT_TRUE(IsPipeWire() ? message >= before : message == before + 1)
            << message << " after " << before;
        before = message;
    }
}

TEST_F(JackBackendTest, AnEndpointThatIsWantedAgainBeforeItHasGoneKeepsItsConnections) {
    Publish(Both(0, "Port"));
    ASSERT_TRUE(PostWays({{0, 0}}));
    MidiProgram& writer = Writer(0);
    MidiProgram& reader = Reader(0);
    Publish({});
    Publish(Both(0, "Another name"));
    EXPECT_TRUE(Connected(0, true, 1));
    EXPECT_TRUE(Connected(0, false, 1));
    ASSERT_TRUE(Settled());
    Settle();
    writer.Write({0x90, 60, 100});
    EXPECT_EQ(Hear(reader, 3), (MidiProgram::Bytes{0x90, 60, 100}));
}

// JACK's library would go through the list of ports, without a lock, while one is taken out of it.
TEST_F(JackBackendTest, EndpointsGoOneByOneEachWhenTheGraphIsOrderedWithoutTheOneBefore) {
    if (IsPipeWire()) {
        return;  // its library keeps no such list
    }
    Publish({{0, true, "One"}, {0, false, "One"}, {1, true, "Two"}, {1, false, "Two"}});
    for (int port = 0; port < 2; ++port) {
        Writer(port);
        Reader(port);
    }
    Settle();
    JackWitness witness;
    Settle();
    Publish({});
    ASSERT_TRUE(Settled());
    ASSERT_TRUE(Eventually([&] { return std::ranges::count(witness.Seen(), 'u') == 4; }));
    const std::string seen = witness.Seen();
    for (std::size_t gone = seen.find('u'); gone != seen.rfind('u');) {
        const std::size_t next = seen.find('u', gone + 1);
        EXPECT_NE(seen.substr(gone, next - gone).find('o'), std::string::npos) << seen;
        gone = next;
    }
}

// A client that has the latencies of all clients' ports computed anew, over and over.
class JackRecomputing {
  public:
    JackRecomputing() : client(jack_client_open("recomputing", JackNoStartServer, nullptr)) {
        jack_activate(client);
        thread = std::jthread([this](const std::stop_token& stop) {
            while (!stop.stop_requested()) {
                jack_recompute_total_latencies(client);
            }
        });
    }
    ~JackRecomputing() {
        thread.request_stop();
        thread.join();
        jack_client_close(client);
    }
    JackRecomputing(const JackRecomputing&) = delete;
    JackRecomputing& operator=(const JackRecomputing&) = delete;

  private:
    jack_client_t* client;
    std::jthread thread;
};

TEST_F(JackBackendTest, EndpointsGoWhileJackGoesThroughThePorts) {
    if (IsPipeWire()) {
        return;  // its library keeps no such list
    }
    std::vector<Endpoint> endpoints;
    for (int port = 0; port < 8; ++port) {
        endpoints.push_back({port, true, "Port " + std::to_string(port), false});
        endpoints.push_back({port, false, "Port " + std::to_string(port), false});
    }
    const JackRecomputing recomputing;
    constexpr int kRounds = 5;
    for (int round = 0; round < kRounds; ++round) {
        Publish(endpoints);
        Publish({});
        ASSERT_TRUE(Settled());
    }
    EXPECT_TRUE(Listed(Program(), true, {}));
}

TEST_F(JackBackendTest, TheNameOfAnEndpointThatGoesIsFreeForAnother) {
    Publish({{0, true, "Piano", false}, {1, true, "Organ", false}, {2, true, "Harp", false}});
    Publish({{1, true, "Piano", false}, {3, true, "Harp", false}, {4, true, "Organ", false}});
    EXPECT_EQ(AddressOf(1, true), "Vexil III:Organ out");
    ASSERT_TRUE(Settled());
    EXPECT_EQ(AddressOf(1, true), "Vexil III:Piano out");
    EXPECT_EQ(AddressOf(3, true), "Vexil III:Harp out");
    EXPECT_EQ(AddressOf(4, true), "Vexil III:Organ out");
    EXPECT_TRUE(
        Listed(Program(), true, {"Vexil III:Piano out", "Vexil III:Harp out", "Vexil III:Organ out"}));
}

// Programs on PipeWire know a port by the name that it came with.
TEST_F(JackBackendTest, AnEndpointComesUnderTheNameOfOneThatGoes) {
    Publish({{0, true, "Harp", false}});
    ASSERT_TRUE(Listed(Program(), true, {"Vexil III:Harp out"}));
    Publish({{1, true, "Harp", false}});
    ASSERT_TRUE(Settled());
    EXPECT_EQ(AddressOf(1, true), "Vexil III:Harp out");
    EXPECT_TRUE(Listed(Program(), true, {"Vexil III:Harp out"}));
    Writer(1);
    EXPECT_TRUE(Connected(1, true, 1));
}

TEST_F(JackBackendTest, EndpointsThatHadNoRoomComeWhenOthersHaveGone) {
    if (IsPipeWire()) {
        GTEST_SKIP() << "it has room for any number of ports";
    }
    const auto outputs = [](int first) {
        std::vector<Endpoint> endpoints;
        for (int port = first; port < first + 4; ++port) {
            endpoints.push_back({port, true, "Port " + std::to_string(port), false});
        }
        return endpoints;
    };
    const auto problems = [&] {
        const std::vector<PublishedEndpoint> published = Backend().Published();
        return std::count_if(published.begin(), published.end(),
                             [](const PublishedEndpoint& endpoint) { return !endpoint.problem.empty(); });
    };
    Publish(outputs(0));
    ASSERT_EQ(problems(), 0);
    JackCrowd crowd;
    Publish(outputs(4));
    ASSERT_TRUE(Settled());
    EXPECT_EQ(problems(), 0);
}

// The value of a property of a port; empty: it has none.
std::string PropertyOf(const std::string& address, const char* key) {
    jack_client_t* client = jack_client_open("properties", JackNoStartServer, nullptr);
    const jack_port_t* port = client == nullptr ? nullptr : jack_port_by_name(client, address.c_str());
    char* value = nullptr;
    char* type = nullptr;
    std::string found;
    if (port != nullptr && jack_get_property(jack_port_uuid(port), key, &value, &type) == 0) {
        found = value;
        jack_free(value);
        jack_free(type);
    }
    if (client != nullptr) {
        jack_client_close(client);
    }
    return found;
}

TEST_F(JackBackendTest, PatchbaysShowThePortsByTheirTitlesInTheOrderOfTheirNumbers) {
    if (IsPipeWire()) {
        GTEST_SKIP() << "its library shows a client the properties only while a session manager runs";
    }
    Publish({{63, true, "Alpha", false}, {0, true, "Omega", false}});
    for (const auto& [port, number, title] : {std::tuple(63, "88", "Alpha"), std::tuple(0, "11", "Omega")}) {
        EXPECT_TRUE(Eventually([&, where = port, wanted = std::string(number)] {
            return PropertyOf(AddressOf(where, true), JACK_METADATA_ORDER) == wanted;
        }));
        EXPECT_EQ(PropertyOf(AddressOf(port, true), JACK_METADATA_PRETTY_NAME), title);
    }
}

TEST_F(JackBackendTest, APortThatGoesLeavesNoPropertiesToTheNextOfItsNumber) {
    if (IsPipeWire()) {
        GTEST_SKIP() << "it gives no number twice";
    }
    Publish({{0, true, "Alpha", false}});
    const std::string address = AddressOf(0, true);
    ASSERT_TRUE(Eventually([&] { return !PropertyOf(address, JACK_METADATA_ORDER).empty(); }));
    jack_client_t* client = jack_client_open("properties", JackNoStartServer, nullptr);
    ASSERT_NE(client, nullptr);
    const jack_uuid_t uuid = jack_port_uuid(jack_port_by_name(client, address.c_str()));
    const auto count = [uuid] {
        jack_description_t description{};
        const int found = jack_get_properties(uuid, &description);
        jack_free_description(&description, 0);
        return found;
    };
    EXPECT_EQ(count(), 3);
    Publish({});
    ASSERT_TRUE(Settled());
    EXPECT_EQ(count(), 0);
    jack_client_close(client);
}

TEST_F(JackBackendTest, APortIsFoundByTheNameThatEarlierVersionsGaveIt) {
    if (IsPipeWire()) {
        GTEST_SKIP() << "its library tells nobody of aliases";
    }
    Publish({{0, false, "Strings", false, "Port 11 (2)"}});
    auto& reader = dynamic_cast<JackProgram&>(Program());
    EXPECT_TRUE(Eventually([&] { return reader.ReadFrom("vexil3:Port 11 (2)"); }));
    EXPECT_TRUE(Connected(0, false, 1));
}

TEST_F(JackBackendTest, AnEndpointKeepsItsNameWhenTheOtherSideOfItsPortComesAndGoes) {
    Publish({{0, false, "Port 11", false}});
    EXPECT_EQ(AddressOf(0, false), "Vexil III:Port 11 in");
    Publish({{0, true, "Port 11", false}, {0, false, "Port 11", false}});
    EXPECT_EQ(AddressOf(0, false), "Vexil III:Port 11 in");
    EXPECT_TRUE(Eventually([&] { return AddressOf(0, true) == "Vexil III:Port 11 out"; }));
}

TEST_F(JackBackendTest, TheRealtimeProblemIsNoneOrASentence) {
    const std::string problem = Backend().RealtimeProblem();
    EXPECT_TRUE(problem.empty() || problem.ends_with(".")) << problem;
}

}  // namespace
}  // namespace vexil
