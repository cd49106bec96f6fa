// The rules of the control channel, packet by packet.
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "tests/service/control/ControlServerFixture.h"

namespace vexil {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class ControlServerTest : public ControlServerFixture {
  protected:
    Reply Command(const RawClient& client, const Bytes& payload) {
        return Ask(client, kControlNetwork, 0, static_cast<std::uint32_t>(payload.size()), payload);
    }
};

TEST_F(ControlServerTest, PassesOptionsOfTheAttachedPanelOnInTheirOrder) {
    const auto panel = Attached();
    EXPECT_EQ(0U, Set(*panel, 191, {25, 0, 0, 0}));
    EXPECT_EQ(0U, Set(*panel, 190));
    EXPECT_EQ((Reply{77, 0, {1, 2, 3}}), Ask(*panel, kControlGetOption, 202, 8192));
    EXPECT_THAT(driver.asked, ElementsAre("set 191: 19 00 00 00", "set 190:", "get 202"));
}

TEST_F(ControlServerTest, AnswersWithTheDriversError) {
    const auto panel = Attached();
    driver.errors = {{192, EINVAL}, {202, EIO}};
    EXPECT_EQ(static_cast<std::uint32_t>(EINVAL), Set(*panel, 192, {1}));
    EXPECT_EQ((Reply{77, EIO, {}}), Ask(*panel, kControlGetOption, 202, 8192));
}

TEST_F(ControlServerTest, CutsWhatIsReadToWhatThePanelTakes) {
    const auto panel = Attached();
    EXPECT_EQ((Reply{77, 0, {1, 2}}), Ask(*panel, kControlGetOption, 202, 2));
    EXPECT_EQ((Reply{77, 0, {}}), Ask(*panel, kControlGetOption, 202, 0));
}

TEST_F(ControlServerTest, ReturnsEverySequence) {
    const auto client = Connect();
    for (const std::uint32_t sequence : {0U, 1U, 0x80000000U, 0xFFFFFFFFU}) {
        ASSERT_TRUE(client->Send(sequence, kControlReload, 0));
        Serve();
        EXPECT_EQ((Reply{sequence, 0, {}}), client->Receive());
    }
}

TEST_F(ControlServerTest, AnswersRequestsThatCameTogetherInTheirOrder) {
    const auto panel = Attached();
    for (std::uint32_t sequence = 1; sequence <= 3; ++sequence) {
        ASSERT_TRUE(panel->Send(sequence, kControlSetOption, sequence));
    }
    Serve();
    for (std::uint32_t sequence = 1; sequence <= 3; ++sequence) {
        EXPECT_EQ((Reply{sequence, 0, {}}), panel->Receive());
    }
    EXPECT_THAT(driver.asked, ElementsAre("set 1:", "set 2:", "set 3:"));
}

TEST_F(ControlServerTest, OptionsWithoutAttachmentFail) {
    const auto client = Connect();
    EXPECT_EQ(static_cast<std::uint32_t>(ENOTCONN), Set(*client, 190));
    EXPECT_EQ((Reply{77, ENOTCONN, {}}), Ask(*client, kControlGetOption, 202, 8192));
    EXPECT_THAT(driver.asked, IsEmpty());
}

TEST_F(ControlServerTest, AWatchIsAnsweredWhenTheStatusHasAnotherNumberThanTheClientKnows) {
    const auto client = Connect();
    EXPECT_EQ((Reply{77, 0, {1, 0, 0, 0}}), Ask(*client, kControlWatch, 0));
    ASSERT_TRUE(client->Send(78, kControlWatch, 1));
    Serve();
    server->TellWatchers();
    EXPECT_EQ(std::nullopt, client->Receive());
    driver.statusNumber = 0x203;
    server->TellWatchers();
    EXPECT_EQ((Reply{78, 0, {3, 2, 0, 0}}), client->Receive());
    driver.statusNumber = 4;
    server->TellWatchers();
    EXPECT_EQ(std::nullopt, client->Receive()) << "it has not asked again";
    EXPECT_EQ((Reply{77, 0, {4, 0, 0, 0}}), Ask(*client, kControlWatch, 3));
}

TEST_F(ControlServerTest, AFurtherRequestEndsAWait) {
    const auto client = Connect();
    ASSERT_TRUE(client->Send(1, kControlWatch, 1));
    Serve();
    ASSERT_TRUE(client->Send(2, kControlStatus, 0, 65536));
    Serve();
    EXPECT_EQ((Reply{1, 0, {1, 0, 0, 0}}), client->Receive());
    EXPECT_EQ((Reply{2, 0, {'{', '}'}}), client->Receive());
}

TEST_F(ControlServerTest, TheDriverHearsWhetherAnybodyWatches) {
    const auto one = Connect();
    const auto other = Connect();
    ASSERT_TRUE(one->Send(1, kControlWatch, 1));
    ASSERT_TRUE(other->Send(1, kControlWatch, 1));
    Serve();
    EXPECT_THAT(driver.asked, ElementsAre("watched"));
    one->Close();
    Serve();
    EXPECT_THAT(driver.asked, ElementsAre("watched"));
    other->Close();
    Serve();
    EXPECT_THAT(driver.asked, ElementsAre("watched", "unwatched"));
}

TEST_F(ControlServerTest, AWatcherThatHasGoneIsNoLongerTold) {
    const auto client = Connect();
    ASSERT_TRUE(client->Send(1, kControlWatch, 1));
    Serve();
    client->Close();
    driver.statusNumber = 2;
    server->TellWatchers();
    Serve();
    EXPECT_THAT(driver.asked, ElementsAre("watched", "unwatched"));
}

TEST_F(ControlServerTest, StatusAndReloadNeedNoAttachment) {
    const auto panel = Attached();
    const auto client = Connect();
    EXPECT_EQ((Reply{77, 0, {'{', '}'}}), Ask(*client, kControlStatus, 0, 65536));
    EXPECT_EQ((Reply{77, 0, {}}), Ask(*client, kControlReload, 0));
    EXPECT_THAT(driver.asked, ElementsAre("status", "reload"));
}

TEST_F(ControlServerTest, StatusThatTheAskerCannotTakeFails) {
    const auto client = Connect();
    driver.status = "[1,2]";
    EXPECT_EQ((Reply{77, EMSGSIZE, {}}), Ask(*client, kControlStatus, 0, 4));
    EXPECT_EQ(5U, Ask(*client, kControlStatus, 0, 5).data.size());
}

TEST_F(ControlServerTest, StatusIsToldFromTheEntryThatIsAskedFor) {
    const auto client = Connect();
    Ask(*client, kControlStatus, 70000, 65536);
    EXPECT_THAT(driver.asked, ElementsAre("status from 70000"));
}

TEST_F(ControlServerTest, LongestStatusArrivesWhole) {
    const auto client = Connect();
    driver.status = std::string(kMaxControlData, 'x');
    EXPECT_EQ(kMaxControlData, Ask(*client, kControlStatus, 0, kMaxControlData).data.size());
}

TEST_F(ControlServerTest, NetworkCommandsNeedNoAttachment) {
    const auto client = Connect();
    driver.networkAnswer = "[1]";
    EXPECT_EQ((Reply{77, 0, {'[', '1', ']'}}), Command(*client, {'p', 'i', 'n', 0, 'a', ' ', 'b', 0}));
    EXPECT_THAT(driver.asked, ElementsAre("network pin a b"));
}

TEST_F(ControlServerTest, NetworkCommandsThatAreMalformedReachNoDriver) {
    const auto client = Connect();
    for (const Bytes& payload : {Bytes{}, Bytes{'p'}, Bytes{0}, Bytes{'p', 0, 0}, Bytes{'p', 0, 'q'}, [] {
                                     Bytes longer(kMaxControlWordsSize + 1, 'x');
                                     longer.back() = 0;
                                     return longer;
                                 }()}) {
        EXPECT_EQ((Reply{77, EINVAL, {}}), Command(*client, payload)) << payload.size();
    }
    EXPECT_EQ((Reply{77, EINVAL, {}}), Ask(*client, kControlNetwork, 1, 2, {'p', 0}));
    EXPECT_THAT(driver.asked, IsEmpty());
}

TEST_F(ControlServerTest, NetworkAnswersThatNoReplyHoldsFail) {
    const auto client = Connect();
    driver.networkAnswer = std::string(kMaxControlData, 'x');
    EXPECT_EQ(kMaxControlData, Command(*client, {'p', 0}).data.size());
    driver.networkAnswer += 'x';
    EXPECT_EQ((Reply{77, EMSGSIZE, {}}), Command(*client, {'p', 0}));
}

TEST_F(ControlServerTest, PanicNeedsNoAttachment) {
    const auto panel = Attached();
    const auto client = Connect();
    const std::string answer = R"({"done":"It is quiet."})";
    EXPECT_EQ((Reply{77, 0, Bytes(answer.begin(), answer.end())}), Ask(*client, kControlPanic, 0));
    EXPECT_THAT(driver.asked, ElementsAre("panic"));
}

TEST_F(ControlServerTest, UnitIsAttachedOnce) {
    const auto panel = Attached();
    const auto second = Connect();
    EXPECT_EQ(static_cast<std::uint32_t>(EBUSY), Ask(*second, kControlAttach, kControlUnit).error);
    EXPECT_EQ(static_cast<std::uint32_t>(EISCONN), Ask(*panel, kControlAttach, kControlUnit).error);
    EXPECT_THAT(driver.asked, IsEmpty());
}

TEST_F(ControlServerTest, OtherUnitsAreNone) {
    const auto client = Connect();
    EXPECT_EQ(static_cast<std::uint32_t>(EINVAL), Ask(*client, kControlAttach, 174).error);
    EXPECT_EQ(static_cast<std::uint32_t>(EINVAL), Ask(*client, kControlAttach, 0).error);
    EXPECT_THAT(driver.asked, IsEmpty());
}

TEST_F(ControlServerTest, EndOfTheConnectionDetaches) {
    auto panel = Attached();
    panel->Close();
    Serve();
    EXPECT_THAT(driver.asked, ElementsAre("detached"));
    EXPECT_EQ(0U, Ask(*Connect(), kControlAttach, kControlUnit).error);
}

TEST_F(ControlServerTest, PanelThatAttachesRightAfterAnotherHasGoneFindsTheUnitFree) {
    auto panel = Attached();
    const auto second = Connect();
    panel->Close();
    ASSERT_TRUE(second->Send(1, kControlAttach, kControlUnit));
    Serve();
    EXPECT_EQ((Reply{1, 0, {}}), second->Receive());
    EXPECT_THAT(driver.asked, ElementsAre("detached", "attached"));
}

// The first panel goes while the round is under way: nothing but its connection tells.
TEST_F(ControlServerTest, PanelThatAttachesInTheRoundInWhichAnotherGoesFindsTheUnitFree) {
    class Watching : public RecordingMediator {
      public:
        std::string Status(std::size_t first) override {
            panel->Close();
            return RecordingMediator::Status(first);
        }
        RawClient* panel = nullptr;
    } watching;
    server = std::make_unique<ControlServer>(listening.Number(), std::nullopt, watching);
    const auto panel = Connect();
    ASSERT_EQ(0U, Ask(*panel, kControlAttach, kControlUnit).error);
    watching.panel = panel.get();
    const auto asker = Connect();
    const auto second = Connect();
    ASSERT_TRUE(asker->Send(1, kControlStatus, 0, 100));
    ASSERT_TRUE(second->Send(2, kControlAttach, kControlUnit));
    server->Serve();
    EXPECT_EQ((Reply{2, 0, {}}), second->Receive());
    EXPECT_THAT(watching.asked, ElementsAre("attached", "status", "detached", "attached"));
    server.reset();
}

TEST_F(ControlServerTest, WhatAPanelSentBeforeItWentStillCounts) {
    auto panel = Attached();
    ASSERT_TRUE(panel->Send(1, kControlSetOption, 190));
    ASSERT_TRUE(panel->Send(2, kControlSetOption, 195));
    panel->Close();
    Serve();
    EXPECT_THAT(driver.asked, ElementsAre("set 190:", "set 195:", "detached"));
}

TEST_F(ControlServerTest, RequestThatIsNoneIsAnsweredWithItsSequence) {
    const auto panel = Attached();
    const Bytes header = PackControlRequest({9, kControlSetOption, 190, 0, {}});
    for (const auto& [offset, value] :
         std::vector<std::pair<std::size_t, std::uint8_t>>{{4, 0}, {4, 6}, {7, 1}, {12, 1}, {15, 0xFF}}) {
        Bytes packet = header;
        packet[offset] = value;
        ASSERT_TRUE(panel->Send(packet));
        Serve();
        EXPECT_EQ((Reply{9, EINVAL, {}}), panel->Receive()) << offset;
    }
    Bytes longer = header;
    longer.push_back(0);
    ASSERT_TRUE(panel->Send(longer));
    Serve();
    EXPECT_EQ((Reply{9, EINVAL, {}}), panel->Receive());
    EXPECT_THAT(driver.asked, IsEmpty());
    EXPECT_EQ(0U, Set(*panel, 190));
}

TEST_F(ControlServerTest, PacketWithoutASequenceEndsTheConnection) {
    for (std::size_t length = 1; length < kControlRequestHeaderSize; ++length) {
        const auto client = Connect();
        ASSERT_TRUE(client->Send(Bytes(length, 1)));
        Serve();
        EXPECT_TRUE(client->IsClosed()) << length;
    }
}

TEST_F(ControlServerTest, EmptyPacketEndsTheConnection) {
    const auto client = Connect();
    ASSERT_TRUE(client->Send({}));
    Serve();
    EXPECT_TRUE(client->IsClosed());
}

TEST_F(ControlServerTest, LongestPayloadArrivesWhole) {
    class Measuring : public RecordingMediator {
      public:
        int SetOption(std::uint32_t, std::span<const std::uint8_t> payload) override {
            length = payload.size();
            return 0;
        }
        std::size_t length = 0;
    } measuring;
    server = std::make_unique<ControlServer>(listening.Number(), std::nullopt, measuring);
    const auto panel = Connect();
    ASSERT_EQ(0U, Ask(*panel, kControlAttach, kControlUnit).error);
    EXPECT_EQ(0U, Set(*panel, 0, Bytes(kMaxControlData, 7)));
    EXPECT_EQ(kMaxControlData, measuring.length);
    server.reset();
}

TEST_F(ControlServerTest, PacketAboveTheCapIsRefusedAndTheNextIsRead) {
    const auto panel = Attached();
    Bytes packet =
        PackControlRequest({9, kControlSetOption, 0, kMaxControlData + 1, Bytes(kMaxControlData + 1)});
    ASSERT_TRUE(panel->Send(packet));
    Serve();
    EXPECT_EQ((Reply{9, EINVAL, {}}), panel->Receive());
    packet.resize(150000);
    ASSERT_TRUE(panel->Send(packet));
    Serve();
    EXPECT_EQ((Reply{9, EINVAL, {}}), panel->Receive());
    EXPECT_THAT(driver.asked, IsEmpty());
    EXPECT_EQ(0U, Set(*panel, 190));
}

TEST_F(ControlServerTest, ClientThatDoesNotReadIsClosedAndOthersAreServed) {
    const auto other = Connect();
    auto panel = Attached();
    int sent = 0;
    while (sent < 100000 && panel->Send(1, kControlGetOption, 202, 65536)) {
        driver.data.resize(60000);
        ++sent;
        Serve();
    }
    EXPECT_LT(sent, 100);
    EXPECT_EQ("detached", driver.asked.back());
    EXPECT_EQ(0U, Ask(*other, kControlReload, 0).error);
}

TEST_F(ControlServerTest, OneClientsFloodLeavesRoundsToOthers) {
    const auto flood = Connect();
    const auto other = Connect();
    for (int count = 0; count < 50; ++count) {
        ASSERT_TRUE(flood->Send(1, kControlReload, 0));
    }
    ASSERT_TRUE(other->Send(2, kControlReload, 0));
    server->Serve();
    EXPECT_EQ((Reply{2, 0, {}}), other->Receive());
}

TEST_F(ControlServerTest, SilentClientsMakeRoomForNewOnes) {
    const auto panel = Attached();
    std::vector<std::unique_ptr<RawClient>> clients;
    for (int count = 0; count < 1000; ++count) {
        clients.push_back(Connect());
        EXPECT_EQ(0U, Ask(*clients.back(), kControlReload, 0).error);
    }
    const auto open =
        std::count_if(clients.begin(), clients.end(), [](const auto& client) { return !client->IsClosed(); });
    EXPECT_EQ(static_cast<std::ptrdiff_t>(ControlServer::kMaxClients) - 1, open);
    EXPECT_EQ(0U, Set(*panel, 190));
}

TEST_F(ControlServerTest, RoomIsMadeByTheClientThatWasSilentLongest) {
    std::vector<std::unique_ptr<RawClient>> clients;
    for (std::size_t count = 0; count < ControlServer::kMaxClients; ++count) {
        clients.push_back(Connect());
    }
    EXPECT_EQ(0U, Ask(*clients[0], kControlReload, 0).error);
    const auto newcomer = Connect();
    EXPECT_TRUE(clients[1]->IsClosed());
    EXPECT_FALSE(clients[0]->IsClosed());
    EXPECT_FALSE(clients[2]->IsClosed());
    EXPECT_FALSE(clients.back()->IsClosed());
    EXPECT_EQ(0U, Ask(*newcomer, kControlReload, 0).error);
}

TEST_F(ControlServerTest, ThousandConnectionsAtOnceAreTakenAndThePanelStays) {
    const auto panel = Attached();
    std::vector<std::unique_ptr<RawClient>> clients;
    for (int count = 0; count < 1000; ++count) {
        clients.push_back(std::make_unique<RawClient>(path));
        ASSERT_TRUE(clients.back()->IsConnected());
    }
    Serve();
    EXPECT_EQ(0U, Ask(*clients.back(), kControlReload, 0).error);
    EXPECT_EQ(0U, Set(*panel, 190));
}

TEST_F(ControlServerTest, EndOfTheServerDetachesAndClosesEveryConnection) {
    const auto panel = Attached();
    const auto client = Connect();
    server.reset();
    EXPECT_THAT(driver.asked, ElementsAre("detached"));
    EXPECT_TRUE(panel->IsClosed());
    EXPECT_TRUE(client->IsClosed());
}

// In a process of its own, where descriptors can be used up.
TEST_F(ControlServerTest, WithoutDescriptorsItPausesAndComesBack) {
    const auto exhaust = [this] {
        const RawClient waiting(path);
        // The sanitizer's look at the type of this test would take descriptors of its own.
        ControlServer& served = *server;
        const int lowest = dup(0);
        close(lowest);
        const rlimit none{static_cast<rlim_t>(lowest), 1024};
        const rlimit enough{1024, 1024};
        const bool isShort = setrlimit(RLIMIT_NOFILE, &none) == 0;
        served.Serve();
        const int pause = served.Timeout();
        pollfd state{served.EventDescriptor(), POLLIN, 0};
        const bool isQuiet = poll(&state, 1, 0) == 0;
        setrlimit(RLIMIT_NOFILE, &enough);
        poll(nullptr, 0, pause + 1);
        server->Serve();
        const bool isBack = Ask(waiting, kControlReload, 0).error == 0 && server->Timeout() == -1;
        _exit(isShort && pause > 0 && isQuiet && isBack ? 0 : 1);
    };
    EXPECT_EXIT(exhaust(), ::testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace vexil
