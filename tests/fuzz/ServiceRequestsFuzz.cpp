// Requests as the service takes them: unpacked, their payloads decoded, and carried out by the driver behind
// the channel. The input is packets, each behind its length in two bytes, lowest first. Beside the driver
// goes a model of the test outputs that are open, and what is decoded is built again.
#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <nlohmann/json.hpp>
#include <thread>
#include <utility>
#include <vector>

#include "config/PreferenceDomains.h"
#include "driver/ControlChannel.h"
#include "driver/DriverOptions.h"
#include "driver/LittleEndian.h"
#include "driver/MidiPacketList.h"
#include "service/SteadyEngineClock.h"
#include "service/backends/none/NoneBackend.h"
#include "service/control/DriverService.h"
#include "service/control/OptionPayloads.h"
#include "service/engine/TimedDriver.h"
#include "tests/fuzz/FuzzCheck.h"

namespace {

using namespace vexil;
using test::Check;
using Bytes = std::vector<std::uint8_t>;
using Payload = std::span<const std::uint8_t>;

// A stored configuration: eight inputs, and the log's lines switched off.
class Stored : public PreferenceDomains {
  public:
    PropertyRef CopyValue(const std::string& key, const std::string&, UserScope, HostScope) override {
        return key == "MiscOptions" ? options : key == "InputPorts" ? inputs : nullptr;
    }
    void SetValue(const std::string&, PropertyRef, const std::string&, UserScope, HostScope) override {
        Check(false, "the configuration is never written");
    }
    bool Synchronize(const std::string&, UserScope, HostScope) override { return true; }

  private:
    const PropertyRef options = MakePropertyNumber(kDefaultMiscOptions & ~kEnableLogging);
    const PropertyRef inputs = MakePropertyData("\xFF\0\0\0\0\0\0\0", 8);
};

// A driver without a MIDI system.
class Driver {
  public:
    Driver() {
        service.Start();
        service.StartBackend();
    }

    Stored preferences;
    Engine engine{std::size_t{1} << 20};
    const SteadyEngineClock clock;
    TimedDriver driver{engine, clock};
    NoneBackend backend;
    DriverService service{{preferences, engine, backend, driver,
                           [] {
                               HostRecord computer;
                               computer.name = "studio";
                               return std::vector{computer};
                           },
                           DriverService::Clock::now}};
};

// What the options should answer.
class Model {
  public:
    int Set(std::uint32_t option, Payload payload) {
        if (option < kMaxPorts) {
            return Play(option, payload);
        }
        switch (option) {
            case kOptionReloadConfiguration:
            case kOptionWirelessOn:
            case kOptionWirelessOff:
            case kOptionBrowseHosts:
                return payload.empty() ? 0 : EINVAL;
            case kOptionSendGranularity:
                return payload.size() == 4 ? 0 : EINVAL;
            case kOptionOpenTestOutput:
                return Open(payload);
            case kOptionActivateTestOutput:
            case kOptionDeactivateTestOutput:
                return Change(payload, option == kOptionActivateTestOutput ? kActive : kClosed);
            default:
                return ENOPROTOOPT;
        }
    }

  private:
    enum State : std::uint8_t { kClosed, kOpen, kActive };

    int Open(Payload payload) {
        const auto test = ReadTestOutputPayload(payload);
        if (!test) {
            return EINVAL;
        }
        states[static_cast<std::size_t>(test->port)] = kOpen;
        return 0;
    }
    int Change(Payload payload, State state) {
        if (payload.size() != 4) {
            return EINVAL;
        }
        const std::uint32_t port = Uint32At(payload.data());
        if (port >= kMaxPorts || states[port] == kClosed) {
            return ENXIO;
        }
        states[port] = state;
        return 0;
    }
    int Play(std::uint32_t port, Payload payload) {
        const auto data = ReadPacketListPayload(payload);
        if (!data) {
            return EINVAL;
        }
        return states[port] != kActive ? ENXIO : data->size() > kLongestTestBytes ? EMSGSIZE : 0;
    }

