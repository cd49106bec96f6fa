// A text as a target, and datagrams for discovery: the first byte says how long the text is, the rest is cut
// into datagrams by a length byte each. What is found is within its limits.
#include <algorithm>
#include <array>
#include <string>
#include <vector>

#include "service/network/Discovery.h"
#include "service/network/LinkCodec.h"
#include "service/network/NameRules.h"
#include "tests/fuzz/FuzzCheck.h"

namespace {

using namespace vexil;
using vexil::test::Check;

class World : public Discovery::Mediator {
  public:
    World() {
        NetworkInterface wire;
        wire.index = 2;
        wire.name = "eth0";
        wire.broadcasts = true;
        wire.addresses.push_back({NetworkAddress::V4({10, 0, 0, 1}, 0, 2), 24, {}});
        interfaces = {wire};
        ComputerAnswer self;
        self.id.fill(1);
        self.port = kLinkPort;
        self.name = "laptop";
        directory.SetOwn({self.id, "laptop", {}, {}});
        discovery.SetComputer(now, self);
        discovery.SetInterfaces(now, interfaces);
        discovery.Start(now);
        discovery.Browse(now);
    }
    // Always the same, so that the input can hold the answer to a question.
    std::uint64_t Random() override { return 0; }

    void Hear(const std::vector<std::uint8_t>& datagram, std::uint8_t host) {
        ReceivedDatagram told;
        told.size = datagram.size();
        told.from = NetworkAddress::V4({10, 0, 0, host}, kLinkPort, 2);
        now += 30'000;
        discovery.HandleDatagram(now, told, datagram);
        discovery.HandleTimeout(now);
        std::array<std::uint8_t, kLongestDatagram> out{};
        while (const auto transmit = discovery.PollTransmit(out)) {
            Check(transmit->size >= kPlainHeaderSize && transmit->size <= kQuerySize, "a datagram is short");
        }
        while (discovery.PollEvent()) {
        }
        discovery.Browse(now);
    }
    void CheckList() {
        directory.DropUnanswering(now);
        const auto all = directory.All();
        Check(all.size() <= ComputerDirectory::kMostComputers, "there are not too many");
        for (const ComputerEntry* entry : all) {
            Check(entry != nullptr && ComputerDirectory::IsListedName(entry->name), "names can be listed");
            Check(directory.Find(entry->shown) == entry, "each is found by the name it is shown under");
            Check(!local.Contains(entry->shown), "nobody has this computer's name");
            Check(entry->addresses.size() <= ComputerEntry::kMostAddresses, "addresses are few");
        }
        std::size_t bytes = 0;
        for (const ComputerEntry* entry : directory.List(300, 19)) {
            bytes += entry->shown.size() + 19;
        }
        Check(bytes <= 300, "the list fits");
    }
    void CheckTarget(const std::string& text) {
        const NamedTarget target = FindTarget(text, {local, interfaces, directory, kLinkPort});
        Check((target.kind == TargetKind::None) == text.empty(), "an empty text alone is no target");
        Check((target.kind == TargetKind::Resolvable) == !target.hostNames.empty(),
              "names are to be looked up");
        for (const std::string& name : target.hostNames) {
            Check(name.size() <= 253 + 6 && name.find('\0') == std::string::npos, "a name has an end");
            Check(IsHostName(name.substr(0, 253)) && text.find(target.hostNames[0]) == 0,
                  "it may be looked up");
        }
        for (const NetworkAddress& address : target.addresses) {
            Check(address.IsThere() && address.port != 0, "an address is whole");
        }
    }

  private:
    std::uint64_t now = 1'000'000;
    LocalNames local{{"laptop"}};
    AccessRules rules{KeyHash{}};
    ComputerDirectory directory{local, rules};
    Discovery discovery{*this, directory, rules};
    std::vector<NetworkInterface> interfaces;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    std::vector<std::uint8_t> rest(bytes, bytes + size);
    const auto take = [&rest](std::size_t count) {
        count = std::min(count, rest.size());
        const std::vector<std::uint8_t> taken(rest.begin(),
                                              rest.begin() + static_cast<std::ptrdiff_t>(count));
        rest.erase(rest.begin(), rest.begin() + static_cast<std::ptrdiff_t>(count));
        return taken;
    };
    const auto number = [&take] {
        const auto byte = take(1);
        return byte.empty() ? std::uint8_t{0} : byte[0];
    };
    World world;
    const auto text = take(number());
    for (std::uint8_t host = 2; !rest.empty() && host < 60; ++host) {
        // Two bytes, for a query is longer than one byte says.
        const std::size_t length = number() * std::size_t{2};
        world.Hear(take(length), host % 5);
    }
    world.CheckList();
    world.CheckTarget(std::string(text.begin(), text.end()));
    return 0;
}
