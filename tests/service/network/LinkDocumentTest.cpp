// docs/link-protocol.md against the codec: every example is what the codec writes, byte for byte, and reads.
#include <gmock/gmock.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "service/network/LinkCodec.h"
#include "service/network/PlainDatagram.h"

namespace vexil {
namespace {

using Bytes = std::vector<std::uint8_t>;

// The code blocks of the document by their name; "*" repeats the byte before it up to the size of a query.
std::map<std::string, Bytes> Examples() {
    std::ifstream file(VEXIL_DOCS "/link-protocol.md");
    std::map<std::string, Bytes> examples;
    std::string line;
    std::string name;
    while (std::getline(file, line)) {
        if (line.rfind("```", 0) == 0) {
            name = line.substr(3);
            continue;
        }
        if (name.empty()) {
            continue;
        }
        std::istringstream words(line.substr(0, line.find('#')));
        Bytes& bytes = examples[name];
        for (std::string word; words >> word;) {
            if (word == "*") {
                bytes.resize(kQuerySize, bytes.back());
            } else {
                bytes.push_back(static_cast<std::uint8_t>(std::stoul(word, nullptr, 16)));
            }
        }
    }
    return examples;
}

Bytes Example(const std::string& name) {
    const auto examples = Examples();
    const auto found = examples.find(name);
    return found == examples.end() ? Bytes{} : found->second;
}

const Nonce kNonce = {0x00, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77,
                      0x88, 0x99, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF};
constexpr std::uint64_t kToken = 0x0102030405060708;

ComputerAnswer Studio() {
    ComputerAnswer studio;
    for (std::size_t byte = 0; byte < studio.id.size(); ++byte) {
        studio.id[byte] = static_cast<std::uint8_t>(0xA0 + byte);
    }
    studio.port = 11188;
    studio.hardwareAddress = {0x02, 0x00, 0x5E, 0x10, 0x00, 0x01};
    studio.secretNeeded = true;
    studio.name = "studio";
    return studio;
}

// What a writer makes of a header and the frames that `add` adds.
template <class Add>
Bytes Body(const BodyHeader& header, Add add) {
    Bytes body(kLongestBody);
    BodyWriter writer(body, header);
    EXPECT_TRUE(add(writer));
    body.resize(writer.Size());
    return body;
}

LinkRecord RecordOf(RecordType type, std::uint16_t number, ByteView bytes = {}) {
    LinkRecord record;
    record.type = type;
    record.source = 69;
    record.input = 8;
    record.number = number;
    record.bytes = bytes;
    return record;
}

TEST(LinkDocument, EveryExampleIsHeldAgainstTheCodec) {
    std::vector<std::string> names;
    for (const auto& [name, bytes] : Examples()) {
        names.push_back(name);
    }
    EXPECT_THAT(names, testing::UnorderedElementsAre("query", "answer", "announcement", "hello",
                                                     "hello-answer", "records", "way-state", "name", "gaps",
                                                     "probe", "probe-answer", "bye", "bye-unheard"));
}

TEST(LinkDocument, Query) {
    Bytes query(kLongestDatagram);
    query.resize(WriteQuery(kNonce, query));
    EXPECT_EQ(query, Example("query"));
    const auto read = ReadPlainDatagram(query);
    ASSERT_TRUE(read);
    EXPECT_EQ(read->kind, PlainKind::Query);
    EXPECT_EQ(read->nonce, kNonce);
}

TEST(LinkDocument, Answer) {
    Bytes answer(kLongestDatagram);
    answer.resize(WriteAnswer(kNonce, Studio(), answer));
    EXPECT_EQ(answer, Example("answer"));
    const auto read = ReadPlainDatagram(answer);
    ASSERT_TRUE(read && read->computer);
    EXPECT_EQ(read->nonce, kNonce);
    EXPECT_EQ(read->computer->id, Studio().id);
    EXPECT_EQ(read->computer->port, 11188);
    EXPECT_EQ(read->computer->hardwareAddress, Studio().hardwareAddress);
    EXPECT_EQ(read->computer->name, "studio");
    EXPECT_TRUE(read->computer->secretNeeded);
    EXPECT_FALSE(read->computer->goingAway);
}

TEST(LinkDocument, Announcement) {
    ComputerAnswer leaving = Studio();
    leaving.goingAway = true;
    Bytes announcement(kLongestDatagram);
    announcement.resize(WriteAnnouncement(leaving, announcement));
    EXPECT_EQ(announcement, Example("announcement"));
    const auto read = ReadPlainDatagram(announcement);
    ASSERT_TRUE(read && read->computer);
    EXPECT_EQ(read->kind, PlainKind::Announcement);
    EXPECT_TRUE(read->computer->goingAway);
}

TEST(LinkDocument, Hello) {
    Hello hello;
    hello.association = kToken;
    hello.name = "laptop1";
    const Bytes body =
        Body({0, 1, 0, kHeldTooLong}, [&](BodyWriter& writer) { return writer.AddHello(hello); });
    EXPECT_EQ(body, Example("hello"));
}

TEST(LinkDocument, HelloAnswer) {
    Hello hello;
    hello.association = kToken;
    hello.hasYours = true;
    hello.proof.emplace().fill(0x50);
    hello.name = "studio";
    const Bytes body = Body({0, 12345, 1, 10}, [&](BodyWriter& writer) { return writer.AddHello(hello); });
    EXPECT_EQ(body, Example("hello-answer"));
    auto reader = BodyReader::Open(body);
    ASSERT_TRUE(reader);
    EXPECT_EQ(reader->Header().time, 12345U);
    EXPECT_EQ(reader->Header().echo, 1U);
    EXPECT_EQ(reader->Header().held, 10U);
    const auto read = ReadHello(reader->NextFrame()->content);
    ASSERT_TRUE(read);
    EXPECT_TRUE(read->hasYours);
    EXPECT_FALSE(read->renewal);
    EXPECT_EQ(read->association, kToken);
    EXPECT_EQ(read->proof, hello.proof);
    EXPECT_EQ(read->name, "studio");
}

TEST(LinkDocument, Records) {
    const Bytes note = {0x90, 0x3C, 0x64};
    const Bytes exclusive = {0xF0, 0x7E, 0x7F, 0x06, 0x01, 0xF7};
    LinkRecord message = RecordOf(RecordType::Message, 1, note);
    message.age = 2;
    const Bytes body = Body({3, 1'000'000, 12345, 1000}, [&](BodyWriter& writer) {
        return writer.AddRecord(0xFFFFFFFF, RecordOf(RecordType::OpenWay, 0)) &&
               writer.AddRecord(0, message) && writer.AddRecord(1, RecordOf(RecordType::Piece, 2, exclusive));
    });
    EXPECT_EQ(body, Example("records"));

    auto reader = BodyReader::Open(body);
    ASSERT_TRUE(reader);
    const auto frame = reader->NextFrame();
    ASSERT_TRUE(frame);
    RecordReader records(frame->content);
    const auto open = records.Next();
    ASSERT_TRUE(open);
    EXPECT_EQ(open->type, RecordType::OpenWay);
    EXPECT_EQ(records.Number(), 0xFFFFFFFF);
    const auto second = records.Next();
    ASSERT_TRUE(second);
    EXPECT_EQ(records.Number(), 0U);
    EXPECT_EQ(second->source, 69);
    EXPECT_EQ(second->input, 8);
    EXPECT_EQ(second->number, 1);
    EXPECT_EQ(second->age, 2);
    EXPECT_THAT(second->bytes, testing::ElementsAreArray(note));
    const auto piece = records.Next();
    ASSERT_TRUE(piece);
    EXPECT_EQ(piece->type, RecordType::Piece);
    EXPECT_TRUE(piece->first && piece->last);
    EXPECT_THAT(piece->bytes, testing::ElementsAreArray(exclusive));
    EXPECT_FALSE(records.Next());
    EXPECT_FALSE(reader->NextFrame());
}

TEST(LinkDocument, WayState) {
    const auto content = PackWayState({WayProblem::None, 65536});
    const Bytes body = Body({2, 1'000'272, 1'000'000, 16}, [&](BodyWriter& writer) {
        return writer.AddRecord(3, RecordOf(RecordType::WayState, 1, content));
    });
    EXPECT_EQ(body, Example("way-state"));
    EXPECT_EQ(ReadWayState(content)->pieceLimit, 65536U);
}

TEST(LinkDocument, NameAndEndOfWay) {
    const std::string name = "a\u00e4";
    LinkRecord newName =
        RecordOf(RecordType::Name, 1, {reinterpret_cast<const std::uint8_t*>(name.data()), 3});
    newName.source = 0;
    newName.input = 0;
    const Bytes body = Body({2, 1'000'288, 1'000'000, 32}, [&](BodyWriter& writer) {
        return writer.AddRecord(4, newName) && writer.AddRecord(5, RecordOf(RecordType::EndOfWay, 3));
    });
    EXPECT_EQ(body, Example("name"));
    EXPECT_TRUE(BodyReader::Open(body));
}

TEST(LinkDocument, Gaps) {
    vexil::Gaps gaps;
    gaps.highest = 10;
    gaps.holes[0] = {5, 7};
    gaps.holes[1] = {9, 10};
    gaps.count = 2;
    const Bytes body =
        Body({5, 1'000'304, 1'000'000, 255}, [&](BodyWriter& writer) { return writer.AddGaps(gaps); });
    EXPECT_EQ(body, Example("gaps"));
    auto reader = BodyReader::Open(body);
    ASSERT_TRUE(reader);
    const auto read = ReadGaps(reader->NextFrame()->content);
    ASSERT_TRUE(read);
    EXPECT_EQ(read->highest, 10U);
    ASSERT_EQ(read->count, 2U);
    EXPECT_EQ(read->holes[1], (Hole{9, 10}));
}

TEST(LinkDocument, ProbeAndItsAnswer) {
    EXPECT_EQ(
        Body({5, 1'000'320, 1'000'000, 511}, [](BodyWriter& writer) { return writer.AddProbe(kToken); }),
        Example("probe"));
    const Bytes answer =
        Body({5, 1'000'336, 1'000'320, 0}, [](BodyWriter& writer) { return writer.AddProbeAnswer(kToken); });
    EXPECT_EQ(answer, Example("probe-answer"));
    auto reader = BodyReader::Open(answer);
    ASSERT_TRUE(reader);
    EXPECT_EQ(ReadProbe(reader->NextFrame()->content), kToken);
}

TEST(LinkDocument, Bye) {
    const Bytes body = Body({5, 1'000'352, 1'000'320, 16}, [](BodyWriter& writer) {
        return writer.AddBye({ByeReason::Refused, Refusal::SecretWrong});
    });
    EXPECT_EQ(body, Example("bye"));
    auto reader = BodyReader::Open(body);
    ASSERT_TRUE(reader);
    const auto read = ReadBye(reader->NextFrame()->content);
    ASSERT_TRUE(read);
    EXPECT_EQ(read->reason, ByeReason::Refused);
    EXPECT_EQ(read->refusal, Refusal::SecretWrong);
}

TEST(LinkDocument, ByeOfASideThatHearsNothing) {
    const Bytes body = Body({5, 6'408'208, 1'000'320, 2'000'000}, [](BodyWriter& writer) {
        return writer.AddBye({ByeReason::Unheard, Refusal::None});
    });
    EXPECT_EQ(body, Example("bye-unheard"));
    auto reader = BodyReader::Open(body);
    ASSERT_TRUE(reader);
    const auto read = ReadBye(reader->NextFrame()->content);
    ASSERT_TRUE(read);
    EXPECT_EQ(read->reason, ByeReason::Unheard);
    EXPECT_EQ(read->refusal, Refusal::None);
}

}  // namespace
}  // namespace vexil
