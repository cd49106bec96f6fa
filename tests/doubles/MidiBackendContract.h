// What every MIDI back end must do, as two suites. The first is for all; the second for those that reach a
// MIDI system. A subject type supplies, default-constructed:
//
//   MidiBackend& Backend();     not started
//   void Step();                lets a moment pass: a cycle of the system, and Service when it is asked for
// and for the second suite:
//   std::unique_ptr<MidiProgram> NewProgram();   an independent program; the system is there
//   void LoseSystem();          the MIDI system dies; no program is open
//   void ReturnSystem();
// and, where the system takes up what is published after Publish has returned:
//   bool IsTakenUp();           it has
// and, where it must be let come to rest before a program that has written goes:
//   void BeforeAProgramGoes();
//
// A subject that cannot be made on this machine calls GTEST_SKIP in SetUp(), which it supplies as well.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "service/backends/MidiBackend.h"
#include "service/engine/Engine.h"
#include "tests/doubles/MidiProgram.h"

namespace vexil {

// Whether an address ends with the name of an output, with its direction where the system gives it one.
inline bool IsNamed(const std::string& address, const std::string& name) {
    return address.ends_with(name) || address.ends_with(name + " out");
}

template <class Subject>
class BackendFixture : public ::testing::Test {
  protected:
    using Bytes = MidiProgram::Bytes;

    static constexpr std::chrono::seconds kPatience{30};

    BackendFixture() : engine(std::make_unique<Engine>()), subject(std::make_unique<Subject>()) {}
    void SetUp() override { subject->SetUp(); }
    // Before the engine, whatever the test has left. A thread that is stuck may go on with the engine.
    void TearDown() override {
        Backend().Stop();
        if (Backend().IsStuck()) {
            static auto* const kKept = new std::vector<std::unique_ptr<Engine>>;
            kKept->push_back(std::move(engine));
            std::puts("The MIDI system did not let the back end go within its time.");
        }
        subject.reset();
    }

    MidiBackend& Backend() { return subject->Backend(); }

    bool Eventually(const std::function<bool()>& condition) {
        const auto end = std::chrono::steady_clock::now() + kPatience;
        while (!condition()) {
            if (std::chrono::steady_clock::now() > end) {
                return false;
            }
            subject->Step();
        }
        return true;
    }
    // Long enough for everything that is under way to arrive.
    void Settle() {
        for (int i = 0; i < 40; ++i) {
            subject->Step();
        }
    }
    static std::vector<Endpoint> Both(int port, const std::string& name) {
        return {{port, true, name + " out", false}, {port, false, name + " in", false}};
    }
    // Publishes; returns when the system has taken it up. A subject that takes its time says when.
    void Publish(const std::vector<Endpoint>& endpoints) {
        Backend().Publish(endpoints);
        if constexpr (requires { subject->IsTakenUp(); }) {
            EXPECT_TRUE(Eventually([&] { return subject->IsTakenUp(); }));
        }
    }
    // Output `from` is heard at input `to`, for each pair.
    bool PostWays(const std::vector<std::pair<int, int>>& ways) {
        WayTable table;
        for (const auto& [from, to] : ways) {
            table[static_cast<std::size_t>(from)].to = Destination::Input(to);
        }
        return engine->PostWays(table) && CarriedOut();
    }
    bool CarriedOut() {
        return Eventually([&] { return engine->Done() == engine->Posted(); });
    }
    std::string AddressOf(int port, bool output) {
        for (const PublishedEndpoint& endpoint : Backend().Published()) {
            if (endpoint.port == port && endpoint.output == output) {
                EXPECT_EQ(endpoint.problem, "");
                return endpoint.address;
            }
        }
        return "";
    }
    int ConnectionsOf(int port, bool output) {
        for (const PublishedEndpoint& endpoint : Backend().Published()) {
            if (endpoint.port == port && endpoint.output == output) {
                return endpoint.connections;
            }
        }
        return -1;
    }
    std::string ProblemOf(int port, bool output) {
        for (const PublishedEndpoint& endpoint : Backend().Published()) {
            if (endpoint.port == port && endpoint.output == output) {
                return endpoint.problem;
            }
        }
        return "It is not published.";
    }
    // Waits until exactly these addresses stand in the listing; they come and go a moment after Publish.
    bool Listed(MidiProgram& program, bool outputs, std::vector<std::string> addresses) {
        std::sort(addresses.begin(), addresses.end());
        return Eventually([&] {
            std::vector<std::string> listed = program.Listed(outputs);
            std::sort(listed.begin(), listed.end());
            return listed == addresses;
        });
    }
    // What a program hears, until it is `size` bytes or patience ends.
    Bytes Hear(MidiProgram& program, std::size_t size) {
        Bytes heard;
        Eventually([&] {
            const Bytes more = program.Read();
            heard.insert(heard.end(), more.begin(), more.end());
            return heard.size() >= size;
        });
        return heard;
    }

