// The packets of the control channel, in a buffer of exactly their length: what is taken for a packet is
// written back as the same bytes.
#include <algorithm>
#include <vector>

#include "driver/ControlChannel.h"
#include "driver/MonitorPackets.h"
#include "tests/fuzz/FuzzCheck.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    using namespace vexil;
    using namespace vexil::test;
    const std::vector<std::uint8_t> packet(bytes, bytes + size);
    if (const auto reply = UnpackControlReply(packet)) {
        Check(reply->data.size() <= kMaxControlData, "the data are within their limit");
        Check(reply->error == 0 || reply->data.empty(), "an error has no data");
        Check(PackControlReply(*reply) == packet, "a reply is written back as it was");
        if (const auto monitored = UnpackMonitoredPieces(reply->data)) {
            MonitorPacket data(monitored->leftOut);
            for (const MonitoredPiece& piece : monitored->pieces) {
                Check(data.Add(piece), "the pieces of a packet fit into one");
            }
            Check(std::equal(data.Data().begin(), data.Data().end(), reply->data.begin(), reply->data.end()),
                  "pieces are written back as they were");
        }
    }
    if (const auto request = UnpackControlRequest(packet)) {
        Check(request->payload.size() <= kMaxControlData, "the payload is within its limit");
        const bool hasPayload = request->kind == kControlSetOption || request->kind == kControlNetwork ||
                                request->kind == kControlMonitor;
        Check(!hasPayload || request->payload.size() == request->length, "what has a payload has all of it");
        Check(PackControlRequest(*request) == packet, "a request is written back as it was");
        if (const auto words = UnpackControlWords(request->payload)) {
            Check(!words->empty(), "there is a command");
            Check(request->payload.size() <= kMaxControlWordsSize, "the words are within their limit");
            const auto packed = PackControlWords(*words);
            Check(packed && std::equal(packed->begin(), packed->end(), request->payload.begin(),
                                       request->payload.end()),
                  "words are written back as they were");
        }
    }
    return 0;
}
