// Services that refuse, hang, answer late or break the rules.
#include <signal.h>
#include <sys/time.h>

#include "tests/platform_linux/ControlSocketFixture.h"

namespace vexil {
namespace {

class ControlSocketFaultTest : public ControlSocketFixture {
  protected:
    static bool Swallow(const Seen&) { return true; }

    // Lets one request of a set or get be answered by these raw packets, all later ones as usual.
    void AnswerNextWith(const std::function<std::vector<Bytes>(const Seen&)>& packets) {
        service.SetHook([packets, used = false](const Seen& request) mutable {
            if (used || request.kind == kControlAttach) {
                return false;
            }
            used = true;
            for (const Bytes& packet : packets(request)) {
                ControlSocketService::SendPacket(request.client, packet);
            }
            return true;
        });
    }

    // The reply that a service should give, as bytes to be spoilt.
    static Bytes GoodReply(const Seen& request, const Bytes& data = {}) {
        return PackControlReply({.sequence = request.sequence, .error = 0, .data = data});
    }

    // The next set answered so fails with EPROTO, and the call after it is attached anew and succeeds.
    void ExpectBroken(const std::function<std::vector<Bytes>(const Seen&)>& packets) {
        const std::size_t before = SeenNumbers().size();
        AnswerNextWith(packets);
        const Outcome broken = Set(kOptionReloadConfiguration);
        EXPECT_EQ(EPROTO, broken.error);
        ExpectAtOnce(broken);
        service.AwaitClients(0);
        EXPECT_EQ(0, Set(kOptionReloadConfiguration).error);
        const std::vector<int> seen = SeenNumbers();
        EXPECT_EQ((std::vector<int>{kOptionReloadConfiguration, -1, kOptionReloadConfiguration}),
                  std::vector<int>(seen.begin() + static_cast<std::ptrdiff_t>(before), seen.end()));
    }
};

TEST_F(ControlSocketFaultTest, RefusedAttachmentFailsWithTheServicesError) {
    service.Start();
    service.SetHook([](const Seen& request) {
        ControlSocketService::Reply(request, EPERM);
        return true;
    });
    OpenSocket();
    ASSERT_EQ(0, LookUp().error);
    EXPECT_EQ(EPERM, Connect().error);
    EXPECT_EQ(ENOTCONN, Set(kOptionReloadConfiguration).error);
    service.AwaitClients(0);
    service.SetHook({});
    EXPECT_EQ(0, Connect().error);
}

TEST_F(ControlSocketFaultTest, RefusedOptionFailsWithTheServicesErrorAndStaysAttached) {
    OpenAttached();
    for (const int error : {EIO, EPROTO, EPIPE, ECONNRESET, ENOTCONN, EAGAIN, ETIMEDOUT}) {
        service.SetHook([error](const Seen& request) {
            ControlSocketService::Reply(request, static_cast<std::uint32_t>(error));
            return true;
        });
        EXPECT_EQ(error, Set(kOptionReloadConfiguration).error);
    }
    std::vector<int> expected(8, kOptionReloadConfiguration);
    expected.front() = -1;  // one attachment, no second one
    EXPECT_EQ(expected, SeenNumbers());
}

TEST_F(ControlSocketFaultTest, RefusedReadLeavesTheBufferAlone) {
    OpenAttached();
    service.SetHook([](const Seen& request) {
        ControlSocketService::Reply(request, EIO);
        return true;
    });
    Bytes buffer(8, 0xEE);
    std::uint32_t length = 8;
    EXPECT_EQ(-1,
              control.GetOption(descriptor, kSysProtoControl, kOptionReadHostInfos, buffer.data(), &length));
    EXPECT_EQ(EIO, errno);
    EXPECT_EQ(8U, length);
    EXPECT_EQ(Bytes(8, 0xEE), buffer);
}

TEST_F(ControlSocketFaultTest, AttachmentWithoutAnAnswerTakesOnePauseAndIsGivenUp) {
    service.Start();
    service.SetHook(Swallow);
    OpenSocket();
    ASSERT_EQ(0, LookUp().error);
    const Outcome outcome = Connect();
    EXPECT_EQ(ETIMEDOUT, outcome.error);
    ExpectOnePause(outcome);
    service.AwaitClients(0);  // the unit is not held for a panel that has gone on

    const Outcome option = Set(kOptionReloadConfiguration);
    EXPECT_EQ(ENOTCONN, option.error);
    ExpectAtOnce(option);
}

TEST_F(ControlSocketFaultTest, AHungServiceCostsOnePauseAndNotOnePerCall) {
    OpenAttached();
    service.SetHook(Swallow);
    const Outcome first = Set(kOptionReloadConfiguration);
    EXPECT_EQ(ETIMEDOUT, first.error);
    ExpectOnePause(first);
    for (int call = 0; call < 20; ++call) {
        const Outcome further = call % 2 == 0 ? Set(kOptionWirelessOn) : Get(100);
        EXPECT_EQ(ETIMEDOUT, further.error);
        ExpectAtOnce(further);
    }
    EXPECT_EQ((std::vector<int>{-1, kOptionReloadConfiguration}), SeenNumbers());
}

TEST_F(ControlSocketFaultTest, ALateReplyIsDroppedAndNotTakenForTheNextCalls) {
    OpenAttached();
    service.SetHook(Swallow);
    ASSERT_EQ(ETIMEDOUT, Set(kOptionReloadConfiguration).error);
    service.SetHook({});
    ControlSocketService::Reply(service.Requests().back(), EIO);
    EXPECT_EQ(0, Set(kOptionWirelessOn).error);
    EXPECT_EQ(0, Set(kOptionWirelessOff).error);
    EXPECT_EQ((std::vector<int>{-1, kOptionReloadConfiguration, kOptionWirelessOn, kOptionWirelessOff}),
              SeenNumbers());
}

TEST_F(ControlSocketFaultTest, ALateReadIsDroppedWithItsData) {
    OpenAttached();
    service.SetHook(Swallow);
    ASSERT_EQ(ETIMEDOUT, Get(8192).error);
    service.SetHook({});
    service.SetHostInfos({'n', 'e', 'w'});
    ControlSocketService::Reply(service.Requests().back(), 0, Bytes(8192, 'o'));
    Bytes data;
    EXPECT_EQ(0, Get(3, &data).error);
    EXPECT_EQ((Bytes{'n', 'e', 'w'}), data);
}

TEST_F(ControlSocketFaultTest, ALateReplyThatIsNoneEndsTheAttachment) {
    OpenAttached();
    service.SetHook(Swallow);
    ASSERT_EQ(ETIMEDOUT, Set(kOptionReloadConfiguration).error);
    service.SetHook({});
    ControlSocketService::SendPacket(service.Requests().back().client, {1, 2, 3});
    EXPECT_EQ(EPROTO, Set(kOptionWirelessOn).error);
    service.AwaitClients(0);
    EXPECT_EQ(0, Set(kOptionWirelessOn).error);
}

TEST_F(ControlSocketFaultTest, AReplyWithinTheTimeIsWaitedFor) {
    OpenAttached();
    service.SetHook([](const Seen& request) {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        ControlSocketService::Reply(request, 0);
        return true;
    });
    const Outcome outcome = Set(kOptionReloadConfiguration);
    EXPECT_EQ(0, outcome.error);
    EXPECT_GE(outcome.time.count(), 95);
}

TEST_F(ControlSocketFaultTest, ShortRepliesAreBroken) {
    OpenAttached();
    for (std::size_t size = 1; size < kControlReplyHeaderSize; ++size) {
        SCOPED_TRACE(size);
        ExpectBroken([size](const Seen& request) {
            Bytes reply = GoodReply(request);
            reply.resize(size);
            return std::vector<Bytes>{reply};
        });
    }
}

TEST_F(ControlSocketFaultTest, RepliesWithMoreBytesThanTheySayAreBroken) {
    OpenAttached();
    ExpectBroken([](const Seen& request) {
        Bytes reply = GoodReply(request);
        reply.push_back(0);
        return std::vector<Bytes>{reply};
    });
}

TEST_F(ControlSocketFaultTest, RepliesWithFewerBytesThanTheySayAreBroken) {
    OpenAttached();
    for (const std::size_t lengthByte : {8U, 9U, 10U, 11U}) {
        ExpectBroken([lengthByte](const Seen& request) {
            Bytes reply = GoodReply(request);
            reply[lengthByte] = 0xFF;
            return std::vector<Bytes>{reply};
        });
    }
}

TEST_F(ControlSocketFaultTest, RepliesLargerThanAnyPacketAreBroken) {
    OpenAttached();
    ExpectBroken([](const Seen& request) {
        Bytes reply = GoodReply(request, Bytes(kMaxControlData + 1, 0x44));
        return std::vector<Bytes>{reply};
    });
}

TEST_F(ControlSocketFaultTest, RepliesOfAnotherSequenceAreBroken) {
    OpenAttached();
    ExpectBroken([](const Seen& request) {
        Bytes reply = GoodReply(request);
        reply[0] ^= 1;
        return std::vector<Bytes>{reply};
    });
}

TEST_F(ControlSocketFaultTest, RepliesWithAnErrorAndDataAreBroken) {
    OpenAttached();
    ExpectBroken([](const Seen& request) {
        return std::vector<Bytes>{
            PackControlReply({.sequence = request.sequence, .error = EIO, .data = Bytes{1}})};
    });
}

TEST_F(ControlSocketFaultTest, RepliesToASetWithDataAreBroken) {
    OpenAttached();
    ExpectBroken([](const Seen& request) { return std::vector<Bytes>{GoodReply(request, {1})}; });
}

TEST_F(ControlSocketFaultTest, ASecondReplyIsBrokenAtTheNextCall) {
    OpenAttached();
    AnswerNextWith([](const Seen& request) {
        return std::vector<Bytes>{GoodReply(request), GoodReply(request)};
    });
    EXPECT_EQ(0, Set(kOptionReloadConfiguration).error);
    EXPECT_EQ(EPROTO, Set(kOptionReloadConfiguration).error);
    service.AwaitClients(0);
    EXPECT_EQ(0, Set(kOptionReloadConfiguration).error);
}

TEST_F(ControlSocketFaultTest, ReadsOfMoreThanTheBufferHoldsAreBrokenAndWriteNothing) {
    OpenAttached();
    AnswerNextWith([](const Seen& request) { return std::vector<Bytes>{GoodReply(request, Bytes(11, 1))}; });
    Bytes buffer(32, 0xEE);
    std::uint32_t length = 10;
    EXPECT_EQ(-1,
              control.GetOption(descriptor, kSysProtoControl, kOptionReadHostInfos, buffer.data(), &length));
    EXPECT_EQ(EPROTO, errno);
    EXPECT_EQ(Bytes(32, 0xEE), buffer);
}

TEST_F(ControlSocketFaultTest, AnAttachmentAnsweredWithDataIsBroken) {
    service.Start();
    service.SetHook([](const Seen& request) {
        ControlSocketService::Reply(request, 0, {1});
        return true;
    });
    OpenSocket();
    ASSERT_EQ(0, LookUp().error);
    EXPECT_EQ(EPROTO, Connect().error);
}

TEST_F(ControlSocketFaultTest, AnEmptyPacketIsTakenForTheEndOfTheService) {
    OpenAttached();
    AnswerNextWith([](const Seen& request) {
        // The panel attaches anew at once; the unit must be free by then.
        ControlSocketService::SendPacket(request.client, {});
        return std::vector<Bytes>{};
    });
    // Whether the service has noticed the end of the old attachment by then or not, the call is over at once.
    const Outcome outcome = Set(kOptionReloadConfiguration);
    EXPECT_TRUE(outcome.error == 0 || outcome.error == EBUSY) << outcome.error;
    ExpectAtOnce(outcome);
    service.AwaitClients(outcome.error == 0 ? 1 : 0);
    EXPECT_EQ(0, Set(kOptionReloadConfiguration).error);
}

// A timer that interrupts this thread's system calls every 5 ms.
class Interruptions {
  public:
    Interruptions() {
        struct sigaction action {};
        action.sa_handler = [](int) {};  // without SA_RESTART
        sigaction(SIGALRM, &action, &before);
        const itimerval timer{{0, 5000}, {0, 5000}};
        setitimer(ITIMER_REAL, &timer, nullptr);
    }
    ~Interruptions() {
        const itimerval none{};
        setitimer(ITIMER_REAL, &none, nullptr);
        sigaction(SIGALRM, &before, nullptr);
    }
    Interruptions(const Interruptions&) = delete;
    Interruptions& operator=(const Interruptions&) = delete;

  private:
    struct sigaction before {};
};

TEST_F(ControlSocketFaultTest, SignalsNeitherEndNorProlongTheWait) {
    OpenAttached();
    const Interruptions interruptions;
    service.SetHook([](const Seen& request) {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        ControlSocketService::Reply(request, 0);
        return true;
    });
    EXPECT_EQ(0, Set(kOptionReloadConfiguration).error);
    service.SetHook(Swallow);
    const Outcome outcome = Set(kOptionReloadConfiguration);
    EXPECT_EQ(ETIMEDOUT, outcome.error);
    ExpectOnePause(outcome);
}

}  // namespace
}  // namespace vexil