    std::unique_ptr<Engine> engine;
    std::unique_ptr<Subject> subject;
};

template <class Subject>
class MidiBackendContract : public BackendFixture<Subject> {};

TYPED_TEST_SUITE_P(MidiBackendContract);

TYPED_TEST_P(MidiBackendContract, ItHasAName) {
    EXPECT_STRNE(this->Backend().Name(), "");
}

TYPED_TEST_P(MidiBackendContract, ItDoesNotRunBeforeItIsStarted) {
    EXPECT_FALSE(this->Backend().IsRunning());
    EXPECT_EQ(this->Backend().EventTimeout(), -1);
}

TYPED_TEST_P(MidiBackendContract, ItSaysWhyItDoesNotRunAndOnlyThen) {
    this->Backend().Start(*this->engine);
    EXPECT_EQ(this->Backend().Problem().empty(), this->Backend().IsRunning());
    this->Backend().Stop();
    EXPECT_FALSE(this->Backend().IsRunning());
    EXPECT_FALSE(this->Backend().Problem().empty());
}

TYPED_TEST_P(MidiBackendContract, EveryEndpointThatIsAskedForIsToldOfInItsOrder) {
    this->Backend().Start(*this->engine);
    this->Backend().Publish({{5, false, "c", false}, {0, true, "a", false}, {0, false, "b", false}});
    const std::vector<PublishedEndpoint> published = this->Backend().Published();
    ASSERT_EQ(published.size(), 3U);
    EXPECT_EQ(published[0].port, 5);
    EXPECT_FALSE(published[0].output);
    EXPECT_EQ(published[1].port, 0);
    EXPECT_TRUE(published[1].output);
    EXPECT_EQ(published[2].port, 0);
    EXPECT_FALSE(published[2].output);
}

TYPED_TEST_P(MidiBackendContract, AnEndpointHasAnAddressOrAProblem) {
    this->Backend().Publish({{1, true, "before", false}, {2, false, "hidden", true}});
    for (const PublishedEndpoint& endpoint : this->Backend().Published()) {
        EXPECT_TRUE(endpoint.address.empty());
        EXPECT_FALSE(endpoint.problem.empty());
    }
    this->Backend().Start(*this->engine);
    for (const PublishedEndpoint& endpoint : this->Backend().Published()) {
        EXPECT_NE(endpoint.address.empty(), endpoint.problem.empty());
        EXPECT_EQ(endpoint.connections, 0);
    }
}

TYPED_TEST_P(MidiBackendContract, TheDescriptorStaysTheSame) {
    const int descriptor = this->Backend().EventDescriptor();
    this->Backend().Start(*this->engine);
    EXPECT_EQ(this->Backend().EventDescriptor(), descriptor);
    this->Backend().HandleEvents();
    EXPECT_EQ(this->Backend().EventDescriptor(), descriptor);
    this->Backend().Stop();
    EXPECT_EQ(this->Backend().EventDescriptor(), descriptor);
}

TYPED_TEST_P(MidiBackendContract, StoppingTwiceIsOnce) {
    this->Backend().Start(*this->engine);
    this->Backend().Stop();
    this->Backend().Stop();
    EXPECT_FALSE(this->Backend().IsRunning());
}

TYPED_TEST_P(MidiBackendContract, StoppingWithoutAStartIsNothing) {
    this->Backend().Stop();
    EXPECT_FALSE(this->Backend().IsRunning());
}

TYPED_TEST_P(MidiBackendContract, NothingIsToBeServicedForLong) {
    this->Backend().Start(*this->engine);
    EXPECT_TRUE(this->Eventually([&] { return this->Backend().EventTimeout() == -1; }));
}

REGISTER_TYPED_TEST_SUITE_P(MidiBackendContract, ItHasAName, ItDoesNotRunBeforeItIsStarted,
                            ItSaysWhyItDoesNotRunAndOnlyThen, EveryEndpointThatIsAskedForIsToldOfInItsOrder,
                            AnEndpointHasAnAddressOrAProblem, TheDescriptorStaysTheSame, StoppingTwiceIsOnce,
                            StoppingWithoutAStartIsNothing, NothingIsToBeServicedForLong);

template <class Subject>
class MidiTransportContract : public BackendFixture<Subject> {
  protected:
    using Bytes = MidiProgram::Bytes;

