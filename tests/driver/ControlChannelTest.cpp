#include "driver/ControlChannel.h"

#include <gtest/gtest.h>

namespace vexil {
namespace {

using Bytes = std::vector<std::uint8_t>;

const Bytes kSetPacket = {7, 0, 0, 0, 2, 0, 0, 0, 0xBF, 0, 0, 0, 4, 0, 0, 0, 0x19, 0, 0, 0};
const Bytes kGetPacket = {8, 0, 0, 0, 3, 0, 0, 0, 0xCA, 0, 0, 0, 0, 0x20, 0, 0};
const Bytes kDataReply = {8, 0, 0, 0, 0, 0, 0, 0, 3, 0, 0, 0, 0x4E, 0x61, 0};

Bytes With(Bytes bytes, std::size_t offset, std::uint8_t value) {
    bytes.at(offset) = value;
    return bytes;
}

Bytes Cut(Bytes bytes, std::size_t size) {
    bytes.resize(size);
    return bytes;
}

TEST(ControlChannel, SetRequestIsItsHeaderAndThePayload) {
    const Bytes payload = {0x19, 0, 0, 0};
    const ControlRequest request{
        .sequence = 7, .kind = kControlSetOption, .number = 191, .length = 4, .payload = payload};
    EXPECT_EQ(kSetPacket, PackControlRequest(request));
}

TEST(ControlChannel, GetRequestIsItsHeaderAlone) {
    EXPECT_EQ(kGetPacket,
              PackControlRequest({.sequence = 8, .kind = kControlGetOption, .number = 202, .length = 8192}));
}

TEST(ControlChannel, AttachRequestCarriesTheUnit) {
    EXPECT_EQ((Bytes{4, 3, 2, 1, 1, 0, 0, 0, 175, 0, 0, 0, 0, 0, 0, 0}),
              PackControlRequest({.sequence = 0x01020304, .kind = kControlAttach, .number = 175}));
}

TEST(ControlChannel, ReplyIsItsHeaderAndTheData) {
    const Bytes data = {0x4E, 0x61, 0};
    EXPECT_EQ(kDataReply, PackControlReply({.sequence = 8, .error = 0, .data = data}));
    EXPECT_EQ((Bytes{9, 0, 0, 0, 16, 0, 0, 0, 0, 0, 0, 0}), PackControlReply({.sequence = 9, .error = 16}));
}

TEST(ControlChannel, SetRequestIsRead) {
    const auto request = UnpackControlRequest(kSetPacket);
    ASSERT_TRUE(request);
    EXPECT_EQ(7U, request->sequence);
    EXPECT_EQ(kControlSetOption, request->kind);
    EXPECT_EQ(191U, request->number);
    EXPECT_EQ(4U, request->length);
    EXPECT_EQ((Bytes{0x19, 0, 0, 0}), Bytes(request->payload.begin(), request->payload.end()));
}

TEST(ControlChannel, GetRequestIsRead) {
    const auto request = UnpackControlRequest(kGetPacket);
    ASSERT_TRUE(request);
    EXPECT_EQ(kControlGetOption, request->kind);
    EXPECT_EQ(8192U, request->length);
    EXPECT_TRUE(request->payload.empty());
}

TEST(ControlChannel, RequestsOfAnotherLengthThanTheySayAreNone) {
    for (std::size_t size = 0; size <= 24; ++size) {
        EXPECT_EQ(size == kSetPacket.size(), UnpackControlRequest(Cut(kSetPacket, size)).has_value()) << size;
    }
    EXPECT_FALSE(UnpackControlRequest(Cut(kGetPacket, 17)));
}

TEST(ControlChannel, RequestsOfAnUnknownKindAreNone) {
    EXPECT_FALSE(UnpackControlRequest(With(kGetPacket, 4, 0)));
    EXPECT_FALSE(UnpackControlRequest(With(kGetPacket, 4, 10)));
    EXPECT_FALSE(UnpackControlRequest(With(kGetPacket, 7, 1)));
}

TEST(ControlChannel, RequestsWithoutDataHaveLengthZero) {
    for (const std::uint32_t kind : {kControlAttach, kControlReload, kControlWatch, kControlPanic}) {
        const auto packet = PackControlRequest({.sequence = 1, .kind = kind, .number = 175});
        const auto request = UnpackControlRequest(packet);
        ASSERT_TRUE(request);
        EXPECT_EQ(kind, request->kind);
        EXPECT_FALSE(UnpackControlRequest(With(packet, 12, 1)));
    }
}

TEST(ControlChannel, StatusRequestsSayWhatTheyTake) {
    const auto packet = PackControlRequest({.sequence = 1, .kind = kControlStatus, .length = 65536});
    const auto request = UnpackControlRequest(packet);
    ASSERT_TRUE(request);
    EXPECT_EQ(kControlStatus, request->kind);
    EXPECT_EQ(65536U, request->length);
    EXPECT_TRUE(request->payload.empty());
}

TEST(ControlChannel, NetworkRequestsCarryTheirWords) {
    const auto payload = PackControlWords({"pin", "the studio"});
    ASSERT_TRUE(payload);
    const auto length = static_cast<std::uint32_t>(payload->size());
    const auto packet = PackControlRequest({1, kControlNetwork, 0, length, *payload});
    EXPECT_EQ((Bytes{1,   0,   0,   0, 6,   0,   0,   0,   0,   0,   0,   0,   15,  0,   0, 0,
                     'p', 'i', 'n', 0, 't', 'h', 'e', ' ', 's', 't', 'u', 'd', 'i', 'o', 0}),
              packet);
    const auto request = UnpackControlRequest(packet);
    ASSERT_TRUE(request);
    EXPECT_EQ((std::vector<std::string>{"pin", "the studio"}), UnpackControlWords(request->payload));
    EXPECT_FALSE(UnpackControlRequest(Cut(packet, packet.size() - 1)));
    EXPECT_FALSE(UnpackControlRequest(Cut(packet, packet.size() + 1)));
}

TEST(ControlChannel, WordsThatAreMalformedAreNeitherReadNorPacked) {
    for (const Bytes& payload : {Bytes{}, Bytes{0}, Bytes{'a'}, Bytes{'a', 0, 0}, Bytes{0, 'a', 0}}) {
        EXPECT_FALSE(UnpackControlWords(payload)) << payload.size();
    }
    EXPECT_FALSE(PackControlWords({}));
    EXPECT_FALSE(PackControlWords({"a", ""}));
    EXPECT_FALSE(PackControlWords({std::string("a\0b", 3)}));
}

TEST(ControlChannel, WordsHaveABound) {
    EXPECT_TRUE(PackControlWords({"a", std::string(kMaxControlWordsSize - 3, 'x')}));
    EXPECT_FALSE(PackControlWords({"a", std::string(kMaxControlWordsSize - 2, 'x')}));
}

TEST(ControlChannel, RequestsForMoreThanTheMostDataAreNone) {
    EXPECT_TRUE(UnpackControlRequest(With(With(kGetPacket, 13, 0), 14, 1)));   // 65536
    EXPECT_FALSE(UnpackControlRequest(With(With(kGetPacket, 12, 1), 14, 1)));  // above
    EXPECT_FALSE(UnpackControlRequest(With(kGetPacket, 15, 0xFF)));
}

TEST(ControlChannel, RepliesAreRead) {
    const auto reply = UnpackControlReply(kDataReply);
    ASSERT_TRUE(reply);
    EXPECT_EQ(8U, reply->sequence);
    EXPECT_EQ(0U, reply->error);
    EXPECT_EQ((Bytes{0x4E, 0x61, 0}), Bytes(reply->data.begin(), reply->data.end()));
}

TEST(ControlChannel, RepliesOfAnotherLengthThanTheySayAreNone) {
    for (std::size_t size = 0; size <= 20; ++size) {
        EXPECT_EQ(size == kDataReply.size(), UnpackControlReply(Cut(kDataReply, size)).has_value()) << size;
    }
    EXPECT_FALSE(UnpackControlReply(With(kDataReply, 11, 0xFF)));
}

TEST(ControlChannel, RepliesWithAnErrorAndDataAreNone) {
    EXPECT_FALSE(UnpackControlReply(With(kDataReply, 4, 5)));
    const Bytes oneByte = {1};
    EXPECT_FALSE(UnpackControlReply(PackControlReply({.sequence = 1, .error = 5, .data = oneByte})));
}

TEST(ControlChannel, RepliesWhoseErrorIsNoErrnoAreNone) {
    const Bytes reply = {9, 0, 0, 0, 16, 0, 0, 0, 0, 0, 0, 0};
    EXPECT_TRUE(UnpackControlReply(reply));
    EXPECT_FALSE(UnpackControlReply(With(reply, 5, 0x10)));
    EXPECT_FALSE(UnpackControlReply(With(reply, 7, 0xFF)));
}

TEST(ControlChannel, TheHighestErrnoIsRead) {
    const auto packet = PackControlReply({.sequence = 1, .error = 4095, .data = {}});
    ASSERT_TRUE(UnpackControlReply(packet));
    EXPECT_EQ(4095U, UnpackControlReply(packet)->error);
    EXPECT_FALSE(UnpackControlReply(PackControlReply({.sequence = 1, .error = 4096, .data = {}})));
}

TEST(ControlChannel, RepliesOf64KiBAreReadAndLongerOnesAreNone) {
    const Bytes data(65536, 0x5A);
    const auto packet = PackControlReply({.sequence = 1, .error = 0, .data = data});
    const auto reply = UnpackControlReply(packet);
    ASSERT_TRUE(reply);
    EXPECT_EQ(data, Bytes(reply->data.begin(), reply->data.end()));
    EXPECT_FALSE(UnpackControlReply(PackControlReply({.sequence = 1, .error = 0, .data = Bytes(65537)})));
}

TEST(ControlChannel, RequestsOf64KiBAreReadAndLongerOnesAreNone) {
    const Bytes payload(65537, 0x5A);
    for (const std::uint32_t length : {65536U, 65537U}) {
        const std::span<const std::uint8_t> sent(payload.data(), length);
        const bool isRead = length == 65536;
        EXPECT_EQ(
            isRead,
            UnpackControlRequest(PackControlRequest({1, kControlNetwork, 0, length, sent})).has_value());
        EXPECT_EQ(
            isRead,
            UnpackControlRequest(PackControlRequest({1, kControlSetOption, 192, length, sent})).has_value());
        EXPECT_EQ(
            isRead,
            UnpackControlRequest(PackControlRequest({1, kControlGetOption, 202, length, {}})).has_value());
        EXPECT_EQ(isRead,
                  UnpackControlRequest(PackControlRequest({1, kControlStatus, 0, length, {}})).has_value());
    }
}

TEST(ControlChannel, ReadingAPackedRequestGivesItBack) {
    const Bytes payload(kMaxControlData, 0x5A);
    const auto packet = PackControlRequest({.sequence = 0xFFFFFFFF,
                                            .kind = kControlSetOption,
                                            .number = 63,
                                            .length = static_cast<std::uint32_t>(payload.size()),
                                            .payload = payload});
    ASSERT_EQ(kMaxControlRequestSize, packet.size());
    const auto request = UnpackControlRequest(packet);
    ASSERT_TRUE(request);
    EXPECT_EQ(0xFFFFFFFFU, request->sequence);
    EXPECT_EQ(payload, Bytes(request->payload.begin(), request->payload.end()));
}

}  // namespace
}  // namespace vexil