    std::array<State, kMaxPorts> states{};
};

void CheckTestOutput(Payload payload) {
    const auto test = ReadTestOutputPayload(payload);
    if (!test) {
        return;
    }
    const PortHosts hosts{test->record.sourceComputer.c_str(), test->record.targetComputer.c_str()};
    Bytes built(TestOutputRecordLength(hosts));
    PutTestOutputRecord(built.data(), test->port, test->record.entry, hosts);
    Check(built.size() == payload.size(), "a record has the length of the one that is built of it");
    built.back() = payload.back();  // which means nothing
    Check(std::equal(built.begin(), built.end(), payload.begin()), "a record is built again as it was");
}

void CheckPacketList(Payload payload) {
    const auto data = ReadPacketListPayload(payload);
    if (!data) {
        return;
    }
    Check(MidiPacketListLength(payload.data()) == payload.size(), "a packet list ends where it says");
    const std::size_t headers =
        kPacketListHeaderSize + kPacketHeaderSize * std::size_t{Uint32At(payload.data())};
    Check(data->size() + headers == payload.size(), "every byte of a packet list is a header's or data");
}

// What takes long and is the same every time is carried out once for each input.
struct Done {
    bool reload = false;
    bool status = false;
};

void CarryOut(Driver& driver, Model& model, Done& done, const ControlRequest& request) {
    const bool isReload = request.kind == kControlReload ||
                          (request.kind == kControlSetOption && request.number == kOptionReloadConfiguration);
    if ((isReload && std::exchange(done.reload, true)) ||
        (request.kind == kControlStatus && std::exchange(done.status, true))) {
        return;
    }
    Bytes data;
    switch (request.kind) {
        case kControlSetOption: {
            CheckTestOutput(request.payload);
            CheckPacketList(request.payload);
            const int expected = model.Set(request.number, request.payload);
            Check(driver.service.SetOption(request.number, request.payload) == expected,
                  "an option answers as the model does");
            break;
        }
        case kControlGetOption: {
            const bool isKnown = request.number == kOptionReadHostInfos;
            Check(driver.service.GetOption(request.number, data) == (isKnown ? 0 : ENOPROTOOPT),
                  "the hosts are all that is read");
            Check(data.size() <= kHostInfosSize, "the hosts are within their limit");
            break;
        }
        case kControlStatus: {
            const std::string status = driver.service.Status(0);
            Check(status.size() <= kMaxControlData, "the status is within its limit");
            Check(nlohmann::json::accept(status), "the status is JSON");
            break;
        }
        case kControlReload:
            Check(driver.service.Reload() == 0, "a reload succeeds");
            break;
        case kControlPanic:
            Check(nlohmann::json::parse(driver.service.Panic()).contains("done"), "a panic is answered");
            break;
        case kControlNetwork:
            if (const auto words = UnpackControlWords(request.payload)) {
                Check(nlohmann::json::parse(driver.service.Network(*words)).contains("problem"),
                      "there is no network here");
            }
            break;
        default:
            break;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    static Driver driver;
    Model model;
    Done done;
    driver.service.PanelAttached(1);
    for (Payload rest(bytes, size); rest.size() >= 2;) {
        const std::size_t length = std::min<std::size_t>(Uint16At(rest.data()), rest.size() - 2);
        const Bytes packet(rest.begin() + 2, rest.begin() + 2 + static_cast<std::ptrdiff_t>(length));
        rest = rest.subspan(2 + length);
        if (const auto request = UnpackControlRequest(packet)) {
            CarryOut(driver, model, done, *request);
        }
    }
    driver.service.PanelDetached();
    driver.service.Settle();
    // What is held back leaves in its time, and what ends behind it as well.
    for (int waits = 0; waits < 1000 && driver.engine.Done() != driver.engine.Posted(); ++waits) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        driver.service.Settle();
    }
    Check(driver.engine.Done() == driver.engine.Posted(), "nothing is left to do");
    // Requests come here so fast that a loop is suspected, which is looked at again in a second.
    bool isSuspected = false;
    for (int port = 0; port < kMaxPorts; ++port) {
        isSuspected |= driver.engine.SuspectedRate(kTestSourceBase + port) != 0;
    }
    Check(isSuspected || driver.service.Timeout() == -1, "nothing is waited for");
    return 0;
}
