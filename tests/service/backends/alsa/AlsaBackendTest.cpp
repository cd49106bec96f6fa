// What only the ALSA sequencer can show: its own programs, programs that are killed, that write without a
// connection, that do not read, that send what they should not; and that nobody wakes while nothing happens.
#include <linux/capability.h>
#include <sched.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <random>
#include <thread>

#include "service/engine/MidiParser.h"
#include "tests/doubles/MidiBackendContract.h"
#include "tests/service/backends/alsa/AlsaSubject.h"
#include "tests/service/backends/alsa/AlsaTestProcess.h"
#include "tests/service/engine/InputListener.h"

namespace vexil {
namespace {

using Bytes = MidiProgram::Bytes;
using std::chrono::milliseconds;
using std::chrono::steady_clock;
using ::testing::HasSubstr;
using ::testing::Not;

class AlsaBackendTest : public BackendFixture<AlsaSubject> {
  protected:
    void SetUp() override {
        BackendFixture<AlsaSubject>::SetUp();
        if (!IsSkipped()) {
            Backend().Start(*engine);
            ASSERT_TRUE(Backend().IsRunning()) << Backend().Problem();
        }
    }
    // What a program hears within a time.
    Bytes HearFor(AlsaProgram& program, milliseconds time) {
        Bytes heard;
        for (const auto end = steady_clock::now() + time; steady_clock::now() < end;) {
            const Bytes more = program.Read();
            heard.insert(heard.end(), more.begin(), more.end());
            subject->Step();
        }
        return heard;
    }
    // What `reader` hears while `writer` writes what it has queued.
    Bytes HearQueued(AlsaProgram& writer, AlsaProgram& reader, std::size_t size) {
        Bytes heard;
        Eventually([&] {
            writer.Pump();
            const Bytes more = reader.Read();
            heard.insert(heard.end(), more.begin(), more.end());
            return heard.size() >= size;
        });
        return heard;
    }
    static Bytes Exclusive(std::size_t size, std::uint8_t data) {
        Bytes message(size, data);
        message.front() = 0xF0;
        message.back() = 0xF7;
        return message;
    }
    // Leaves with Pump, so that readers have their turn meanwhile.
    static void QueueInPieces(AlsaProgram& program, const Bytes& message) {
        for (std::size_t at = 0; at < message.size(); at += kAlsaPieceBytes) {
            const auto begin = message.begin() + static_cast<std::ptrdiff_t>(at);
            program.Queue(
                {begin, begin + static_cast<std::ptrdiff_t>(std::min(kAlsaPieceBytes, message.size() - at))});
        }
    }
};

TEST_F(AlsaBackendTest, TheProgramsOfTheSystemListEndpointsUnderTheirNames) {
    Backend().Publish({{0, true, "Stage piano", false}, {7, false, "Strings", false}});
    const std::string writable = OutputOf("aconnect -o");
    EXPECT_THAT(writable, HasSubstr("'Vexil III'"));
    EXPECT_THAT(writable, HasSubstr("0 'Stage piano"));
    EXPECT_THAT(writable, Not(HasSubstr("Strings")));
    const std::string readable = OutputOf("aconnect -i");
    EXPECT_THAT(readable, HasSubstr("71 'Strings"));
    EXPECT_THAT(readable, Not(HasSubstr("Stage piano")));
    EXPECT_THAT(OutputOf("aplaymidi -l"), HasSubstr("Stage piano"));
    EXPECT_THAT(OutputOf("arecordmidi -l"), HasSubstr("Strings"));
}

TEST_F(AlsaBackendTest, TheProgramsOfTheSystemDoNotListHiddenEndpoints) {
    Backend().Publish({{0, true, "Stage piano", true}, {7, false, "Strings", true}});
    for (const char* listing :
         {"aconnect -o", "aconnect -i", "aconnect -l", "aplaymidi -l", "arecordmidi -l"}) {
        const std::string listed = OutputOf(listing);
        EXPECT_THAT(listed, Not(HasSubstr("Stage piano"))) << listing;
        EXPECT_THAT(listed, Not(HasSubstr("Strings"))) << listing;
        EXPECT_THAT(listed, Not(HasSubstr("Announcements"))) << listing;
    }
}

TEST_F(AlsaBackendTest, AHiddenEndpointKeepsItsConnectionsAndTakesNoNewOnes) {
    Backend().Publish(Both(0, "Port"));
    ASSERT_TRUE(PostWays({{0, 0}}));
    AlsaProgram writer;
    AlsaProgram reader;
    ASSERT_TRUE(writer.WriteTo(AddressOf(0, true)));
    ASSERT_TRUE(reader.ReadFrom(AddressOf(0, false)));
    Backend().Publish({{0, true, "Port", true}, {0, false, "Port", true}});
    EXPECT_EQ(ConnectionsOf(0, true), 1);
    EXPECT_EQ(ConnectionsOf(0, false), 1);
    writer.Write({0xC0, 1});
    EXPECT_EQ(Hear(reader, 2), (Bytes{0xC0, 1}));
    AlsaProgram late;
    EXPECT_FALSE(late.WriteTo(AddressOf(0, true)));
    EXPECT_FALSE(late.ReadFrom(AddressOf(0, false)));
}

TEST_F(AlsaBackendTest, AProgramOfTheSystemHearsWhatIsWritten) {
    Backend().Publish(Both(0, "Port"));
    ASSERT_TRUE(PostWays({{0, 0}}));
    const std::string address = AddressOf(0, false);
    TestProcess dump({"/usr/bin/aseqdump", "-p", address.substr(0, address.find(' '))});
    ASSERT_TRUE(Eventually([&] { return ConnectionsOf(0, false) == 1; }));
    AlsaProgram writer;
    ASSERT_TRUE(writer.WriteTo(AddressOf(0, true)));
    writer.Write({0x92, 61, 77});
    writer.Write({0xF0, 0x7D, 1, 0xF7});
    std::string printed;
    EXPECT_TRUE(Eventually([&] {
        printed += dump.Printed();
        return printed.find("F0 7D 01 F7") != std::string::npos;
    })) << printed;
    EXPECT_THAT(printed, ::testing::ContainsRegex("Note on +2, note 61, velocity 77"));
}

TEST_F(AlsaBackendTest, AKilledProgramHoldsNoNote) {
    Backend().Publish(Both(0, "Port"));
    ASSERT_TRUE(PostWays({{0, 0}}));
    AlsaProgram reader;
    ASSERT_TRUE(reader.ReadFrom(AddressOf(0, false)));
    TestProcess holder({"/proc/self/exe", kHoldNoteArgument, AddressOf(0, true), "connected"});
    ASSERT_EQ(Hear(reader, 6), (Bytes{0x90, 60, 100, 0xB0, 64, 127}));
    holder.Kill();
    EXPECT_EQ(Hear(reader, 6), (Bytes{0x80, 60, 64, 0xB0, 64, 0}));
}

TEST_F(AlsaBackendTest, AKilledProgramThatWroteWithoutAConnectionHoldsNoNote) {
    Backend().Publish(Both(0, "Port"));
    ASSERT_TRUE(PostWays({{0, 0}}));
    AlsaProgram reader;
    ASSERT_TRUE(reader.ReadFrom(AddressOf(0, false)));
    TestProcess holder({"/proc/self/exe", kHoldNoteArgument, AddressOf(0, true), "direct"});
    ASSERT_EQ(Hear(reader, 6), (Bytes{0x90, 60, 100, 0xB0, 64, 127}));
    EXPECT_EQ(ConnectionsOf(0, true), 0);
    holder.Kill();
    EXPECT_EQ(Hear(reader, 6), (Bytes{0x80, 60, 64, 0xB0, 64, 0}));
}

TEST_F(AlsaBackendTest, APortThatWroteWithoutAConnectionAndIsDeletedHoldsNoNote) {
    Backend().Publish(Both(0, "Port"));
    ASSERT_TRUE(PostWays({{0, 0}}));
    AlsaProgram reader;
    ASSERT_TRUE(reader.ReadFrom(AddressOf(0, false)));
    AlsaProgram writer;
    writer.Send({0x90, 60, 100}, AddressOf(0, true));
    ASSERT_EQ(Hear(reader, 3), (Bytes{0x90, 60, 100}));
    writer.DeleteWritePort();
    EXPECT_EQ(Hear(reader, 3), (Bytes{0x80, 60, 64}));
}

TEST_F(AlsaBackendTest, AnEndpointThatIsWithdrawnAndComesAgainBeginsAnew) {
    Backend().Publish(Both(0, "Port"));
    ASSERT_TRUE(PostWays({{0, 0}}));
    AlsaProgram reader;
    ASSERT_TRUE(reader.ReadFrom(AddressOf(0, false)));
    AlsaProgram writer;
    ASSERT_TRUE(writer.WriteTo(AddressOf(0, true)));
    writer.Write({0x90, 60, 100});
    writer.Write({0xF0, 1});
    ASSERT_EQ(Hear(reader, 5), (Bytes{0x90, 60, 100, 0xF0, 1}));
    Backend().Publish({{0, false, "Port in", false}});
    EXPECT_EQ(Hear(reader, 4), (Bytes{0xF7, 0x80, 60, 64}));
    Backend().Publish(Both(0, "Port"));
    AlsaProgram other;
    ASSERT_TRUE(other.WriteTo(AddressOf(0, true)));
    other.Write({0xC0, 7});
    EXPECT_EQ(Hear(reader, 2), (Bytes{0xC0, 7}));
}

TEST_F(AlsaBackendTest, LongSystemExclusivesOfSeveralProgramsArriveOneAfterTheOther) {
    Backend().Publish(Both(0, "Port"));
    ASSERT_TRUE(PostWays({{0, 0}}));
    AlsaProgram reader;
    ASSERT_TRUE(reader.ReadFrom(AddressOf(0, false)));
    constexpr std::size_t kSize = 100'000;
    std::array<AlsaProgram, 4> writers;
    for (std::size_t writer = 0; writer < writers.size(); ++writer) {
        ASSERT_TRUE(writers[writer].WriteTo(AddressOf(0, true)));
        QueueInPieces(writers[writer], Exclusive(kSize, static_cast<std::uint8_t>(writer)));
    }
    Bytes heard;
    EXPECT_TRUE(Eventually([&] {
        for (AlsaProgram& writer : writers) {
            writer.Pump();
        }
        const Bytes more = reader.Read();
        heard.insert(heard.end(), more.begin(), more.end());
        return heard.size() == writers.size() * kSize;
    })) << heard.size();
    ASSERT_EQ(heard.size(), writers.size() * kSize);
    for (std::size_t at = 0; at < heard.size(); at += kSize) {
        EXPECT_TRUE(Bytes(heard.begin() + static_cast<std::ptrdiff_t>(at),
                          heard.begin() + static_cast<std::ptrdiff_t>(at + kSize)) ==
                    Exclusive(kSize, heard[at + 1]));
    }
}

TEST_F(AlsaBackendTest, ABurstWithoutAnyWaitingArrivesWhole) {
    Backend().Publish(Both(0, "Port"));
    ASSERT_TRUE(PostWays({{0, 0}}));
    AlsaProgram reader;
    ASSERT_TRUE(reader.ReadFrom(AddressOf(0, false)));
    AlsaProgram writer;
    ASSERT_TRUE(writer.WriteTo(AddressOf(0, true)));
    Bytes sent;
    for (int i = 0; i < 1500; ++i) {
        const Bytes message{0xB0, static_cast<std::uint8_t>(i % 128), static_cast<std::uint8_t>(i / 128)};
        writer.Send(message);
        sent.insert(sent.end(), message.begin(), message.end());
    }
    EXPECT_TRUE(Hear(reader, sent.size()) == sent);
}

TEST_F(AlsaBackendTest, AReaderWithLittleRoomHearsALongSystemExclusiveWhole) {
    Backend().Publish(Both(0, "Port"));
    ASSERT_TRUE(PostWays({{0, 0}}));
    AlsaProgram reader;
    reader.SetReadPool(14);
    ASSERT_TRUE(reader.ReadFrom(AddressOf(0, false)));
    AlsaProgram writer;
    ASSERT_TRUE(writer.WriteTo(AddressOf(0, true)));
    const Bytes message = Exclusive(20'000, 5);
    QueueInPieces(writer, message);
    Bytes heard;
    EXPECT_TRUE(Eventually([&] {
        writer.Pump();
        std::this_thread::sleep_for(milliseconds(2));
        const Bytes more = reader.Read();
        heard.insert(heard.end(), more.begin(), more.end());
        return heard.size() >= message.size();
    }));
    EXPECT_TRUE(heard == message);
}

TEST_F(AlsaBackendTest, AReaderThatDoesNotReadHoldsNobodyUpForLong) {
    Backend().Publish(Both(0, "Port"));
    ASSERT_TRUE(PostWays({{0, 0}}));
    AlsaProgram asleep;
    ASSERT_TRUE(asleep.ReadFrom(AddressOf(0, false)));
    AlsaProgram reader;
    ASSERT_TRUE(reader.ReadFrom(AddressOf(0, false)));
    AlsaProgram writer;
    ASSERT_TRUE(writer.WriteTo(AddressOf(0, true)));
    Bytes sent;
    for (int i = 0; i < 4000; ++i) {
        const auto low = static_cast<std::uint8_t>(i % 128);
        const Bytes message =
            i % 10 == 0 ? Exclusive(150, low) : Bytes{0xB0, low, static_cast<std::uint8_t>(i / 128)};
        writer.Queue(message);
        sent.insert(sent.end(), message.begin(), message.end());
    }
    const auto begin = steady_clock::now();
    Bytes heard;
    EXPECT_TRUE(Eventually([&] {
        writer.Pump();
        const Bytes more = reader.Read();
        heard.insert(heard.end(), more.begin(), more.end());
        return heard.size() >= sent.size();
    })) << heard.size();
    EXPECT_TRUE(heard == sent);
    EXPECT_LT(steady_clock::now() - begin, std::chrono::seconds(4));
}

TEST_F(AlsaBackendTest, AReaderThatIsLeftBehindIsNamedAndHearsTheEndOfWhatItHeardBegin) {
    Backend().Publish(Both(0, "Port"));
    ASSERT_TRUE(PostWays({{0, 0}}));
    AlsaProgram asleep("Sleepy synth");
    asleep.SetReadPool(40);
    ASSERT_TRUE(asleep.ReadFrom(AddressOf(0, false)));
    AlsaProgram reader;
    ASSERT_TRUE(reader.ReadFrom(AddressOf(0, false)));
    AlsaProgram writer;
    ASSERT_TRUE(writer.WriteTo(AddressOf(0, true)));
    const Bytes began = {0x90, 60, 100, 0xB0, 64, 127, 0x90, 61, 100};
    for (std::size_t at = 0; at < began.size(); at += 3) {
        writer.Queue({began[at], began[at + 1], began[at + 2]});
    }
    ASSERT_EQ(HearQueued(writer, reader, began.size()), began);
    for (int i = 0; i < 200; ++i) {
        writer.Queue({0xC0, static_cast<std::uint8_t>(i % 128)});
    }
    writer.Queue({0x80, 60, 0});
    writer.Queue({0xB0, 64, 0});
    ASSERT_EQ(HearQueued(writer, reader, 406).size(), 406U);
    EXPECT_THAT(ProblemOf(0, false),
                HasSubstr("The program \"Sleepy synth\" reads too slowly and is left behind"));
    const auto isQuiet = [&] { return ProblemOf(0, false).empty(); };

    // Nobody plays: what it is owed comes by itself.
    Bytes heard;
    EXPECT_TRUE(Eventually([&] {
        const Bytes more = asleep.Read();
        heard.insert(heard.end(), more.begin(), more.end());
        return heard.size() >= 6 && Bytes(heard.end() - 6, heard.end()) == (Bytes{0x80, 60, 64, 0xB0, 64, 0});
    }));
    EXPECT_TRUE(Eventually(isQuiet));
    writer.Write({0x80, 61, 0});
    EXPECT_EQ(Hear(asleep, 3), (Bytes{0x80, 61, 0}));
    EXPECT_EQ(Hear(reader, 3), (Bytes{0x80, 61, 0}));
}

TEST_F(AlsaBackendTest, SixtyFourBusyPortsLoseNothing) {
    std::vector<Endpoint> endpoints;
    std::vector<std::pair<int, int>> ways;
    for (int port = 0; port < kMaxPorts; ++port) {
        endpoints.push_back({port, true, "out", false});
        endpoints.push_back({port, false, "in", false});
        ways.emplace_back(port, (port + 13) % kMaxPorts);
    }
    Backend().Publish(endpoints);
    ASSERT_TRUE(PostWays(ways));
    // There may be no more than 64 programs: each of these writes to, or reads, 16 ports.
    constexpr int kShare = 16;
    constexpr int kMessages = 1000;
    std::array<AlsaProgram, kMaxPorts / kShare> writers;
    std::array<AlsaProgram, kMaxPorts / kShare> readers;
    std::vector<std::string> outputs;
    for (int port = 0; port < kMaxPorts; ++port) {
        outputs.push_back(AddressOf(port, true));
        const int input = (port + 13) % kMaxPorts;
        ASSERT_TRUE(readers[static_cast<std::size_t>(port / kShare)].ReadFrom(AddressOf(input, false)));
    }
    std::array<Bytes, kMaxPorts / kShare> heard;
    const auto read = [&] {
        bool all = true;
        for (std::size_t share = 0; share < readers.size(); ++share) {
            writers[share].Pump();
            const Bytes more = readers[share].Read();
            heard[share].insert(heard[share].end(), more.begin(), more.end());
            all = all && heard[share].size() >= std::size_t{3} * kMessages * kShare;
        }
        return all;
    };
    for (int i = 0; i < kMessages; ++i) {
        for (int port = 0; port < kMaxPorts; ++port) {
            writers[static_cast<std::size_t>(port / kShare)].WriteTo(
                {static_cast<std::uint8_t>(0xE0 | port % kShare), static_cast<std::uint8_t>(i % 128),
                 static_cast<std::uint8_t>(i / 128)},
                outputs[static_cast<std::size_t>(port)]);
        }
        read();
    }
    EXPECT_TRUE(Eventually(read));
    for (const Bytes& stream : heard) {
        ASSERT_EQ(stream.size(), std::size_t{3} * kMessages * kShare);
        std::array<int, kShare> next{};
        for (std::size_t at = 0; at < stream.size(); at += 3) {
            EXPECT_EQ(stream[at + 1] + 128 * stream[at + 2], next[stream[at] & 0x0FU]++);
        }
    }
    for (int port = 0; port < kMaxPorts; ++port) {
        EXPECT_EQ(engine->CountersOfSource(port).messages, static_cast<std::uint64_t>(kMessages));
        EXPECT_EQ(engine->CountersOfSource(port).dropped, 0U);
    }
}

TEST_F(AlsaBackendTest, WhatIsPostedIsCarriedOutWithoutAnyEvent) {
    Backend().Publish({{3, false, "in", false}});
    AlsaProgram reader;
    ASSERT_TRUE(reader.ReadFrom(AddressOf(3, false)));
    Settle();
    ASSERT_TRUE(engine->PostWay(kTestSourceBase + 1, {Destination::Input(3)}));
    ASSERT_TRUE(engine->PostTestBytes(1, Bytes{0x90, 60, 100}));
    EXPECT_EQ(Hear(reader, 3), (Bytes{0x90, 60, 100}));
}

TEST_F(AlsaBackendTest, AMessageIsHeldBackToTheNextMultiple) {
    Backend().Publish(Both(0, "Port"));
    ASSERT_TRUE(PostWays({{0, 0}}));
    ASSERT_TRUE(engine->PostQuantization(kMaxSendGranularity));
    ASSERT_TRUE(CarriedOut());
    AlsaProgram reader;
    ASSERT_TRUE(reader.ReadFrom(AddressOf(0, false)));
    AlsaProgram writer;
    ASSERT_TRUE(writer.WriteTo(AddressOf(0, true)));
    // Nothing but the clock wakes the thread for it.
    for (int i = 0; i < 20; ++i) {
        std::this_thread::sleep_for(milliseconds(3));
        writer.Send({0xC0, static_cast<std::uint8_t>(i)});
        EXPECT_EQ(Hear(reader, 2), (Bytes{0xC0, static_cast<std::uint8_t>(i)}));
    }
}

TEST_F(AlsaBackendTest, NobodyWakesWhileNothingHappens) {
    Backend().Publish(Both(0, "Port"));
    ASSERT_TRUE(PostWays({{0, 0}}));
    ASSERT_TRUE(engine->PostQuantization(2));
    AlsaProgram reader;
    ASSERT_TRUE(reader.ReadFrom(AddressOf(0, false)));
    AlsaProgram writer;
    ASSERT_TRUE(writer.WriteTo(AddressOf(0, true)));
    writer.Write({0x90, 60, 100});
    ASSERT_EQ(Hear(reader, 3), (Bytes{0x90, 60, 100}));
    Settle();
    EXPECT_EQ(Backend().EventTimeout(), -1);
    const long before = SwitchesOfThread("alsa");
    ASSERT_GT(before, 0);
    std::this_thread::sleep_for(std::chrono::seconds(3));
    EXPECT_EQ(SwitchesOfThread("alsa"), before);
    writer.Write({0x80, 60, 0});
    ASSERT_EQ(Hear(reader, 3), (Bytes{0x80, 60, 0}));
    EXPECT_GT(SwitchesOfThread("alsa"), before);
}

TEST_F(AlsaBackendTest, NobodyWakesForAReaderThatDoesNotRead) {
    Backend().Publish(Both(0, "Port"));
    ASSERT_TRUE(PostWays({{0, 0}}));
    AlsaProgram asleep;
    ASSERT_TRUE(asleep.ReadFrom(AddressOf(0, false)));
    AlsaProgram writer;
    ASSERT_TRUE(writer.WriteTo(AddressOf(0, true)));
    for (int i = 0; i < 1000; ++i) {
        writer.Write({0xC0, 1});
    }
    std::this_thread::sleep_for(milliseconds(2500));
    const long before = SwitchesOfThread("alsa");
    std::this_thread::sleep_for(std::chrono::seconds(2));
    EXPECT_EQ(SwitchesOfThread("alsa"), before);
}

TEST_F(AlsaBackendTest, TheThreadHasRealtimePriorityWhereItMay) {
    EXPECT_EQ(Backend().RealtimeProblem(), "");
    const int thread = ThreadNamed("alsa");
    EXPECT_EQ(::sched_getscheduler(thread), SCHED_FIFO);
}

TEST_F(AlsaBackendTest, WhereItMayNotItSaysSo) {
    Backend().Stop();
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    std::array<__user_cap_data_struct, 2> capabilities{};
    ASSERT_EQ(::syscall(SYS_capget, &header, capabilities.data()), 0);
    auto without = capabilities;
    without[0].effective &= ~(1U << CAP_SYS_NICE);
    ASSERT_EQ(::syscall(SYS_capset, &header, without.data()), 0);
    Backend().Start(*engine);
    ASSERT_EQ(::syscall(SYS_capset, &header, capabilities.data()), 0);
    EXPECT_TRUE(Backend().IsRunning());
    EXPECT_THAT(Backend().RealtimeProblem(), HasSubstr("no realtime priority"));
}

TEST_F(AlsaBackendTest, ANoticeThatIsNotTheKernelsIsNoNotice) {
    Backend().Publish(Both(0, "Port"));
    ASSERT_TRUE(PostWays({{0, 0}}));
    AlsaProgram reader;
    ASSERT_TRUE(reader.ReadFrom(AddressOf(0, false)));
    AlsaProgram writer;
    ASSERT_TRUE(writer.WriteTo(AddressOf(0, true)));
    writer.Write({0x90, 60, 100});
    ASSERT_EQ(Hear(reader, 3), (Bytes{0x90, 60, 100}));
    AlsaProgram liar;
    const std::string client = AddressOf(0, true).substr(0, AddressOf(0, true).find(':'));
    snd_seq_event_t event;
    snd_seq_ev_clear(&event);
    event.type = SND_SEQ_EVENT_PORT_UNSUBSCRIBED;
    event.data.connect.sender = {writer.Id(), 0};
    event.data.connect.dest = {static_cast<unsigned char>(std::stoi(client)), 0};
    liar.SendEvent(event, client + ":0");
    liar.SendEvent(event, client + ":128");
    event.type = SND_SEQ_EVENT_CLIENT_EXIT;
    event.data.addr = {writer.Id(), 0};
    liar.SendEvent(event, client + ":0");
    liar.SendEvent(event, client + ":128");
    EXPECT_EQ(HearFor(reader, milliseconds(200)), Bytes());
}

// Whatever events come, what readers hear are whole messages, and it goes on.
TEST_F(AlsaBackendTest, HostileEventsDoNoHarm) {
    Backend().Publish(Both(0, "Port"));
    ASSERT_TRUE(PostWays({{0, 0}}));
    AlsaProgram reader;
    ASSERT_TRUE(reader.ReadFrom(AddressOf(0, false)));
    const std::string address = AddressOf(0, true);
    const std::string client = address.substr(0, address.find(':'));
    AlsaProgram first;
    AlsaProgram second;
    std::mt19937 random(17);
    Bytes data(2000);
    Bytes heard;
    for (int round = 0; round < 4000; ++round) {
        AlsaProgram& program = random() % 2 == 0 ? first : second;
        snd_seq_event_t event;
        std::array<std::uint8_t, sizeof event> raw{};
        for (std::uint8_t& byte : raw) {
            byte = static_cast<std::uint8_t>(random());
        }
        std::memcpy(&event, raw.data(), sizeof event);
        event.flags = 0;
        if (random() % 3 == 0) {
            for (std::uint8_t& byte : data) {
                byte = static_cast<std::uint8_t>(random() % 20 == 0 ? random() : random() % 128);
            }
            event.type = SND_SEQ_EVENT_SYSEX;
            event.flags = SND_SEQ_EVENT_LENGTH_VARIABLE;
            event.data.ext.len = static_cast<unsigned>(random() % data.size());
            event.data.ext.ptr = data.data();
        }
        program.TrySendEvent(event,
                             client + ":" + (random() % 10 == 0 ? std::to_string(random() % 200) : "0"));
        if (round % 20 == 0) {
            const Bytes more = reader.Read();
            heard.insert(heard.end(), more.begin(), more.end());
            subject->Step();
        }
    }
    const Bytes rest = HearFor(reader, milliseconds(300));
    heard.insert(heard.end(), rest.begin(), rest.end());
    EXPECT_GT(heard.size(), 1000U);
    // Nothing that a parser would leave out.
    MidiParser parser;
    std::span<const std::uint8_t> bytes(heard);
    std::size_t parsed = 0;
    while (const std::optional<MidiPiece> piece = parser.Next(bytes)) {
        parsed += piece->bytes.size();
    }
    EXPECT_EQ(parsed, heard.size());
    AlsaProgram good;
    ASSERT_TRUE(good.WriteTo(address));
    good.Write({0xC5, 1});
    std::this_thread::sleep_for(milliseconds(1200));
    heard = HearFor(reader, milliseconds(100));
    EXPECT_TRUE(heard.size() >= 2 && Bytes(heard.end() - 2, heard.end()) == (Bytes{0xC5, 1}));
    EXPECT_TRUE(Backend().IsRunning());
}

// More than the sequencer keeps: what is lost is lost, but nothing stays sounding.
TEST_F(AlsaBackendTest, AFloodLeavesNothingSounding) {
    Backend().Publish(Both(0, "Port"));
    ASSERT_TRUE(PostWays({{0, 0}}));
    AlsaProgram reader;
    ASSERT_TRUE(reader.ReadFrom(AddressOf(0, false)));
    Bytes heard;
    {
        AlsaProgram writer;
        ASSERT_TRUE(writer.WriteTo(AddressOf(0, true)));
        std::mt19937 random(1);
        for (int round = 0; round < 200; ++round) {
            for (int i = 0; i < 300; ++i) {
                writer.Buffer({0x90, static_cast<std::uint8_t>(random() % 128),
                               static_cast<std::uint8_t>(random() % 2)});
            }
            writer.FlushBuffer();
            const Bytes more = reader.Read();
            heard.insert(heard.end(), more.begin(), more.end());
        }
    }
    InputListener listener;
    std::size_t told = 0;
    // What waits for the reader comes first.
    const auto isAtRest = [&] {
        const Bytes more = reader.Read();
        heard.insert(heard.end(), more.begin(), more.end());
        for (; told + 3 <= heard.size(); told += 3) {
            listener.Hear(std::span(heard).subspan(told, 3));
        }
        return more.empty() && listener.IsAtRest();
    };
    for (int patience = 0; patience < 6 && !Eventually(isAtRest); ++patience) {
    }
    EXPECT_TRUE(listener.IsAtRest());
    const Bytes rest = HearFor(reader, milliseconds(500));
    EXPECT_EQ(rest, Bytes());
    EXPECT_EQ(heard.size() % 3, 0U);
    EXPECT_FALSE(listener.IsBroken());
    EXPECT_GT(heard.size(), 1000U);
}

// The sequencer keeps 56,000 bytes at most for one program, and loses what waits when it is sent more.
TEST_F(AlsaBackendTest, AnEventThatIsTooLargeForTheSequencerTakesNothingFromOtherPorts) {
    Backend().Publish({{0, true, "a", false}, {1, true, "b", false}, {1, false, "b", false}});
    ASSERT_TRUE(PostWays({{0, 0}, {1, 1}}));
    AlsaProgram reader;
    ASSERT_TRUE(reader.ReadFrom(AddressOf(1, false)));
    AlsaProgram player;
    ASSERT_TRUE(player.WriteTo(AddressOf(1, true)));
    AlsaProgram sampler;
    player.Write({0x90, 60, 100});
    ASSERT_EQ(Hear(reader, 3), (Bytes{0x90, 60, 100}));
    Bytes dump = Exclusive(60'000, 1);
    for (std::uint8_t i = 0; i < 10; ++i) {
        Settle();
        snd_seq_event_t event;
        snd_seq_ev_clear(&event);
        event.type = SND_SEQ_EVENT_SYSEX;
        event.flags = SND_SEQ_EVENT_LENGTH_VARIABLE;
        event.data.ext.len = static_cast<unsigned>(dump.size());
        event.data.ext.ptr = dump.data();
        EXPECT_LT(sampler.TrySendEvent(event, AddressOf(0, true)), 0);
        player.Write({0xC0, i});
        ASSERT_EQ(Hear(reader, 2), (Bytes{0xC0, i}));
    }
    EXPECT_EQ(HearFor(reader, milliseconds(100)), Bytes());
    player.Write({0x80, 60, 0});
    EXPECT_EQ(Hear(reader, 3), (Bytes{0x80, 60, 0}));
}

// All threads of this process on one processor, as long as it lives.
class OneProcessor {
  public:
    OneProcessor() {
        ::sched_getaffinity(0, sizeof before, &before);
        cpu_set_t one;
        CPU_ZERO(&one);
        CPU_SET(0, &one);
        Set(one);
    }
    ~OneProcessor() { Set(before); }
    OneProcessor(const OneProcessor&) = delete;
    OneProcessor& operator=(const OneProcessor&) = delete;

  private:
    static void Set(const cpu_set_t& processors) {
        for (const auto& thread : std::filesystem::directory_iterator("/proc/self/task")) {
            ::sched_setaffinity(std::stoi(thread.path().filename()), sizeof processors, &processors);
        }
    }
    cpu_set_t before{};
};

TEST_F(AlsaBackendTest, ALoopThatAUserHasMadeLeavesTimeToEverybodyElse) {
    Backend().Publish(
        {{0, true, "a", false}, {0, false, "a", false}, {1, true, "b", false}, {1, false, "b", false}});
    ASSERT_TRUE(PostWays({{0, 0}, {1, 1}}));
    AlsaProgram reader;
    ASSERT_TRUE(reader.ReadFrom(AddressOf(1, false)));
    AlsaProgram player;
    ASSERT_TRUE(player.WriteTo(AddressOf(1, true)));
    const OneProcessor one;
    AlsaProgram user;
    ASSERT_TRUE(user.Connect(AddressOf(0, false), AddressOf(0, true)));
    user.Send({0xC0, 1}, AddressOf(0, true));
    const std::uint64_t carried = engine->CountersOfSource(0).messages;
    std::this_thread::sleep_for(milliseconds(500));
    EXPECT_GT(engine->CountersOfSource(0).messages, carried + 100);
    const milliseconds worked = TimeOfThread("alsa");
    const auto begin = steady_clock::now();
    milliseconds slowest{0};
    milliseconds slowestStatus{0};
    for (int i = 0; i < 40; ++i) {
        const auto written = steady_clock::now();
        player.Write({0xC0, static_cast<std::uint8_t>(i)});
        ASSERT_EQ(Hear(reader, 2), (Bytes{0xC0, static_cast<std::uint8_t>(i)}));
        const auto heard = steady_clock::now();
        Backend().Published();
        slowest = std::max(slowest, std::chrono::duration_cast<milliseconds>(heard - written));
        slowestStatus =
            std::max(slowestStatus, std::chrono::duration_cast<milliseconds>(steady_clock::now() - heard));
        std::this_thread::sleep_for(milliseconds(25));
    }
    const auto time = std::chrono::duration_cast<milliseconds>(steady_clock::now() - begin);
    std::printf("slowest note %ld ms, slowest status %ld ms, thread %ld of %ld ms\n", long{slowest.count()},
                long{slowestStatus.count()}, long{(TimeOfThread("alsa") - worked).count()},
                long{time.count()});
    EXPECT_LT(TimeOfThread("alsa") - worked, time * 94 / 100);
    EXPECT_LT(time, std::chrono::seconds(6));
}

TEST_F(AlsaBackendTest, ASystemExclusiveThatIsUnderWayDoesNotHoldTheEndUp) {
    Backend().Publish(Both(0, "Port"));
    ASSERT_TRUE(PostWays({{0, 0}}));
    AlsaProgram asleep;
    ASSERT_TRUE(asleep.ReadFrom(AddressOf(0, false)));
    AlsaProgram writer;
    ASSERT_TRUE(writer.WriteTo(AddressOf(0, true)));
    QueueInPieces(writer, Exclusive(50'000, 1));
    for (int i = 0; i < 100; ++i) {
        writer.Pump();
        subject->Step();
    }
    const auto begin = steady_clock::now();
    Backend().Stop();
    EXPECT_LT(steady_clock::now() - begin, milliseconds(400));
}

}  // namespace
}  // namespace vexil

int main(int argumentCount, char** arguments) {
    if (argumentCount == 4 && std::strcmp(arguments[1], vexil::kHoldNoteArgument) == 0) {
        return vexil::HoldNote(arguments[2], std::strcmp(arguments[3], "connected") == 0);
    }
    ::testing::InitGoogleMock(&argumentCount, arguments);
    return RUN_ALL_TESTS();
}
