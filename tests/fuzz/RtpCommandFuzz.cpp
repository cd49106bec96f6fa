// A session command of RTP-MIDI, in a buffer of exactly its length: written again it reads the same.
#include <array>
#include <vector>

#include "service/network/rtp/RtpCodec.h"
#include "tests/fuzz/FuzzCheck.h"

namespace {

using namespace vexil;
using vexil::test::Check;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    const std::vector<std::uint8_t> datagram(bytes, bytes + size);
    const auto read = ReadSessionCommand(datagram);
    if (!read) {
        return 0;
    }
    Check(IsSessionCommand(datagram), "it is a command");
    Check(read->name.find('\0') == std::string_view::npos, "a name has no zero");
    std::array<std::uint8_t, kLongestRtpDatagram> again{};
    const std::size_t written = WriteSessionCommand(*read, again);
    Check(written >= 12 && written <= 16 + kLongestSessionName + 1, "it can be written");
    const auto twice = ReadSessionCommand(ByteView(again).first(written));
    Check(twice && twice->kind == read->kind && twice->ssrc == read->ssrc &&
              twice->version == read->version && twice->token == read->token && twice->count == read->count &&
              twice->times == read->times && twice->feedback == read->feedback &&
              twice->bitrate == read->bitrate,
          "written again it reads the same");
    Check(read->name.substr(0, twice->name.size()) == twice->name, "a name is cut at most");
    return 0;
}
