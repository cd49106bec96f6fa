// A plain datagram and a body of the link, in a buffer of exactly their length: what is taken is within its
// limits, and written again it reads the same.
#include <array>
#include <vector>

#include "service/network/LinkCodec.h"
#include "service/network/PlainDatagram.h"
#include "tests/fuzz/FuzzCheck.h"

namespace {

using namespace vexil;
using vexil::test::Check;

void TryPlain(ByteView datagram) {
    const auto read = ReadPlainDatagram(datagram);
    if (!read || !read->computer) {
        return;
    }
    Check(IsComputerName(read->computer->name), "the name is fit to be shown");
    std::array<std::uint8_t, kLongestDatagram> again{};
    const std::size_t size = read->kind == PlainKind::Answer
                                 ? WriteAnswer(read->nonce, *read->computer, again)
                                 : WriteAnnouncement(*read->computer, again);
    Check(size >= kPlainHeaderSize && size <= kQuerySize && size <= datagram.size(), "it can be written");
    const auto twice = ReadPlainDatagram(ByteView(again).first(size));
    Check(twice && twice->computer && twice->computer->id == read->computer->id &&
              twice->computer->name == read->computer->name && twice->computer->port == read->computer->port,
          "written again it reads the same");
}

void AddFrame(const Frame& frame, BodyWriter& writer) {
    switch (static_cast<FrameKind>(frame.kind)) {
        case FrameKind::Records: {
            RecordReader records(frame.content);
            while (const auto record = records.Next()) {
                Check(record->source < kLinkSources && record->input < kLinkInputs, "the way is one");
                writer.AddRecord(records.Number(), *record);
            }
            Check(!records.IsMalformed(), "the records of a checked body are sound");
            break;
        }
        case FrameKind::Gaps:
            writer.AddGaps(ReadGaps(frame.content).value());
            break;
        case FrameKind::Bye:
            writer.AddBye(ReadBye(frame.content).value());
            break;
        case FrameKind::Hello:
            writer.AddHello(ReadHello(frame.content).value());
            break;
        case FrameKind::Probe:
            writer.AddProbe(ReadProbe(frame.content).value());
            break;
        case FrameKind::ProbeAnswer:
            writer.AddProbeAnswer(ReadProbe(frame.content).value());
            break;
    }
}

void TryBody(ByteView body) {
    auto reader = BodyReader::Open(body);
    if (!reader) {
        return;
    }
    std::vector<std::uint8_t> again(body.size() + 8);
    BodyWriter writer(again, reader->Header());
    while (const auto frame = reader->NextFrame()) {
        AddFrame(*frame, writer);
    }
    Check(BodyReader::Open(ByteView(again).first(writer.Size())).has_value(), "written again it is sound");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    const std::vector<std::uint8_t> datagram(bytes, bytes + size);
    TryPlain(datagram);
    TryBody(datagram);
    return 0;
}