    void SetUp() override {
        BackendFixture<Subject>::SetUp();
        if (!this->IsSkipped() && !this->HasFatalFailure()) {
            this->Backend().Start(*this->engine);
            ASSERT_TRUE(this->Eventually([&] { return this->Backend().IsRunning(); }))
                << this->Backend().Problem();
        }
    }
    void TearDown() override {
        programs.clear();
        BackendFixture<Subject>::TearDown();
    }

    // A program of the system; it lives as long as the test.
    MidiProgram& Program() { return *programs.emplace_back(this->subject->NewProgram()); }
    // One that writes to the output, or reads at the input, of a port.
    MidiProgram& Writer(int port) {
        MidiProgram& program = Program();
        EXPECT_TRUE(program.WriteTo(this->AddressOf(port, true))) << this->AddressOf(port, true);
        return program;
    }
    MidiProgram& Reader(int port) {
        MidiProgram& program = Program();
        EXPECT_TRUE(program.ReadFrom(this->AddressOf(port, false))) << this->AddressOf(port, false);
        return program;
    }
    void Disconnect(MidiProgram& program) {
        LetRest();
        program.Disconnect();
    }
    void Close(MidiProgram& program) {
        LetRest();
        std::erase_if(programs, [&](const auto& one) { return one.get() == &program; });
    }
    void LetRest() {
        if constexpr (requires { this->subject->BeforeAProgramGoes(); }) {
            this->subject->BeforeAProgramGoes();
        }
    }
    // Waits until the endpoint has as many connections.
    bool Connected(int port, bool output, int connections) {
        return this->Eventually([&] { return this->ConnectionsOf(port, output) == connections; });
    }

