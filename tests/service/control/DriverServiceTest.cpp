// What the options do with the configuration: endpoints, and the order in which a change is taken up.
#include <gmock/gmock.h>
#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <map>
#include <nlohmann/json.hpp>
#include <utility>

#include "service/engine/Silencing.h"
#include "tests/service/control/ServiceFixture.h"

namespace vexil {
namespace {

using namespace std::chrono_literals;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

const Bytes kNoteOn = {0x90, 60, 100};
const Bytes kNoteOff = {0x80, 60, 64};

class DriverServiceTest : public ServiceFixture {
  protected:
    int Granularity() { return nlohmann::json::parse(service.Status(0))["options"]["sendGranularity"]; }
};

TEST_F(DriverServiceTest, PassesNetworkCommandsToTheNetwork) {
    network.answerToCommands = R"({"done": "It is pinned."})";
    EXPECT_EQ(R"({"done": "It is pinned."})", service.Network({"pin", "stage"}));
    EXPECT_THAT(network.commands, ElementsAre(ElementsAre("pin", "stage")));
}

TEST_F(DriverServiceTest, AnswersNetworkCommandsWithoutANetworkToo) {
    DriverService alone{{servicePreferences, engine, backend, driver, [this] { return Computers(); },
                         [this] { return now; }}};
    EXPECT_EQ(R"({"problem":"This service carries no MIDI between computers."})", alone.Network({"list"}));
}

TEST_F(DriverServiceTest, PublishesWhatIsEnabledUnderItsNames) {
    stored.OutputPorts = Bit(0) | Bit(1);
    stored.InputPorts = Bit(8);
    stored.CustomNames[0].Out_CustomName = "Stage piano";
    stored.CustomNames[8].In_CustomName = "Strings";
    Start();
    EXPECT_THAT(Addresses(), ElementsAre("> vexil3:Stage piano", "> vexil3:Port 12", "< vexil3:Strings"));
}

TEST_F(DriverServiceTest, PublishesBothSidesOfALocalPipe) {
    stored.LocalPipes = Bit(3);
    stored.CustomNames[3].Out_CustomName = "In here";
    stored.CustomNames[3].In_CustomName = "Out there";
    Start();
    EXPECT_THAT(Addresses(), ElementsAre("> vexil3:In here", "< vexil3:Out there"));
}

TEST_F(DriverServiceTest, ShowConnectorsOffHidesTheEndpoints) {
    stored.OutputPorts = Bit(0);
    stored.MiscOptions &= ~kShowConnectors;
    Start();
    EXPECT_THAT(backend.NewProgram()->Listed(true), IsEmpty());
    stored.MiscOptions |= kShowConnectors;
    Apply();
    EXPECT_THAT(backend.NewProgram()->Listed(true), ElementsAre("vexil3:Port 11"));
}

// The panel's own start leaves options without a bit behind, where nothing was stored.
TEST_F(DriverServiceTest, CompletesAnEmptyStoreAtItsStart) {
    DriverPreferences(preferences).SetWirelessOption(false);
    service.Start();
    DriverConfiguration panels;
    DriverPreferences(preferences).LoadConfiguration(kPortCount, panels);
    EXPECT_EQ(panels.MiscOptions, kDefaultMiscOptions);
    ASSERT_EQ(servicePreferences.Changes().size(), 1u);
    EXPECT_EQ(servicePreferences.Changes().front().key, "MiscOptions");
}

TEST_F(DriverServiceTest, CompletesTheStoreBeforeItsFirstPanelReadsIt) {
    service.Start();
    const PreferenceDomainId id{kDriverDomain, UserScope::kCFPreferencesAnyUser,
                                HostScope::kCFPreferencesCurrentHost};
    const PreferenceDomainId older{kOlderDriverDomain, UserScope::kCFPreferencesAnyUser,
                                   HostScope::kCFPreferencesCurrentHost};
    storage->domains[id].clear();
    storage->domains[older]["MiscOptions"] = MakePropertyNumber(3 | static_cast<int>(kUseWireless));
    service.PanelAttached(1);
    EXPECT_TRUE(SameProperty(storage->domains[id]["MiscOptions"],
                             MakePropertyNumber(3 | static_cast<int>(kUseWireless))))
        << "with Use Wireless, which the panel reads and then takes out itself";
    service.PanelDetached();
    storage->domains[id]["MiscOptions"] = MakePropertyNumber(1);
    service.PanelAttached(2);
    EXPECT_TRUE(SameProperty(storage->domains[id]["MiscOptions"], MakePropertyNumber(1)))
        << "what the first one left";
    service.PanelDetached();
    storage->domains[id].clear();
    service.PanelAttached(3);
    EXPECT_FALSE(storage->domains[id].empty()) << "what has gone meanwhile";
}

TEST_F(DriverServiceTest, TakesUpWhatOthersStore) {
    Start();
    log.Clear();
    stored.OutputPorts = Bit(3);
    Store();
    service.StoreChanged();
    Turn();
    EXPECT_THAT(Addresses(), ElementsAre("> vexil3:Port 14"));
    EXPECT_THAT(log.Text(), HasSubstr("Configuration: 1 output"));
}

TEST_F(DriverServiceTest, ATimeSetByThePanelStaysUntilTheStoredOneChanges) {
    Start();
    Set(kOptionSendGranularity, PortNumber(50));
    stored.OutputPorts = Bit(3);
    Store();
    service.StoreChanged();
    EXPECT_EQ(Granularity(), 50);
    stored.SendGranularity = 70;
    Store();
    service.StoreChanged();
    EXPECT_EQ(Granularity(), 70);
    Set(kOptionSendGranularity, PortNumber(50));
    Apply();
    EXPECT_EQ(Granularity(), 70) << "option 190 takes up everything";
}

TEST_F(DriverServiceTest, TheHostListAndUseWirelessAreNoChangeOfTheStore) {
    Start();
    Set(kOptionWirelessOn);
    log.Clear();
    DriverPreferences(preferences).WriteCache("abc", 3);
    DriverPreferences(preferences).SetWirelessOption(true);
    service.StoreChanged();
    DriverPreferences(preferences).SetWirelessOption(false);
    service.StoreChanged();
    EXPECT_EQ(log.Text(), "");
    EXPECT_EQ(nlohmann::json::parse(service.Status(0))["options"]["wireless"], true);
}

TEST_F(DriverServiceTest, AServiceThatEndsTakesNothingUpAnyMore) {
    Start();
    service.BeginStop();
    stored.OutputPorts = Bit(3);
    Store();
    service.StoreChanged();
    Turn();
    EXPECT_THAT(Addresses(), IsEmpty());
}

TEST_F(DriverServiceTest, NeverWritesTheConfiguration) {
    Patch(0, 1);
    Start();
    servicePreferences.Forget();
    service.PanelAttached(1);
    Set(kOptionSendGranularity, PortNumber(50));
    Set(kOptionWirelessOn);
    OpenTest(0, "studio", 1);
    Apply();
    service.PanelDetached();
    service.Status(0);
    EXPECT_THAT(servicePreferences.Changes(), IsEmpty());
}

TEST_F(DriverServiceTest, ReadsTheCurrentDomainOnly) {
    const PreferenceDomainId older{kOlderDriverDomain, UserScope::kCFPreferencesAnyUser,
                                   HostScope::kCFPreferencesCurrentHost};
    storage->domains[older]["ActiveDevices"] = MakePropertyNumber(6);
    service.Start();
    service.StartBackend();
    Turn();
    EXPECT_THAT(Addresses(), ElementsAre("> vexil3:Port 11"));
}

TEST_F(DriverServiceTest, PatchesOnePortToAnother) {
    Patch(0, 1);
    Start();
    const auto player = backend.NewProgram();
    const auto listener = backend.NewProgram();
    ASSERT_TRUE(player->WriteTo("vexil3:Port 11"));
    ASSERT_TRUE(listener->ReadFrom("vexil3:Port 12"));
    player->Write(kNoteOn);
    Turn();
    EXPECT_EQ(kNoteOn, listener->Read());
}

TEST_F(DriverServiceTest, APanicReleasesAndSilencesTheInputsThatAreHeard) {
    Patch(0, 1);
    stored.InputPorts |= Bit(5);
    Start();
    const auto player = backend.NewProgram();
    const auto listener = backend.NewProgram();
    ASSERT_TRUE(player->WriteTo("vexil3:Port 11"));
    ASSERT_TRUE(listener->ReadFrom("vexil3:Port 12"));
    player->Write(kNoteOn);
    Turn();
    EXPECT_EQ(R"({"done":"All notes are off at 2 inputs."})", service.Panic());
    Turn();
    const Bytes heard = listener->Read();
    ASSERT_EQ(heard.size(), 6 + 3 * kSilencingMessages);
    EXPECT_THAT(Bytes(heard.begin(), heard.begin() + 9),
                ElementsAre(0x90, 60, 100, 0x80, 60, 64, 0xB0, 64, 0));
}

TEST_F(DriverServiceTest, APanicTellsOfWaysToOtherComputersAndOfAMidiSystemThatIsAway) {
    stored.OutputPorts = Bit(0);
    stored.InputPorts = Bit(5);
    stored.Hosts[0].DstHost = "stage";
    network.answers["stage"] = {3, "", false};
    Start();
    EXPECT_EQ(R"({"done":"All notes are off at 1 input and on 1 way to another computer."})",
              service.Panic());
    backend.LoseSystem();
    service.ServeBackend();
    EXPECT_EQ(
        R"({"done":"All notes are off on 1 way to another computer. The MIDI system in memory is away."})",
        service.Panic());
}

TEST_F(DriverServiceTest, APanicStandsInTheLog) {
    Start();
    log.Clear();
    service.Panic();
    EXPECT_THAT(log.Text(),
                HasSubstr("Panic: All notes are off; no input here and no other computer hears any."));
}

TEST_F(DriverServiceTest, ReloadTouchesOnlyWhatChanged) {
    Patch(0, 1);
    Start();
    const auto player = backend.NewProgram();
    const auto listener = backend.NewProgram();
    ASSERT_TRUE(player->WriteTo("vexil3:Port 11"));
    ASSERT_TRUE(listener->ReadFrom("vexil3:Port 12"));
    player->Write(kNoteOn);
    Turn();
    stored.OutputPorts |= Bit(5);
    Apply();
    EXPECT_EQ(kNoteOn, listener->Read());  // and no release of the note that sounds on
    player->Write(kNoteOff);
    Turn();
    EXPECT_EQ(kNoteOff, listener->Read());
}

TEST_F(DriverServiceTest, ReloadWithoutAChangePublishesNothing) {
    Patch(0, 1);
    Start();
    const int before = backend.publishes;
    const std::uint64_t posted = engine.Posted();
    Apply();
    EXPECT_EQ(before, backend.publishes);
    EXPECT_EQ(posted, engine.Posted());
}

TEST_F(DriverServiceTest, ManyEndpointsComeAFewAtATime) {
    Start();
    stored.OutputPorts = ~std::uint64_t{0};
    stored.InputPorts = ~std::uint64_t{0};
    Store();
    ASSERT_EQ(0, Set(kOptionReloadConfiguration));
    std::size_t before = 0;
    for (std::size_t count = 0; count < 2 * kMaxPorts; before = count) {
        backend.Cycle();
        service.Settle();
        count = Addresses().size();
        EXPECT_LE(count - before, DriverService::kPublishedAtOnce);
        ASSERT_TRUE(count == 2 * kMaxPorts || service.Timeout() >= 0) << count;
    }
    EXPECT_EQ(-1, service.Timeout());
}

// Programs look at an address once, and PipeWire keeps the first for good.
TEST_F(DriverServiceTest, AnAddressStaysWhileOtherEndpointsCome) {
    Start();
    stored.OutputPorts = Bit(16) - 1;
    stored.InputPorts = Bit(16) - 1;
    Store();
    ASSERT_EQ(0, Set(kOptionReloadConfiguration));
    std::map<std::pair<int, bool>, std::string> first;
    do {
        backend.Cycle();
        service.Settle();
        for (const PublishedEndpoint& endpoint : backend.Published()) {
            const auto& known =
                *first.emplace(std::pair(endpoint.port, endpoint.output), endpoint.address).first;
            ASSERT_EQ(known.second, endpoint.address);
        }
    } while (service.Timeout() >= 0);
    EXPECT_EQ(32U, first.size());
}

TEST_F(DriverServiceTest, InputsComeBeforeOutputs) {
    Start();
    stored.OutputPorts = ~std::uint64_t{0};
    stored.InputPorts = ~std::uint64_t{0};
    Store();
    ASSERT_EQ(0, Set(kOptionReloadConfiguration));
    long inputs = 0;
    while (Addresses().size() < 2 * kMaxPorts) {
        const std::vector<std::string> addresses = Addresses();
        inputs = std::count_if(addresses.begin(), addresses.end(),
                               [](const std::string& address) { return address.starts_with("<"); });
        ASSERT_TRUE(inputs == kMaxPorts || static_cast<std::size_t>(inputs) == addresses.size());
        ASSERT_GE(service.Timeout(), 0);
        backend.Cycle();
        service.Settle();
    }
    EXPECT_EQ(kMaxPorts, inputs);
}

// An input of JACK stays a little longer than it is wanted, and what is played to it then could not be
// released.
TEST_F(DriverServiceTest, AWayBeginsWhenItsInputIsThere) {
    Patch(0, 1);
    Start();
    const auto player = backend.NewProgram();
    ASSERT_TRUE(player->WriteTo("vexil3:Port 11"));
    stored.InputPorts = 0;
    Apply();
    stored.InputPorts = Bit(1);
    Store();
    ASSERT_EQ(0, Set(kOptionReloadConfiguration));
    player->Write(kNoteOn);
    backend.Cycle();
    EXPECT_EQ(0U, engine.CountersOfInput(1).messages);
    Turn();
    const auto listener = backend.NewProgram();
    ASSERT_TRUE(listener->ReadFrom("vexil3:Port 12"));
    player->Write(kNoteOn);
    Turn();
    EXPECT_EQ(kNoteOn, listener->Read());
}

TEST_F(DriverServiceTest, ManyEndpointsAreHiddenAtOnce) {
    stored.OutputPorts = ~std::uint64_t{0};
    stored.InputPorts = ~std::uint64_t{0};
    Start();
    for (int turn = 0; turn < 10; ++turn) {
        Turn();
    }
    ASSERT_EQ(2U * kMaxPorts, Addresses().size());
    stored.MiscOptions &= ~kShowConnectors;
    Store();
    ASSERT_EQ(0, Set(kOptionReloadConfiguration));
    backend.Cycle();
    service.Settle();
    EXPECT_EQ(2U * kMaxPorts, backend.Published().size());
    EXPECT_THAT(backend.NewProgram()->Listed(true), IsEmpty());
    EXPECT_EQ(-1, service.Timeout());
}

// A MIDI system that cannot hide an input takes it away.
TEST_F(DriverServiceTest, AnInputThatGoesWhenItIsHiddenIsHeardToTheEnd) {
    backend.canHide = false;
    Patch(0, 1);
    Start();
    const auto player = backend.NewProgram();
    const auto listener = backend.NewProgram();
    ASSERT_TRUE(player->WriteTo("vexil3:Port 11"));
    ASSERT_TRUE(listener->ReadFrom("vexil3:Port 12"));
    backend.roomOfCycle = 16;
    Bytes exclusive(400, 1);
    exclusive.front() = 0xF0;
    exclusive.back() = 0xF7;
    player->Write(exclusive);
    player->Write(kNoteOn);
    backend.Cycle();
    stored.MiscOptions &= ~kShowConnectors;
    Apply();
    for (int round = 0; round < 10; ++round) {
        Turn();
    }
    Bytes whole = exclusive;
    whole.insert(whole.end(), kNoteOn.begin(), kNoteOn.end());
    whole.insert(whole.end(), kNoteOff.begin(), kNoteOff.end());
    EXPECT_EQ(whole, listener->Read());
    EXPECT_THAT(listener->Listed(false), IsEmpty());
}

TEST_F(DriverServiceTest, AnInputGoesOnlyAfterItsNotesAreReleased) {
    Patch(0, 1);
    Start();
    const auto player = backend.NewProgram();
    const auto listener = backend.NewProgram();
    ASSERT_TRUE(player->WriteTo("vexil3:Port 11"));
    ASSERT_TRUE(listener->ReadFrom("vexil3:Port 12"));
    player->Write(kNoteOn);
    Turn();
    ASSERT_EQ(kNoteOn, listener->Read());
    stored.InputPorts = 0;
    stored.OutputPorts |= Bit(2);
    Store();
    ASSERT_EQ(0, Set(kOptionReloadConfiguration));
    EXPECT_THAT(Addresses(), ElementsAre("> vexil3:Port 11", "< vexil3:Port 12"));
    EXPECT_GE(service.Timeout(), 0);
    Turn();
    EXPECT_EQ((Bytes{0x80, 60, 64}), listener->Read());
    EXPECT_THAT(Addresses(), ElementsAre("> vexil3:Port 11", "> vexil3:Port 13"));
    EXPECT_EQ(-1, service.Timeout());
}

TEST_F(DriverServiceTest, AMidiSystemThatHangsHoldsAChangeUpForTwoSecondsOnly) {
    Patch(0, 1);
    Start();
    stored.InputPorts = 0;
    Store();
    ASSERT_EQ(0, Set(kOptionReloadConfiguration));
    now += 1999ms;
    service.Settle();
    EXPECT_THAT(Addresses(), ElementsAre("> vexil3:Port 11", "< vexil3:Port 12"));
    EXPECT_EQ(1, service.Timeout());
    now += 1ms;
    service.Settle();
    EXPECT_THAT(Addresses(), ElementsAre("> vexil3:Port 11"));
}

TEST_F(DriverServiceTest, AnotherChangeDoesNotHoldTheFirstUpForLonger) {
    Patch(0, 1);
    Start();
    stored.InputPorts = 0;
    Store();
    ASSERT_EQ(0, Set(kOptionReloadConfiguration));
    now += 1500ms;
    stored.OutputPorts |= Bit(2);
    Store();
    ASSERT_EQ(0, Set(kOptionReloadConfiguration));
    now += 499ms;
    service.Settle();
    EXPECT_THAT(Addresses(), ElementsAre("> vexil3:Port 11", "< vexil3:Port 12"));
    now += 1ms;
    service.Settle();
    EXPECT_THAT(Addresses(), ElementsAre("> vexil3:Port 11", "> vexil3:Port 13"));
}

TEST_F(DriverServiceTest, AMidiSystemThatKeepsUpHasTheWholeTimeForEachStep) {
    Patch(0, 1);
    Start();
    const auto player = backend.NewProgram();
    const auto listener = backend.NewProgram();
    ASSERT_TRUE(player->WriteTo("vexil3:Port 11"));
    ASSERT_TRUE(listener->ReadFrom("vexil3:Port 12"));
    player->Write(kNoteOn);
    Turn();
    ASSERT_EQ(kNoteOn, listener->Read());
    stored.InputPorts = ~std::uint64_t{0};
    Store();
    ASSERT_EQ(0, Set(kOptionReloadConfiguration));
    now += 1999ms;
    backend.Cycle();
    service.Settle();
    ASSERT_LT(Addresses().size(), 65U);
    stored.InputPorts = 0;
    Store();
    ASSERT_EQ(0, Set(kOptionReloadConfiguration));
    now += 1ms;
    service.Settle();
    EXPECT_THAT(Addresses(), Contains("< vexil3:Port 12"));
    Turn();
    EXPECT_EQ(kNoteOff, listener->Read());
}

TEST_F(DriverServiceTest, WithoutAMidiSystemAChangeIsTakenUpAtOnce) {
    backend.LoseSystem();
    backend.HandleEvents();
    Store();
    service.Start();
    service.StartBackend();
    Patch(0, 1);
    Store();
    ASSERT_EQ(0, Set(kOptionReloadConfiguration));
    EXPECT_EQ(-1, service.Timeout());
    EXPECT_EQ(engine.Posted(), engine.Done());
    backend.ReturnSystem();
    service.ServeBackend();
    EXPECT_THAT(Addresses(), ElementsAre("> vexil3:Port 11", "< vexil3:Port 12"));
}

TEST_F(DriverServiceTest, QuantizationFromAPanelLastsUntilTheNextReload) {
    Patch(0, 1);
    stored.SendGranularity = 0;
    Start();
    const auto player = backend.NewProgram();
    const auto listener = backend.NewProgram();
    ASSERT_TRUE(player->WriteTo("vexil3:Port 11"));
    ASSERT_TRUE(listener->ReadFrom("vexil3:Port 12"));
    ASSERT_EQ(0, Set(kOptionSendGranularity, PortNumber(100)));
    backend.now = 2'000'500'000;
    player->Write(kNoteOn);
    backend.Cycle();
    EXPECT_THAT(listener->Read(), IsEmpty());
    for (int cycle = 0; cycle < 10; ++cycle) {
        backend.Cycle();
    }
    EXPECT_EQ(kNoteOn, listener->Read());
    Apply();
    player->Write(kNoteOff);
    backend.Cycle();
    EXPECT_EQ(kNoteOff, listener->Read());
}

TEST_F(DriverServiceTest, ManyChangesWhileTheEngineHangsEndInTheLast) {
    Patch(0, 1);
    Start();
    for (int target = 2; target < 40; ++target) {
        Patch(0, target);
        Store();
        ASSERT_EQ(0, Set(kOptionReloadConfiguration));
    }
    EXPECT_GE(service.Timeout(), 0);
    for (int round = 0; round < 4; ++round) {
        Turn();
    }
    EXPECT_EQ(-1, service.Timeout());
    const auto player = backend.NewProgram();
    const auto last = backend.NewProgram();
    const auto former = backend.NewProgram();
    ASSERT_TRUE(player->WriteTo("vexil3:Port 11"));
    ASSERT_TRUE(last->ReadFrom("vexil3:Port 58"));
    ASSERT_TRUE(former->ReadFrom("vexil3:Port 57"));
    player->Write(kNoteOn);
    Turn();
    EXPECT_EQ(kNoteOn, last->Read());
    EXPECT_THAT(former->Read(), IsEmpty());
}

TEST_F(DriverServiceTest, TheComputersNameMayComeWithADomain) {
    computer.name = "studio.example.org";
    Patch(0, 1);
    stored.Hosts[0].DstHost = "STUDIO.local.";
    Start();
    EXPECT_TRUE(log.Text().find("Port 11 sends to port 12 of \"STUDIO.local.\".") != std::string::npos)
        << log.Text();
}

TEST_F(DriverServiceTest, AnotherNameOfTheComputerChangesTheRoutes) {
    Patch(0, 1);
    Start();
    computer.name = "stage";
    service.ComputerChanged();
    Turn();
    EXPECT_NE(std::string::npos, log.Text().find("The computer \"studio\" cannot be reached."));
    stored.Hosts[0].DstHost = "stage";
    Apply();
    EXPECT_NE(std::string::npos, log.Text().find("Port 11 sends to port 12 of \"stage\"."));
}

TEST_F(DriverServiceTest, HostsAreThisComputer) {
    Start();
    EXPECT_EQ(0, Set(kOptionBrowseHosts));
    Bytes list;
    EXPECT_EQ(0, service.GetOption(kOptionReadHostInfos, list));
    EXPECT_EQ(MakeHostRecords({computer}), list);
}

TEST_F(DriverServiceTest, UnknownOptionsAreNone) {
    Start();
    for (const int option : {64, 100, 189, 198, 201, 202, 203, 1000, -1}) {
        EXPECT_EQ(ENOPROTOOPT, Set(option)) << option;
        EXPECT_EQ(ENOPROTOOPT, Set(option, {0, 0, 0, 0})) << option;
    }
    Bytes data;
    for (const std::uint32_t option : {0U, 63U, 190U, 197U, 201U, 203U, 0xFFFFFFFFU}) {
        EXPECT_EQ(ENOPROTOOPT, service.GetOption(option, data)) << option;
    }
}

TEST_F(DriverServiceTest, OptionsOfTheWrongLengthAreRefused) {
    Start();
    for (const int option : {190, 195, 196, 197}) {
        EXPECT_EQ(EINVAL, Set(option, {0})) << option;
    }
    for (const int option : {191, 193, 194}) {
        EXPECT_EQ(EINVAL, Set(option)) << option;
        EXPECT_EQ(EINVAL, Set(option, {1, 2, 3})) << option;
        EXPECT_EQ(EINVAL, Set(option, {1, 2, 3, 4, 5})) << option;
    }
    EXPECT_EQ(EINVAL, Set(192, {0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(EINVAL, Set(0));
    EXPECT_EQ(EINVAL, Set(63, {0, 0, 0}));
}

TEST_F(DriverServiceTest, WithoutAMidiSystemAMessageThatIsHeldBackGoesItsWayInTime) {
    stored.SendGranularity = 100;
    Patch(0, 1);
    backend.LoseSystem();
    Start();
    backend.now += 3'000'000;
    OpenTest(0, "studio", 1);
    ASSERT_EQ(0, Set(0, PacketList(kNoteOn)));
    EXPECT_EQ(0U, engine.CountersOfInput(1).messages);
    EXPECT_EQ(7, service.Timeout());
    backend.now += 7'000'000;
    service.Settle();
    EXPECT_EQ(1U, engine.CountersOfInput(1).messages);
    EXPECT_EQ(-1, service.Timeout());
}

TEST_F(DriverServiceTest, EveryComputerThatCanBeSeenIsListed) {
    Start();
    others.push_back({.name = "stage"});
    Bytes list;
    ASSERT_EQ(0, service.GetOption(kOptionReadHostInfos, list));
    EXPECT_EQ(MakeHostRecords({computer, others[0]}), list);
    EXPECT_NE(std::string::npos, service.Status(0).find("\"name\":\"stage\""));
}

TEST_F(DriverServiceTest, EndsWhenWhatSoundsIsReleased) {
    Patch(0, 1);
    Start();
    const auto player = backend.NewProgram();
    const auto listener = backend.NewProgram();
    ASSERT_TRUE(player->WriteTo("vexil3:Port 11"));
    ASSERT_TRUE(listener->ReadFrom("vexil3:Port 12"));
    player->Write(kNoteOn);
    Turn();
    ASSERT_EQ(kNoteOn, listener->Read());
    EXPECT_FALSE(service.MayStop());
    service.BeginStop();
    EXPECT_FALSE(service.MayStop());
    EXPECT_GE(service.Timeout(), 0);
    Turn();
    EXPECT_TRUE(service.MayStop());
    EXPECT_EQ(kNoteOff, listener->Read());
    service.Stop();
    EXPECT_EQ(1, backend.stops);
}

TEST_F(DriverServiceTest, WhatIsPlayedWhileItEndsIsHeardByNobody) {
    Patch(0, 1);
    Start();
    const auto player = backend.NewProgram();
    const auto listener = backend.NewProgram();
    ASSERT_TRUE(player->WriteTo("vexil3:Port 11"));
    ASSERT_TRUE(listener->ReadFrom("vexil3:Port 12"));
    service.BeginStop();
    Turn();
    ASSERT_TRUE(service.MayStop());
    service.ComputerChanged();
    player->Write(kNoteOn);
    Turn();
    EXPECT_THAT(listener->Read(), IsEmpty());
}

TEST_F(DriverServiceTest, EndsAfterAMomentWhereTheMidiSystemHangs) {
    Start();
    service.BeginStop();
    now += DriverService::kLongestLastRelease - 1ms;
    EXPECT_FALSE(service.MayStop());
    now += 1ms;
    EXPECT_TRUE(service.MayStop());
}

TEST_F(DriverServiceTest, TheNumberOfTheStatusTellsWhoeverWatchesOfChangesAndOfMusic) {
    Patch(0, 1);
    Start();
    const auto player = backend.NewProgram();
    ASSERT_TRUE(player->WriteTo("vexil3:Port 11"));
    service.StatusWatched(true);
    const auto changes = [&](const std::function<void()>& act) {
        now += 1s;
        service.Settle();  // what happened before
        const std::uint32_t before = service.StatusNumber();
        act();
        now += 1s;
        service.Settle();
        return service.StatusNumber() != before;
    };
    EXPECT_FALSE(changes([] {}));
    EXPECT_EQ(service.Timeout(), -1);
    EXPECT_TRUE(changes([&] { service.PanelAttached(1); }));
    const auto isReadable = [&] {
        pollfd state{service.TrafficDescriptor(), POLLIN, 0};
        return poll(&state, 1, 0) > 0;
    };
    EXPECT_FALSE(isReadable());
    player->Write(kNoteOn);
    Turn();
    EXPECT_TRUE(isReadable());
    EXPECT_TRUE(changes([&] { service.ServeTraffic(); }));
    EXPECT_FALSE(isReadable());
    service.StatusWatched(false);
    EXPECT_EQ(service.Timeout(), -1);
}

}  // namespace
}  // namespace vexil
