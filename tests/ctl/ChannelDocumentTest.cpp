// docs/control-channel.md against the codec: its conversation is what the codec packs, byte for byte.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "driver/ControlChannel.h"
#include "driver/DriverOptions.h"
#include "driver/MidiPacketList.h"

namespace vexil {
namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr const char* kDocument = VEXIL_DOCS "/control-channel.md";

struct Line {
    std::string who;  // "A>" or "B<"
    std::vector<std::string> tokens;
};

std::vector<Line> Conversation() {
    std::ifstream document(kDocument);
    std::vector<Line> lines;
    bool inside = false;
    for (std::string text; std::getline(document, text);) {
        if (text.starts_with("```")) {
            inside = text == "```channel";
            continue;
        }
        std::istringstream words(text.substr(0, text.find('#')));
        Line line;
        if (!inside || !(words >> line.who)) {
            continue;
        }
        for (std::string token; words >> token;) {
            line.tokens.push_back(token);
        }
        lines.push_back(line);
    }
    return lines;
}

Bytes BytesOf(const Line& line) {
    Bytes bytes;
    for (const std::string& token : line.tokens) {
        bytes.push_back(static_cast<std::uint8_t>(std::stoi(token, nullptr, 16)));
    }
    return bytes;
}

Bytes Request(std::uint32_t sequence, std::uint32_t kind, std::uint32_t number, const Bytes& payload = {},
              std::uint32_t length = 0) {
    const auto size = static_cast<std::uint32_t>(payload.size());
    return PackControlRequest({sequence, kind, number, payload.empty() ? length : size, payload});
}

Bytes Word(std::uint32_t value) {
    const auto bytes = MakeUint32(value);
    return {bytes.begin(), bytes.end()};
}

Bytes TestRecord() {
    const PortHosts hosts{"b", "alpha"};
    Bytes record(TestOutputRecordLength(hosts));
    PutTestOutputRecord(record.data(), 9,
                        {kSourceComputerUnused | kSourcePortUnused | kSendImmediately, 0, 3, 17}, hosts);
    return record;
}

Bytes NoteOn() {
    Bytes list(kPacketListHeaderSize + kPacketHeaderSize + 3);
    const Bytes note = {0x90, 60, 100};
    MidiPacketListAdd(list.data(), list.size(), MidiPacketListInit(list.data(), list.size()), 0, note.size(),
                      note.data());
    return list;
}

TEST(ChannelDocument, ItsRequestsAreWhatTheCodecPacks) {
    const std::map<std::string, std::vector<Bytes>> expected = {
        {"A>",
         {Request(1, kControlAttach, kControlUnit),
          Request(2, kControlSetOption, kOptionSendGranularity, Word(25)),
          Request(3, kControlSetOption, kOptionOpenTestOutput, TestRecord()),
          Request(4, kControlSetOption, kOptionActivateTestOutput, Word(9)),
          Request(5, kControlSetOption, 9, NoteOn()),
          Request(6, kControlSetOption, kOptionDeactivateTestOutput, Word(9)),
          Request(7, kControlSetOption, kOptionDeactivateTestOutput, Word(9)),
          Request(8, kControlSetOption, kOptionBrowseHosts),
          Request(9, kControlGetOption, kOptionReadHostInfos, {}, kHostInfosSize),
          Request(10, kControlSetOption, 300),
          Request(11, kControlSetOption, kOptionSendGranularity, {25, 0, 0})}},
        {"B>",
         {Request(1, kControlAttach, kControlUnit), Request(2, kControlSetOption, kOptionReloadConfiguration),
          Request(3, kControlReload, 0), Request(4, kControlStatus, 0, {}, 16),
          Request(5, kControlStatus, 0, {}, kMaxControlData),
          Request(6, kControlNetwork, 0, {'l', 'i', 's', 't', 0}),
          Request(7, kControlNetwork, 0, {'l', 'i', 's', 't'}), Request(8, kControlWatch, 0),
          Request(9, kControlPanic, 0), Request(10, kControlMonitor, 0, {0, 2, 0, 0, 0, 0, 0, 0})}},
    };
    std::map<std::string, std::vector<Bytes>> found;
    for (const Line& line : Conversation()) {
        if (line.who.ends_with('>')) {
            found[line.who].push_back(BytesOf(line));
            EXPECT_TRUE(UnpackControlRequest(found[line.who].back()));
        }
    }
    for (const auto& [who, packets] : expected) {
        ASSERT_EQ(found[who].size(), packets.size());
        for (std::size_t i = 0; i < packets.size(); ++i) {
            EXPECT_EQ(found[who][i], packets[i]) << who << " " << i + 1;
        }
    }
    EXPECT_EQ(found.size(), expected.size());
}

TEST(ChannelDocument, ItsRepliesWithoutDataAreWhatTheCodecPacks) {
    const std::map<std::string, std::vector<std::uint32_t>> errors = {
        {"A<", {0, 0, 0, 0, 0, 0, ENXIO, 0, 0, ENOPROTOOPT, EINVAL}},
        {"B<", {EBUSY, ENOTCONN, 0, EMSGSIZE, 0, 0, EINVAL, 0, 0, 0}},
    };
    std::map<std::string, std::uint32_t> sequences;
    int checked = 0;
    for (const Line& line : Conversation()) {
        if (line.who.ends_with('>')) {
            continue;
        }
        const std::uint32_t sequence = ++sequences[line.who];
        ASSERT_LE(sequence, errors.at(line.who).size());
        if (line.tokens.size() != kControlReplyHeaderSize) {
            continue;
        }
        EXPECT_EQ(BytesOf(line), PackControlReply({sequence, errors.at(line.who)[sequence - 1], {}}));
        ++checked;
    }
    EXPECT_EQ(checked, 16);
}

// The values of the table of errors.
TEST(ChannelDocument, ItsErrorsHaveTheirValues) {
    const std::map<std::string, int> values = {
        {"ENXIO", ENXIO},     {"EBUSY", EBUSY},     {"EINVAL", EINVAL},     {"EMSGSIZE", EMSGSIZE},
        {"ENOBUFS", ENOBUFS}, {"EISCONN", EISCONN}, {"ENOTCONN", ENOTCONN}, {"ENOPROTOOPT", ENOPROTOOPT},
    };
    std::ifstream document(kDocument);
    std::map<std::string, int> found;
    for (std::string text; std::getline(document, text);) {
        std::istringstream cells(text);
        std::string bar;
        std::string name;
        int value = 0;
        if (cells >> bar >> name >> bar >> value && name[0] == 'E') {
            found[name] = value;
        }
    }
    EXPECT_EQ(found, values);
}

}  // namespace
}  // namespace vexil
