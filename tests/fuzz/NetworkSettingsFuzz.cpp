// The stored settings of the network, and the key file: what is read is written again to what reads the same.
#include <string>

#include "service/network/NetworkSettings.h"
#include "tests/fuzz/FuzzCheck.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    using namespace vexil;
    using vexil::test::Check;
    const std::string text(reinterpret_cast<const char*>(bytes), size);
    if (const auto settings = ReadNetworkSettings(text)) {
        Check(settings->access.pins.size() <= kMostRememberedKeys, "there are not too many pins");
        Check(ReadNetworkSettings(WriteNetworkSettings(*settings)) == settings,
              "settings read the same again");
    }
    if (const auto file = ReadKeyFile(text)) {
        const auto again = ReadKeyFile(WriteKeyFile(*file));
        Check(again && again->machine == file->machine && again->pem == file->pem,
              "a key file reads the same");
    }
    return 0;
}
