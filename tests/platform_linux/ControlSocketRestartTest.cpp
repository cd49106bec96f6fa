// Services that end and come back. Not a word about signals: a write to a service that has ended would end
// this program, if the socket let it.
#include <fcntl.h>

#include <atomic>
#include <memory>
#include <utility>
#include <vector>

#include "tests/platform_linux/ControlSocketFixture.h"

namespace vexil {
namespace {

class ControlSocketRestartTest : public ControlSocketFixture {
  protected:
    // Cuts every client off that sends a set option, at most `times` times.
    void CutOffSets(int times) {
        service.SetHook([times](const Seen& request) mutable {
            if (request.kind != kControlSetOption || times == 0) {
                return false;
            }
            --times;
            ControlSocketService::CutOff(request.client);
            return true;
        });
    }

    static Bytes TestOutputRecord(int port) {
        PortHosts hosts;
        hosts.DstHost = "localhost";
        Bytes record(TestOutputRecordLength(hosts));
        PutTestOutputRecord(record.data(), port, PortEntry{}, hosts);
        return record;
    }
};

TEST_F(ControlSocketRestartTest, ARestartedServiceIsTakenUpWithinTheCall) {
    OpenAttached();
    service.Stop();
    service.Start();
    EXPECT_EQ(0, Set(kOptionReloadConfiguration).error);
    EXPECT_EQ((std::vector<int>{-1, -1, kOptionReloadConfiguration}), SeenNumbers());
    EXPECT_EQ(175U, service.Requests()[1].number);
}

TEST_F(ControlSocketRestartTest, ARestartedServiceIsTakenUpByARead) {
    OpenAttached();
    service.Stop();
    service.Start();
    service.SetHostInfos({1, 2, 3});
    Bytes data;
    EXPECT_EQ(0, Get(8192, &data).error);
    EXPECT_EQ((Bytes{1, 2, 3}), data);
}

TEST_F(ControlSocketRestartTest, ARestartedServiceGetsTheTestOutputsBeforeTheCall) {
    OpenAttached();
    const Bytes record = TestOutputRecord(9);
    ASSERT_EQ(0, Set(kOptionOpenTestOutput, record).error);
    ASSERT_EQ(0, Set(kOptionActivateTestOutput, {9, 0, 0, 0}).error);
    service.Stop();
    service.Start();
    const std::size_t before = service.Accepted().size();
    EXPECT_EQ(0, Set(kOptionReloadConfiguration).error);
    const auto accepted = service.Accepted();
    const std::vector<std::pair<int, Bytes>> expected = {{kOptionOpenTestOutput, record},
                                                         {kOptionActivateTestOutput, {9, 0, 0, 0}},
                                                         {kOptionReloadConfiguration, {}}};
    EXPECT_EQ(expected,
              decltype(expected)(accepted.begin() + static_cast<std::ptrdiff_t>(before), accepted.end()));
}

TEST_F(ControlSocketRestartTest, ARestartedServiceGetsNoTestOutputThatWasClosed) {
    OpenAttached();
    ASSERT_EQ(0, Set(kOptionOpenTestOutput, TestOutputRecord(9)).error);
    ASSERT_EQ(0, Set(kOptionDeactivateTestOutput, {9, 0, 0, 0}).error);
    service.Stop();
    service.Start();
    EXPECT_EQ(0, Set(kOptionReloadConfiguration).error);
    EXPECT_EQ((std::vector<int>{-1, kOptionOpenTestOutput, kOptionDeactivateTestOutput, -1,
                                kOptionReloadConfiguration}),
              SeenNumbers());
}

TEST_F(ControlSocketRestartTest, ATestOutputThatTheRestartedServiceRefusesIsNoErrorOfTheCall) {
    OpenAttached();
    ASSERT_EQ(0, Set(kOptionOpenTestOutput, TestOutputRecord(9)).error);
    service.Stop();
    service.Start();
    service.SetHook([](const Seen& request) {
        if (request.number != kOptionOpenTestOutput) {
            return false;
        }
        ControlSocketService::Reply(request, ENXIO);
        return true;
    });
    EXPECT_EQ(0, Set(kOptionReloadConfiguration).error);
    EXPECT_EQ(0, Set(kOptionReloadConfiguration).error);
    EXPECT_EQ((std::vector<int>{-1, kOptionOpenTestOutput, -1, kOptionOpenTestOutput,
                                kOptionReloadConfiguration, kOptionReloadConfiguration}),
              SeenNumbers());
}

TEST_F(ControlSocketRestartTest, TestOutputsThatARestartedServiceDoesNotTakeInTimeAreToldByTheNextCall) {
    OpenAttached();
    ASSERT_EQ(0, Set(kOptionOpenTestOutput, TestOutputRecord(9)).error);
    service.Stop();
    service.Start();
    std::atomic<bool> hangs{true};
    std::vector<Seen> kept;
    service.SetHook([&](const Seen& request) {
        if (request.number != kOptionOpenTestOutput || !hangs) {
            return false;
        }
        kept.push_back(request);
        return true;
    });
    const Outcome outcome = Set(kOptionReloadConfiguration);
    EXPECT_EQ(ETIMEDOUT, outcome.error);
    ExpectOnePause(outcome);
    hangs = false;
    ControlSocketService::Reply(kept.at(0), 0);
    EXPECT_EQ(0, Set(kOptionReloadConfiguration).error);
    EXPECT_EQ((std::vector<int>{-1, kOptionOpenTestOutput, -1, kOptionOpenTestOutput, kOptionOpenTestOutput,
                                kOptionReloadConfiguration}),
              SeenNumbers());
}

TEST_F(ControlSocketRestartTest, TheDescriptorStaysTheSameAndUninherited) {
    OpenAttached();
    service.Stop();
    service.Start();
    ASSERT_EQ(0, Set(kOptionReloadConfiguration).error);
    EXPECT_NE(0, fcntl(descriptor, F_GETFD) & FD_CLOEXEC);
    EXPECT_EQ(0, control.Close(descriptor));
    EXPECT_EQ(-1, fcntl(descriptor, F_GETFD));
    service.AwaitClients(0);
}

TEST_F(ControlSocketRestartTest, WhileTheServiceIsGoneCallsFailAtOnceWithTheReasonOfTheAttachment) {
    OpenAttached();
    service.Stop();
    for (int call = 0; call < 3; ++call) {
        const Outcome outcome = Set(kOptionReloadConfiguration);
        EXPECT_EQ(ECONNREFUSED, outcome.error);
        ExpectAtOnce(outcome);
    }
    service.RemoveFile();
    EXPECT_EQ(ENOENT, Set(kOptionReloadConfiguration).error);
    service.Start();
    EXPECT_EQ(0, Set(kOptionReloadConfiguration).error);
}

TEST_F(ControlSocketRestartTest, AServiceThatEndsDuringACallGetsTheRequestAgain) {
    OpenAttached();
    CutOffSets(1);
    EXPECT_EQ(0, Set(kOptionSendGranularity, {5, 0, 0, 0}).error);
    EXPECT_EQ((std::vector<int>{-1, kOptionSendGranularity, -1, kOptionSendGranularity}), SeenNumbers());
    EXPECT_EQ((Bytes{5, 0, 0, 0}), service.Requests().back().payload);
}

TEST_F(ControlSocketRestartTest, AServiceThatEndsAtEveryRequestIsTriedTwiceForEachCall) {
    OpenAttached();
    CutOffSets(100);
    const Outcome outcome = Set(kOptionReloadConfiguration);
    EXPECT_EQ(ECONNRESET, outcome.error);
    ExpectAtOnce(outcome);
    EXPECT_EQ((std::vector<int>{-1, kOptionReloadConfiguration, -1, kOptionReloadConfiguration}),
              SeenNumbers());
    service.AwaitClients(0);
    service.SetHook({});
    EXPECT_EQ(0, Set(kOptionReloadConfiguration).error);
}

TEST_F(ControlSocketRestartTest, AHungServiceThatIsRestartedIsTakenUp) {
    OpenAttached();
    service.SetHook([](const Seen&) { return true; });
    ASSERT_EQ(ETIMEDOUT, Set(kOptionReloadConfiguration).error);
    service.Stop();
    service.SetHook({});
    service.Start();
    EXPECT_EQ(0, Set(kOptionWirelessOn).error);
    EXPECT_EQ((std::vector<int>{-1, kOptionReloadConfiguration, -1, kOptionWirelessOn}), SeenNumbers());
}

TEST_F(ControlSocketRestartTest, ARestartedServiceThatDoesNotAnswerTheAttachmentCostsOnePause) {
    OpenAttached();
    service.Stop();
    service.SetHook([](const Seen&) { return true; });
    service.Start();
    const Outcome first = Set(kOptionReloadConfiguration);
    EXPECT_EQ(ETIMEDOUT, first.error);
    ExpectOnePause(first);
    const Outcome second = Set(kOptionReloadConfiguration);
    EXPECT_EQ(ETIMEDOUT, second.error);
    ExpectAtOnce(second);
    EXPECT_EQ((std::vector<int>{-1, -1}), SeenNumbers());
}

TEST_F(ControlSocketRestartTest, ALateAttachmentIsTakenUpByTheNextCall) {
    OpenAttached();
    service.Stop();
    service.SetHook([](const Seen&) { return true; });
    service.Start();
    ASSERT_EQ(ETIMEDOUT, Set(kOptionReloadConfiguration).error);
    service.SetHook([](const Seen& request) {
        ControlSocketService::Reply(request, 0);
        return true;
    });
    ControlSocketService::Reply(service.Requests().back(), 0);
    EXPECT_EQ(0, Set(kOptionReloadConfiguration).error);
    EXPECT_EQ((std::vector<int>{-1, -1, kOptionReloadConfiguration}), SeenNumbers());
}

TEST_F(ControlSocketRestartTest, ALateRefusalOfTheAttachmentIsTheNextCallsError) {
    OpenAttached();
    service.Stop();
    service.SetHook([](const Seen&) { return true; });
    service.Start();
    ASSERT_EQ(ETIMEDOUT, Set(kOptionReloadConfiguration).error);
    service.SetHook({});
    ControlSocketService::Reply(service.Requests().back(), EBUSY);
    EXPECT_EQ(EBUSY, Set(kOptionReloadConfiguration).error);
    EXPECT_EQ(0, Set(kOptionReloadConfiguration).error);
}

TEST_F(ControlSocketRestartTest, WhileAnotherPanelHoldsTheUnitCallsFailWithEbusy) {
    OpenAttached();
    service.Stop();
    service.Start();
    auto other = std::make_unique<ControlSocket>(folder.path, false);
    const int otherDescriptor = other->Socket(kPfSystem, kSockDgram, kSysProtoControl);
    ASSERT_EQ(0, other->Ioctl(otherDescriptor, kCtlIocGInfo, info.data()));
    const auto address = MakeSockaddrCtl(CtlInfoId(info), kControlUnit);
    ASSERT_EQ(0, other->Connect(otherDescriptor, address.data(), kSockaddrCtlSize));
    EXPECT_EQ(EBUSY, Set(kOptionReloadConfiguration).error);
    EXPECT_EQ(EBUSY, Set(kOptionReloadConfiguration).error);
    other.reset();
    EXPECT_EQ(0, Set(kOptionReloadConfiguration).error);
}

TEST_F(ControlSocketRestartTest, ACallThatMeetsTheEndAndThenAHungServiceStillTakesOnePause) {
    OpenAttached();
    service.SetHook([cut = false](const Seen& request) mutable {
        if (request.kind == kControlAttach) {
            return false;
        }
        if (!cut) {
            cut = true;
            std::this_thread::sleep_for(std::chrono::milliseconds(150));
            ControlSocketService::CutOff(request.client);
        }
        return true;
    });
    const Outcome outcome = Set(kOptionReloadConfiguration);
    EXPECT_EQ(ETIMEDOUT, outcome.error);
    ExpectOnePause(outcome);
}

}  // namespace
}  // namespace vexil
