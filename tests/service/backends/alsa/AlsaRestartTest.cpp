// What a service that starts again owes to programs on the ALSA sequencer, and two services beside each
// other.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <thread>

#include "service/backends/ClientName.h"
#include "service/backends/alsa/AlsaBackend.h"
#include "tests/service/backends/alsa/AlsaProgram.h"
#include "tests/service/backends/alsa/AlsaTestProcess.h"

namespace vexil {
namespace {

using Bytes = MidiProgram::Bytes;
using std::chrono::milliseconds;
using std::chrono::steady_clock;
using ::testing::HasSubstr;

// A service with one port.
class Service {
  public:
    explicit Service(const std::string& folder) : state(folder), backend(state) {
        backend.Start(engine);
        backend.Publish({{0, true, "Piano", false}, {0, false, "Piano", false}});
    }
    void EndCleanly() {
        backend.Stop();
        state.EndCleanly();
    }
    void Step() {
        pollfd event{backend.EventDescriptor(), POLLIN, 0};
        if (::poll(&event, 1, 1) > 0 || backend.EventTimeout() == 0) {
            backend.HandleEvents();
        }
    }
    std::string Address(bool output) const { return backend.Published()[output ? 0 : 1].address; }
    int Connections(bool output) const { return backend.Published()[output ? 0 : 1].connections; }

  private:
    const RuntimeState state;
    Engine engine;
    AlsaBackend backend;
};

class AlsaRestartTest : public ::testing::Test {
  protected:
    AlsaRestartTest() {
        std::string pattern = ::testing::TempDir() + "vexil-restart-XXXXXX";
        folder = ::mkdtemp(pattern.data());
    }
    ~AlsaRestartTest() override { std::filesystem::remove_all(folder); }
    void SetUp() override {
        if (::access("/dev/snd/seq", R_OK | W_OK) != 0) {
            GTEST_SKIP() << "no ALSA sequencer on this machine";
        }
        service.emplace(folder);
    }
    bool Eventually(const std::function<bool()>& condition) {
        for (const auto end = steady_clock::now() + std::chrono::seconds(10); !condition();) {
            if (steady_clock::now() > end) {
                return false;
            }
            service->Step();
        }
        return true;
    }
    void PassTime(milliseconds time) {
        for (const auto end = steady_clock::now() + time; steady_clock::now() < end;) {
            service->Step();
        }
    }
    bool HasConnections(int output, int input) {
        return Eventually(
            [&] { return service->Connections(true) == output && service->Connections(false) == input; });
    }
    void ConnectBoth(AlsaProgram& program) {
        ASSERT_TRUE(program.WriteTo(service->Address(true)));
        ASSERT_TRUE(program.ReadFrom(service->Address(false)));
        // They are remembered when they have been seen.
        ASSERT_TRUE(Eventually([&] {
            return std::filesystem::exists(folder + "/connections-alsa") &&
                   std::filesystem::file_size(folder + "/connections-alsa") > 0;
        }));
        PassTime(milliseconds(50));
    }
    void Restart(bool cleanly) {
        if (cleanly) {
            service->EndCleanly();
        }
        service.reset();
        service.emplace(folder);
    }

    std::string folder;
    std::optional<Service> service;
};

TEST_F(AlsaRestartTest, ConnectionsAreMadeAgain) {
    AlsaProgram keys("keys");
    ConnectBoth(keys);
    Restart(true);
    EXPECT_TRUE(HasConnections(1, 1));
}

TEST_F(AlsaRestartTest, ConnectionsAreMadeAgainWhenTheProgramComesLater) {
    auto keys = std::make_unique<AlsaProgram>("keys");
    ConnectBoth(*keys);
    keys.reset();
    Restart(true);
    EXPECT_TRUE(HasConnections(0, 0));
    keys = std::make_unique<AlsaProgram>("keys");
    EXPECT_TRUE(HasConnections(1, 1));
}

TEST_F(AlsaRestartTest, WhatSomebodyHasDisconnectedStaysSo) {
    AlsaProgram keys("keys");
    ConnectBoth(keys);
    keys.Disconnect();
    PassTime(milliseconds(900));  // as long as it takes to tell this from the end of the program
    Restart(true);
    PassTime(milliseconds(300));
    EXPECT_TRUE(HasConnections(0, 0));
}

TEST_F(AlsaRestartTest, OfProgramsWithOneNameTheOneThatWasConnectedIsConnectedAgain) {
    AlsaProgram first("keys");
    AlsaProgram second("keys");
    ConnectBoth(second);
    Restart(true);
    ASSERT_TRUE(HasConnections(1, 1));
    EXPECT_THAT(OutputOf("aconnect -l"),
                ::testing::ContainsRegex("client " + std::to_string(second.Id()) + ": [^c]*Connecting To: "));
}

TEST_F(AlsaRestartTest, FirstReadersAreSilencedAfterAnUncleanEnd) {
    AlsaProgram keys("keys");
    ConnectBoth(keys);
    Restart(false);
    ASSERT_TRUE(HasConnections(1, 1));
    Bytes wanted;
    for (int channel = 0; channel < 16; ++channel) {
        for (const std::uint8_t controller : Bytes{64, 66, 67, 69, 123}) {
            wanted.insert(wanted.end(), {static_cast<std::uint8_t>(0xB0 | channel), controller, 0});
        }
    }
    Bytes heard;
    EXPECT_TRUE(Eventually([&] {
        const Bytes more = keys.Read();
        heard.insert(heard.end(), more.begin(), more.end());
        return heard.size() >= wanted.size();
    }));
    EXPECT_EQ(heard, wanted);
}

TEST_F(AlsaRestartTest, AFirstReaderWithLittleRoomIsSilencedWhole) {
    AlsaProgram keys("keys");
    keys.SetReadPool(14);
    ConnectBoth(keys);
    Restart(false);
    std::size_t heard = 0;
    EXPECT_TRUE(Eventually([&] {
        heard += keys.Read().size();
        return heard >= 3 * 16 * 5;
    })) << heard;
}

TEST_F(AlsaRestartTest, ReadersHearNothingAfterACleanEnd) {
    AlsaProgram keys("keys");
    ConnectBoth(keys);
    Restart(true);
    ASSERT_TRUE(HasConnections(1, 1));
    PassTime(milliseconds(700));
    EXPECT_EQ(keys.Read(), Bytes());
}

TEST_F(AlsaRestartTest, ASecondServiceCarriesItsUsersName) {
    const std::string before = OutputOf("aconnect -o");
    EXPECT_THAT(before, HasSubstr("'Vexil III'"));
    const std::string other = folder + "/other";
    std::filesystem::create_directory(other);
    {
        const Service second(other);
        EXPECT_THAT(OutputOf("aconnect -o"), HasSubstr("'Vexil III (" + NameOfUser() + ")'"));
    }
    Restart(true);
    EXPECT_THAT(OutputOf("aconnect -o"), HasSubstr("'Vexil III'"));
}

TEST_F(AlsaRestartTest, ANameSaysItsDirection) {
    EXPECT_TRUE(service->Address(true).ends_with("0 Piano out")) << service->Address(true);
    EXPECT_TRUE(service->Address(false).ends_with("64 Piano in")) << service->Address(false);
}

}  // namespace
}  // namespace vexil