    std::vector<std::unique_ptr<MidiProgram>> programs;
};

TYPED_TEST_SUITE_P(MidiTransportContract);

TYPED_TEST_P(MidiTransportContract, EndpointsAreListedOnTheirSide) {
    this->Publish({{0, true, "Piano", false}, {3, false, "Strings", false}});
    MidiProgram& program = this->Program();
    EXPECT_TRUE(this->Listed(program, true, {this->AddressOf(0, true)}));
    EXPECT_TRUE(this->Listed(program, false, {this->AddressOf(3, false)}));
}

TYPED_TEST_P(MidiTransportContract, TheAddressHasTheName) {
    this->Publish({{0, true, "B\xC3\xBChne 1", false}});
    EXPECT_THAT(this->AddressOf(0, true), ::testing::HasSubstr("B\xC3\xBChne 1"));
}

TYPED_TEST_P(MidiTransportContract, EqualNamesGetAddressesOfTheirOwn) {
    std::vector<Endpoint> endpoints;
    for (int port = 0; port < kMaxPorts; ++port) {
        endpoints.push_back({port, true, "Same", false});
        endpoints.push_back({port, false, "Same", false});
    }
    this->Publish(endpoints);
    std::set<std::string> addresses;
    for (const PublishedEndpoint& endpoint : this->Backend().Published()) {
        EXPECT_EQ(endpoint.problem, "");
        addresses.insert(endpoint.address);
    }
    EXPECT_EQ(addresses.size(), endpoints.size());
    MidiProgram& program = this->Program();
    for (const bool output : {true, false}) {
        EXPECT_TRUE(this->Eventually(
            [&] { return program.Listed(output).size() == static_cast<std::size_t>(kMaxPorts); }));
    }
}

TYPED_TEST_P(MidiTransportContract, AnyNameIsPublished) {
    std::string everyByte;
    for (int byte = 1; byte < 256; ++byte) {
        everyByte += static_cast<char>(byte);
    }
    this->Publish({{0, true, everyByte, false},
                   {1, true, std::string(2000, 'x'), false},
                   {2, true, "", false},
                   {3, true, "a:b/c", false},
                   {4, true, ":", false}});
    for (const PublishedEndpoint& endpoint : this->Backend().Published()) {
        EXPECT_EQ(endpoint.problem, "") << endpoint.port;
        EXPECT_NE(endpoint.address, "") << endpoint.port;
    }
    MidiProgram& program = this->Program();
    EXPECT_TRUE(this->Eventually([&] { return program.Listed(true).size() == 5; }));
}

TYPED_TEST_P(MidiTransportContract, HiddenEndpointsAreNotListed) {
    this->Publish({{0, true, "Hidden", true}, {0, false, "Hidden too", true}, {1, true, "Shown", false}});
    MidiProgram& program = this->Program();
    EXPECT_TRUE(this->Listed(program, true, {this->AddressOf(1, true)}));
    EXPECT_TRUE(this->Listed(program, false, {}));
}

TYPED_TEST_P(MidiTransportContract, AHiddenEndpointIsThereWhereItCanBeHidden) {
    this->Publish({{0, true, "Piano", false}});
    this->Writer(0);
    ASSERT_TRUE(this->Connected(0, true, 1));
    this->Publish({{0, true, "Piano", true}});
    EXPECT_EQ(this->Backend().CanHide(), this->Backend().Published()[0].problem.empty());
    EXPECT_TRUE(this->Connected(0, true, this->Backend().CanHide() ? 1 : 0));
}

TYPED_TEST_P(MidiTransportContract, AnEndpointCanBeHiddenAndShownAgain) {
    this->Publish({{0, true, "Piano", false}});
    this->Publish({{0, true, "Piano", true}});
    MidiProgram& program = this->Program();
    EXPECT_TRUE(this->Listed(program, true, {}));
    this->Publish({{0, true, "Piano", false}});
    EXPECT_TRUE(this->Listed(program, true, {this->AddressOf(0, true)}));
}

TYPED_TEST_P(MidiTransportContract, WhatIsWrittenArrivesWhereTheRouteLeads) {
    this->Publish({{0, true, "a", false}, {7, false, "b", false}, {8, false, "c", false}});
    ASSERT_TRUE(this->PostWays({{0, 7}}));
    MidiProgram& writer = this->Writer(0);
    MidiProgram& reader = this->Reader(7);
    MidiProgram& other = this->Reader(8);
    writer.Write({0x90, 60, 100});
    EXPECT_EQ(this->Hear(reader, 3), (MidiProgram::Bytes{0x90, 60, 100}));
    this->Settle();
    EXPECT_THAT(reader.Read(), ::testing::IsEmpty());
    EXPECT_THAT(other.Read(), ::testing::IsEmpty());
}

TYPED_TEST_P(MidiTransportContract, EveryMessageOfMidiIsCarried) {
    this->Publish(this->Both(0, "Port"));
    ASSERT_TRUE(this->PostWays({{0, 0}}));
    MidiProgram& writer = this->Writer(0);
    MidiProgram& reader = this->Reader(0);
    const std::vector<MidiProgram::Bytes> messages = {{0x90, 1, 2},
                                                      {0x80, 1, 2},
                                                      {0xA1, 3, 4},
                                                      {0xB2, 7, 127},
                                                      {0xC3, 5},
                                                      {0xD4, 6},
                                                      {0xE5, 0, 64},
                                                      {0xF1, 0x35},
                                                      {0xF2, 1, 2},
                                                      {0xF3, 9},
                                                      {0xF6},
                                                      {0xF8},
                                                      {0xFA},
                                                      {0xFB},
                                                      {0xFC},
                                                      {0xFE},
                                                      {0xF0, 1, 2, 3, 0xF7},
                                                      {0xF0, 0xF7},
                                                      {0x9F, 127, 1},
                                                      {0x9F, 127, 0}};
    MidiProgram::Bytes stream;
    for (const MidiProgram::Bytes& message : messages) {
        writer.Write(message);
        stream.insert(stream.end(), message.begin(), message.end());
    }
    EXPECT_EQ(this->Hear(reader, stream.size()), stream);
}

TYPED_TEST_P(MidiTransportContract, ALongSystemExclusiveArrivesWhole) {
    this->Publish(this->Both(0, "Port"));
    ASSERT_TRUE(this->PostWays({{0, 0}}));
    MidiProgram& writer = this->Writer(0);
    MidiProgram& reader = this->Reader(0);
    MidiProgram::Bytes message(std::size_t{1} << 20);
    for (std::size_t i = 0; i < message.size(); ++i) {
        message[i] = static_cast<std::uint8_t>(i * 31 % 127);
    }
    message.front() = 0xF0;
    message.back() = 0xF7;
    constexpr std::size_t kPiece = 240;
    for (std::size_t at = 0; at < message.size(); at += kPiece) {
        const auto begin = message.begin() + static_cast<std::ptrdiff_t>(at);
        writer.Write({begin, begin + static_cast<std::ptrdiff_t>(std::min(kPiece, message.size() - at))});
    }
    EXPECT_TRUE(this->Hear(reader, message.size()) == message);
    EXPECT_EQ(this->engine->CountersOfSource(0).dropped, 0U);
}

TYPED_TEST_P(MidiTransportContract, ManyMessagesArriveInTheirOrder) {
    this->Publish(this->Both(0, "Port"));
    ASSERT_TRUE(this->PostWays({{0, 0}}));
    MidiProgram& writer = this->Writer(0);
    MidiProgram& reader = this->Reader(0);
    MidiProgram::Bytes stream;
    for (int i = 0; i < 4000; ++i) {
        const MidiProgram::Bytes message = {0xB0, static_cast<std::uint8_t>(i % 128),
                                            static_cast<std::uint8_t>(i / 128)};
        writer.Write(message);
        stream.insert(stream.end(), message.begin(), message.end());
    }
    EXPECT_TRUE(this->Hear(reader, stream.size()) == stream);
}

TYPED_TEST_P(MidiTransportContract, SeveralWritersOfOneOutputAreMerged) {
    this->Publish(this->Both(0, "Port"));
    ASSERT_TRUE(this->PostWays({{0, 0}}));
    MidiProgram& reader = this->Reader(0);
    constexpr int kWriters = 3;
    constexpr int kMessages = 300;
    std::vector<MidiProgram*> writers;
    for (int i = 0; i < kWriters; ++i) {
        writers.push_back(&this->Writer(0));
    }
    ASSERT_TRUE(this->Connected(0, true, kWriters));
    for (int i = 0; i < kMessages; ++i) {
        for (int writer = 0; writer < kWriters; ++writer) {
            writers[static_cast<std::size_t>(writer)]->Write({static_cast<std::uint8_t>(0xB0 | writer),
                                                              static_cast<std::uint8_t>(i % 128),
                                                              static_cast<std::uint8_t>(i / 128)});
        }
    }
    const MidiProgram::Bytes heard = this->Hear(reader, 3 * kWriters * kMessages);
    ASSERT_EQ(heard.size(), static_cast<std::size_t>(3 * kWriters * kMessages));
    std::vector<int> next(16);
    for (std::size_t at = 0; at < heard.size(); at += 3) {
        ASSERT_EQ(heard[at] & 0xF0, 0xB0);
        int& expected = next[heard[at] & 0x0FU];
        EXPECT_EQ(heard[at + 1] + 128 * heard[at + 2], expected++);
    }
    EXPECT_THAT(next, ::testing::Contains(kMessages).Times(kWriters));
}

TYPED_TEST_P(MidiTransportContract, SeveralReadersOfOneInputHearTheSame) {
    this->Publish(this->Both(0, "Port"));
    ASSERT_TRUE(this->PostWays({{0, 0}}));
    MidiProgram& writer = this->Writer(0);
    MidiProgram& first = this->Reader(0);
    MidiProgram& second = this->Reader(0);
    ASSERT_TRUE(this->Connected(0, false, 2));
    writer.Write({0xC0, 12});
    EXPECT_EQ(this->Hear(first, 2), (MidiProgram::Bytes{0xC0, 12}));
    EXPECT_EQ(this->Hear(second, 2), (MidiProgram::Bytes{0xC0, 12}));
}

TYPED_TEST_P(MidiTransportContract, ConnectionsAreCounted) {
    this->Publish(this->Both(0, "Port"));
    EXPECT_EQ(this->ConnectionsOf(0, true), 0);
    MidiProgram& writer = this->Writer(0);
    EXPECT_TRUE(this->Connected(0, true, 1));
    this->Writer(0);
    EXPECT_TRUE(this->Connected(0, true, 2));
    EXPECT_EQ(this->ConnectionsOf(0, false), 0);
    this->Disconnect(writer);
    EXPECT_TRUE(this->Connected(0, true, 1));
}

TYPED_TEST_P(MidiTransportContract, ARenamedEndpointKeepsItsConnections) {
    this->Publish({{0, true, "Old out", false}, {0, false, "Old in", false}});
    ASSERT_TRUE(this->PostWays({{0, 0}}));
    MidiProgram& writer = this->Writer(0);
    MidiProgram& reader = this->Reader(0);
    this->Publish({{0, true, "New out", false}, {0, false, "New in", false}});
    EXPECT_THAT(this->AddressOf(0, true), ::testing::HasSubstr("New out"));
    EXPECT_TRUE(this->Listed(this->Program(), true, {this->AddressOf(0, true)}));
    EXPECT_TRUE(this->Listed(this->Program(), false, {this->AddressOf(0, false)}));
    EXPECT_TRUE(this->Connected(0, true, 1));
    EXPECT_TRUE(this->Connected(0, false, 1));
    writer.Write({0xC0, 3});
    EXPECT_EQ(this->Hear(reader, 2), (MidiProgram::Bytes{0xC0, 3}));
}

TYPED_TEST_P(MidiTransportContract, EndpointsCanTradeNames) {
    this->Publish({{0, true, "A", false}, {1, true, "B", false}});
    this->Writer(0);
    ASSERT_TRUE(this->Connected(0, true, 1));
    this->Publish({{0, true, "B", false}, {1, true, "A", false}});
    EXPECT_TRUE(this->Eventually([&] { return IsNamed(this->AddressOf(0, true), "B"); }));
    EXPECT_TRUE(this->Eventually([&] { return IsNamed(this->AddressOf(1, true), "A"); }));
    EXPECT_TRUE(this->Connected(0, true, 1));
    EXPECT_EQ(this->ConnectionsOf(1, true), 0);
}

TYPED_TEST_P(MidiTransportContract, OtherEndpointsKeepTheirConnections) {
    this->Publish(this->Both(0, "Stays"));
    ASSERT_TRUE(this->PostWays({{0, 0}}));
    MidiProgram& writer = this->Writer(0);
    MidiProgram& reader = this->Reader(0);
    this->Publish({{1, true, "New", false}, {0, false, "Stays in", false}, {0, true, "Stays out", false}});
    this->Publish(this->Both(0, "Stays"));
    EXPECT_TRUE(this->Connected(0, true, 1));
    EXPECT_TRUE(this->Connected(0, false, 1));
    writer.Write({0xC0, 4});
    EXPECT_EQ(this->Hear(reader, 2), (MidiProgram::Bytes{0xC0, 4}));
}

TYPED_TEST_P(MidiTransportContract, AWithdrawnEndpointIsNotListed) {
    this->Publish({{0, true, "a", false}, {1, true, "b", false}});
    this->Publish({{1, true, "b", false}});
    EXPECT_TRUE(this->Listed(this->Program(), true, {this->AddressOf(1, true)}));
}

TYPED_TEST_P(MidiTransportContract, TheReleaseOfAHeldNoteArrivesBeforeItsInputIsWithdrawn) {
    this->Publish(this->Both(0, "Port"));
    ASSERT_TRUE(this->PostWays({{0, 0}}));
    MidiProgram& writer = this->Writer(0);
    MidiProgram& reader = this->Reader(0);
    writer.Write({0x90, 60, 100});
    ASSERT_EQ(this->Hear(reader, 3), (MidiProgram::Bytes{0x90, 60, 100}));
    ASSERT_TRUE(this->PostWays({}));
    this->Publish({});
    EXPECT_THAT(this->Hear(reader, 3), ::testing::ElementsAre(0x80, 60, ::testing::_));
}

TYPED_TEST_P(MidiTransportContract, TheReleaseOfAHeldNoteArrivesBeforeTheEnd) {
    this->Publish(this->Both(0, "Port"));
    ASSERT_TRUE(this->PostWays({{0, 0}}));
    MidiProgram& writer = this->Writer(0);
    MidiProgram& reader = this->Reader(0);
    writer.Write({0x90, 60, 100});
    ASSERT_EQ(this->Hear(reader, 3), (MidiProgram::Bytes{0x90, 60, 100}));
    ASSERT_TRUE(this->engine->PostReleaseAll());
    ASSERT_TRUE(this->CarriedOut());
    this->Backend().Stop();
    EXPECT_THAT(this->Hear(reader, 3), ::testing::ElementsAre(0x80, 60, ::testing::_));
    EXPECT_TRUE(this->Listed(this->Program(), true, {}));
    EXPECT_TRUE(this->Listed(this->Program(), false, {}));
}

TYPED_TEST_P(MidiTransportContract, AWriterThatDisconnectsHoldsNoNote) {
    this->Publish(this->Both(0, "Port"));
    ASSERT_TRUE(this->PostWays({{0, 0}}));
    MidiProgram& writer = this->Writer(0);
    MidiProgram& reader = this->Reader(0);
    writer.Write({0x93, 60, 100});
    ASSERT_EQ(this->Hear(reader, 3), (MidiProgram::Bytes{0x93, 60, 100}));
    this->Disconnect(writer);
    EXPECT_THAT(this->Hear(reader, 3), ::testing::ElementsAre(0x83, 60, ::testing::_));
}

TYPED_TEST_P(MidiTransportContract, AWriterThatClosesHoldsNoNote) {
    this->Publish(this->Both(0, "Port"));
    ASSERT_TRUE(this->PostWays({{0, 0}}));
    MidiProgram& writer = this->Writer(0);
    MidiProgram& reader = this->Reader(0);
    writer.Write({0x93, 60, 100});
    ASSERT_EQ(this->Hear(reader, 3), (MidiProgram::Bytes{0x93, 60, 100}));
    this->Close(writer);
    EXPECT_THAT(this->Hear(reader, 3), ::testing::ElementsAre(0x83, 60, ::testing::_));
}

TYPED_TEST_P(MidiTransportContract, AProgramThatComesAgainBeginsAnew) {
    this->Publish(this->Both(0, "Port"));
    ASSERT_TRUE(this->PostWays({{0, 0}}));
    MidiProgram& reader = this->Reader(0);
    for (int round = 0; round < 3; ++round) {
        MidiProgram& writer = this->Writer(0);
        writer.Write({0x90, 60, 100});
        ASSERT_EQ(this->Hear(reader, 3), (MidiProgram::Bytes{0x90, 60, 100}));
        this->Close(writer);
        ASSERT_THAT(this->Hear(reader, 3), ::testing::ElementsAre(0x80, 60, ::testing::_));
    }
}

TYPED_TEST_P(MidiTransportContract, TheLossOfTheSystemIsToldOf) {
    this->Publish(this->Both(0, "Port"));
    this->subject->LoseSystem();
    ASSERT_TRUE(this->Eventually([&] { return !this->Backend().IsRunning(); }));
    EXPECT_NE(this->Backend().Problem(), "");
    const std::vector<PublishedEndpoint> published = this->Backend().Published();
    ASSERT_EQ(published.size(), 2U);
    for (const PublishedEndpoint& endpoint : published) {
        EXPECT_NE(endpoint.problem, "");
        EXPECT_EQ(endpoint.address, "");
    }
    EXPECT_TRUE(this->Eventually([&] { return this->Backend().EventTimeout() == -1; }));
}

TYPED_TEST_P(MidiTransportContract, WhatSoundedWhenTheSystemWentIsForgotten) {
    this->Publish(this->Both(0, "Port"));
    ASSERT_TRUE(this->PostWays({{0, 0}}));
    {
        MidiProgram& writer = this->Writer(0);
        MidiProgram& reader = this->Reader(0);
        writer.Write({0x90, 60, 100});
        ASSERT_EQ(this->Hear(reader, 3), (MidiProgram::Bytes{0x90, 60, 100}));
    }
    this->engine->PostReleaseAll();
    this->programs.clear();
    this->subject->LoseSystem();
    ASSERT_TRUE(this->Eventually([&] { return !this->Backend().IsRunning(); }));
    this->subject->ReturnSystem();
    ASSERT_TRUE(this->Eventually([&] { return this->Backend().IsRunning(); }));
    MidiProgram& reader = this->Reader(0);
    this->Settle();
    EXPECT_THAT(reader.Read(), ::testing::IsEmpty());
}

TYPED_TEST_P(MidiTransportContract, TheReturnOfTheSystemBringsEverythingBack) {
    this->Publish(this->Both(0, "Port"));
    ASSERT_TRUE(this->PostWays({{0, 0}}));
    for (int round = 0; round < 2; ++round) {
        this->subject->LoseSystem();
        ASSERT_TRUE(this->Eventually([&] { return !this->Backend().IsRunning(); }));
        // Remembered while it is away.
        this->Backend().Publish({{0, true, "Port out", false}, {0, false, "Renamed", false}});
        this->subject->ReturnSystem();
        ASSERT_TRUE(this->Eventually([&] { return this->Backend().IsRunning(); }))
            << this->Backend().Problem();
        EXPECT_EQ(this->Backend().Problem(), "");
        EXPECT_TRUE(this->Listed(this->Program(), false, {this->AddressOf(0, false)}));
        EXPECT_THAT(this->AddressOf(0, false), ::testing::HasSubstr("Renamed"));
        MidiProgram& writer = this->Writer(0);
        MidiProgram& reader = this->Reader(0);
        writer.Write({0xC0, 5});
        EXPECT_EQ(this->Hear(reader, 2), (MidiProgram::Bytes{0xC0, 5}));
        this->programs.clear();
    }
}

TYPED_TEST_P(MidiTransportContract, ItCanBeStoppedWhileTheSystemIsAway) {
    this->Publish(this->Both(0, "Port"));
    this->subject->LoseSystem();
    ASSERT_TRUE(this->Eventually([&] { return !this->Backend().IsRunning(); }));
    this->Backend().Stop();
    EXPECT_FALSE(this->Backend().IsRunning());
}

REGISTER_TYPED_TEST_SUITE_P(MidiTransportContract, EndpointsAreListedOnTheirSide, TheAddressHasTheName,
                            EqualNamesGetAddressesOfTheirOwn, AnyNameIsPublished, HiddenEndpointsAreNotListed,
                            AHiddenEndpointIsThereWhereItCanBeHidden, AnEndpointCanBeHiddenAndShownAgain,
                            WhatIsWrittenArrivesWhereTheRouteLeads, EveryMessageOfMidiIsCarried,
                            ALongSystemExclusiveArrivesWhole, ManyMessagesArriveInTheirOrder,
                            SeveralWritersOfOneOutputAreMerged, SeveralReadersOfOneInputHearTheSame,
                            ConnectionsAreCounted, ARenamedEndpointKeepsItsConnections,
                            EndpointsCanTradeNames, OtherEndpointsKeepTheirConnections,
                            AWithdrawnEndpointIsNotListed,
                            TheReleaseOfAHeldNoteArrivesBeforeItsInputIsWithdrawn,
                            TheReleaseOfAHeldNoteArrivesBeforeTheEnd, AWriterThatDisconnectsHoldsNoNote,
                            AWriterThatClosesHoldsNoNote, AProgramThatComesAgainBeginsAnew,
                            TheLossOfTheSystemIsToldOf, WhatSoundedWhenTheSystemWentIsForgotten,
                            TheReturnOfTheSystemBringsEverythingBack, ItCanBeStoppedWhileTheSystemIsAway);

}  // namespace vexil
