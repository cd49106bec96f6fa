#include "client/ServiceClient.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <cerrno>
#include <filesystem>

#include "driver/ControlChannel.h"
#include "tests/ctl/CtlFolder.h"
#include "tests/platform_linux/ControlSocketService.h"

namespace vexil {
namespace {

using Bytes = std::vector<std::uint8_t>;
using Outcome = ServiceAnswer::Outcome;
using Seen = ControlSocketService::Seen;
using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::HasSubstr;

constexpr milliseconds kShort{150};

class ServiceClientTest : public testing::Test {
  protected:
    // A service that sends this packet in place of its answer.
    void AnswerPacket(const Bytes& packet) {
        service.SetHook([packet](const Seen& request) {
            ControlSocketService::SendPacket(request.client, packet);
            return true;
        });
        service.Start();
    }
    ServiceAnswer AskStatus() const { return ServiceClient(folder.paths, milliseconds(2000)).AskStatus(); }

    const CtlFolder folder;
    ControlSocketService service{folder.SocketPath()};
};

TEST_F(ServiceClientTest, StatusIsOneRequestWithoutAttachment) {
    service.SetHook([](const Seen& request) {
        ControlSocketService::Reply(request, 0, {'{', '}'});
        return true;
    });
    service.Start();
    const ServiceAnswer answer = AskStatus();
    EXPECT_EQ(answer.outcome, Outcome::Answered) << answer.problem;
    EXPECT_EQ(answer.data, "{}");
    const std::vector<Seen> requests = service.Requests();
    ASSERT_EQ(requests.size(), 1U);
    EXPECT_EQ(requests[0].kind, kControlStatus);
    EXPECT_EQ(requests[0].number, 0U);
    EXPECT_EQ(requests[0].length, kMaxControlData);
    EXPECT_THAT(requests[0].payload, ElementsAre());
    service.AwaitClients(0);
}

TEST_F(ServiceClientTest, ReloadIsOneRequestWithoutAttachment) {
    service.SetHook([](const Seen& request) {
        ControlSocketService::Reply(request, 0);
        return true;
    });
    service.Start();
    const ServiceAnswer answer = ServiceClient(folder.paths).AskReload();
    EXPECT_EQ(answer.outcome, Outcome::Answered) << answer.problem;
    const std::vector<Seen> requests = service.Requests();
    ASSERT_EQ(requests.size(), 1U);
    EXPECT_EQ(requests[0].kind, kControlReload);
    EXPECT_EQ(requests[0].number, 0U);
    EXPECT_EQ(requests[0].length, 0U);
}

TEST_F(ServiceClientTest, TheLongestAnswerIsTaken) {
    service.SetHook([](const Seen& request) {
        ControlSocketService::Reply(request, 0, Bytes(kMaxControlData, 'x'));
        return true;
    });
    service.Start();
    EXPECT_EQ(AskStatus().data, std::string(kMaxControlData, 'x'));
}

TEST_F(ServiceClientTest, NoSocketMeansNoService) {
    const ServiceAnswer answer = AskStatus();
    EXPECT_EQ(answer.outcome, Outcome::Absent);
    EXPECT_EQ(answer.problem, "no service is running at " + folder.SocketPath());
}

TEST_F(ServiceClientTest, NoFolderMeansNoService) {
    Paths paths = folder.paths;
    paths.control += "/none";
    EXPECT_EQ(ServiceClient(paths).AskStatus().outcome, Outcome::Absent);
}

TEST_F(ServiceClientTest, ASocketThatNobodyServesMeansNoService) {
    service.Start();
    service.Stop();
    EXPECT_EQ(AskStatus().outcome, Outcome::Absent);
}

TEST_F(ServiceClientTest, AHungServiceCostsTheTimeLimitAndNoMore) {
    service.SetHook([](const Seen&) { return true; });
    service.Start();
    const auto start = std::chrono::steady_clock::now();
    const ServiceAnswer answer = ServiceClient(folder.paths, kShort).AskStatus();
    const auto time = std::chrono::steady_clock::now() - start;
    EXPECT_EQ(answer.outcome, Outcome::Failed);
    EXPECT_EQ(answer.problem, "the service does not answer");
    EXPECT_GE(time, kShort);
    EXPECT_LT(time, kShort + milliseconds(10'000));  // a busy computer is slow
}

TEST_F(ServiceClientTest, AServiceThatTakesNoConnectionsIsHung) {
    // Nobody accepts, and the queue of connections is full.
    const Descriptor listening(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
    sockaddr_un place{};
    place.sun_family = AF_UNIX;
    folder.SocketPath().copy(place.sun_path, sizeof place.sun_path - 1);
    const auto* address = reinterpret_cast<const sockaddr*>(&place);
    ASSERT_EQ(0, bind(listening.Number(), address, sizeof place));
    ASSERT_EQ(0, listen(listening.Number(), 0));
    std::vector<Descriptor> waiting;
    do {
        waiting.emplace_back(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    } while (connect(waiting.back().Number(), address, sizeof place) == 0);
    ASSERT_EQ(errno, EAGAIN);
    const ServiceAnswer answer = AskStatus();
    EXPECT_EQ(answer.outcome, Outcome::Failed);
    EXPECT_EQ(answer.problem, "the service does not answer");
}

TEST_F(ServiceClientTest, AServiceThatEndsIsNoAnswer) {
    service.SetHook([](const Seen& request) {
        ControlSocketService::CutOff(request.client);
        return true;
    });
    service.Start();
    const ServiceAnswer answer = AskStatus();
    EXPECT_EQ(answer.outcome, Outcome::Failed);
    EXPECT_EQ(answer.problem, "the service closed the connection without an answer");
}

TEST_F(ServiceClientTest, ARefusalGivesTheReason) {
    service.SetHook([](const Seen& request) {
        ControlSocketService::Reply(request, EMSGSIZE);
        return true;
    });
    service.Start();
    const ServiceAnswer answer = AskStatus();
    EXPECT_EQ(answer.outcome, Outcome::Failed);
    EXPECT_EQ(answer.problem, "the service refuses: Message too long");
}

TEST_F(ServiceClientTest, PacketsThatAreNoReplyAreNoAnswer) {
    const Bytes good = PackControlReply({1, 0, {}});
    Bytes otherSequence = good;
    otherSequence[0] = 2;
    Bytes longer = good;
    longer[8] = 1;
    const Bytes huge(kMaxControlReplySize + 1, 0);
    for (const Bytes& packet : {otherSequence, longer, huge, Bytes(3, 0)}) {
        AnswerPacket(packet);
        const ServiceAnswer answer = AskStatus();
        EXPECT_EQ(answer.outcome, Outcome::Failed);
        EXPECT_EQ(answer.problem, "the service's answer is malformed") << packet.size() << " bytes";
        service.Stop();
    }
}

TEST_F(ServiceClientTest, DataThatWasNotAskedForIsNoAnswer) {
    service.SetHook([](const Seen& request) {
        ControlSocketService::Reply(request, 0, {1});
        return true;
    });
    service.Start();
    EXPECT_EQ(ServiceClient(folder.paths).AskReload().problem, "the service's answer is malformed");
}

TEST_F(ServiceClientTest, APathThatIsTooLongForASocketIsSaid) {
    Paths paths = folder.paths;
    paths.control = "/" + std::string(120, 'x');
    const ServiceAnswer answer = ServiceClient(paths).AskStatus();
    EXPECT_EQ(answer.outcome, Outcome::Failed);
    EXPECT_THAT(answer.problem, HasSubstr("File name too long"));
}

}  // namespace
}  // namespace vexil
