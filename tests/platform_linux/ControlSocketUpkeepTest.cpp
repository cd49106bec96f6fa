// What the link puts right by itself: ends of notes that are owed, test outputs that the service has closed,
// settings that a restarted service does not know.
#include <poll.h>

#include <atomic>
#include <functional>
#include <utility>
#include <vector>

#include "driver/MidiPacketList.h"
#include "tests/platform_linux/ControlSocketFixture.h"

namespace vexil {
namespace {

constexpr int kPort = 9;

class ControlSocketUpkeepTest : public ControlSocketFixture {
  protected:
    static Bytes TestOutputRecord() {
        PortHosts hosts;
        hosts.DstHost = "localhost";
        Bytes record(TestOutputRecordLength(hosts));
        PutTestOutputRecord(record.data(), kPort, PortEntry{}, hosts);
        return record;
    }
    static Bytes Index() { return {kPort, 0, 0, 0}; }
    static Bytes Notes(std::uint8_t velocity, std::uint64_t time = 1, std::uint8_t note = 60) {
        const Bytes messages = {0x90, note, velocity, 0x90, 64, velocity};
        Bytes list(kPacketListHeaderSize + kPacketHeaderSize + messages.size());
        MidiPacketListAdd(list.data(), list.size(), MidiPacketListInit(list.data(), list.size()), time,
                          messages.size(), messages.data());
        return list;
    }

    void OpenTestOutput() {
        OpenAttached();
        ASSERT_EQ(0, Set(kOptionOpenTestOutput, TestOutputRecord()).error);
        ASSERT_EQ(0, Set(kOptionActivateTestOutput, Index()).error);
        Forget();
    }
    // What is seen from here on is what Later tells.
    void Forget() { seenBefore = SeenNumbers().size(); }
    std::vector<int> Later() const {
        const std::vector<int> seen = SeenNumbers();
        return {seen.begin() + static_cast<std::ptrdiff_t>(seenBefore), seen.end()};
    }

    // Swallows the next request of this option; its reply is the test's to give.
    void HangOnce(int option) {
        hung = false;
        service.SetHook([this, option](const Seen& request) {
            return request.kind == kControlSetOption &&
                   request.number == static_cast<std::uint32_t>(option) && !hung.exchange(true);
        });
    }
    void AnswerLate(std::uint32_t error = 0) {
        ControlSocketService::Reply(service.Requests().back(), error);
    }
    // The note-on of a chord reaches the service and is not answered in time; its note-off is not sent.
    void HoldAndReleaseWhileHung() {
        HangOnce(kPort);
        ASSERT_EQ(ETIMEDOUT, Set(kPort, Notes(100)).error);
        const Outcome noteOff = Set(kPort, Notes(0, 2));
        ASSERT_EQ(ETIMEDOUT, noteOff.error);
        ExpectAtOnce(noteOff);
        ASSERT_EQ(std::vector<int>{kPort}, Later());
    }

    bool HasEvent(int milliseconds = 0) const {
        pollfd waiting{control.EventDescriptor(), POLLIN, 0};
        return poll(&waiting, 1, milliseconds) == 1;
    }
    // An event loop, until the condition holds or for 20 s.
    void ServeUntil(const std::function<bool()>& condition) {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (!condition()) {
            ASSERT_LT(std::chrono::steady_clock::now(), end);
            if (HasEvent(10)) {
                control.Serve();
            }
        }
    }

    std::atomic<bool> hung = false;
    std::size_t seenBefore = 0;
};

TEST_F(ControlSocketUpkeepTest, ANoteOffThatCouldNotBeSentGoesOutWithoutAFurtherCall) {
    OpenTestOutput();
    HoldAndReleaseWhileHung();
    EXPECT_FALSE(HasEvent());
    AnswerLate();
    ServeUntil([this] { return Later().size() == 2; });
    EXPECT_EQ((std::vector<int>{kPort, kPort}), Later());
    EXPECT_EQ(Notes(0, 2), service.Requests().back().payload);
}

TEST_F(ControlSocketUpkeepTest, AnOwedNoteOffGoesOutBeforeTheNextCall) {
    OpenTestOutput();
    HoldAndReleaseWhileHung();
    AnswerLate();
    EXPECT_EQ(0, Set(kOptionReloadConfiguration).error);
    EXPECT_EQ((std::vector<int>{kPort, kPort, kOptionReloadConfiguration}), Later());
}

TEST_F(ControlSocketUpkeepTest, AnOwedNoteOffGoesOutOnce) {
    OpenTestOutput();
    HoldAndReleaseWhileHung();
    Set(kPort, Notes(0, 3));  // the same notes at another time
    AnswerLate();
    EXPECT_EQ(0, Set(kOptionReloadConfiguration).error);
    EXPECT_EQ(0, Set(kOptionReloadConfiguration).error);
    EXPECT_EQ((std::vector<int>{kPort, kPort, kOptionReloadConfiguration, kOptionReloadConfiguration}),
              Later());
}

TEST_F(ControlSocketUpkeepTest, NoteOffsOfDifferentChordsAreAllOwedInTheirOrder) {
    OpenTestOutput();
    HoldAndReleaseWhileHung();
    Set(kPort, Notes(0, 3, 48));
    AnswerLate();
    EXPECT_EQ(0, Set(kOptionReloadConfiguration).error);
    ASSERT_EQ((std::vector<int>{kPort, kPort, kPort, kOptionReloadConfiguration}), Later());
    const auto seen = service.Requests();
    EXPECT_EQ(Notes(0, 2), seen[seen.size() - 3].payload);
    EXPECT_EQ(Notes(0, 3, 48), seen[seen.size() - 2].payload);
}

TEST_F(ControlSocketUpkeepTest, ANoteOnThatCouldNotBeSentIsNotOwed) {
    OpenTestOutput();
    HangOnce(kOptionReloadConfiguration);
    ASSERT_EQ(ETIMEDOUT, Set(kOptionReloadConfiguration).error);
    EXPECT_EQ(ETIMEDOUT, Set(kPort, Notes(100)).error);
    AnswerLate();
    EXPECT_EQ(0, Set(kOptionWirelessOn).error);
    EXPECT_EQ((std::vector<int>{kOptionReloadConfiguration, kOptionWirelessOn}), Later());
}

TEST_F(ControlSocketUpkeepTest, AnOwedNoteOffReachesARestartedServiceWithoutAFurtherCall) {
    OpenTestOutput();
    HoldAndReleaseWhileHung();
    service.Stop();
    service.Start();
    ServeUntil([this] { return Later().size() == 5; });
    EXPECT_EQ((std::vector<int>{kPort, -1, kOptionOpenTestOutput, kOptionActivateTestOutput, kPort}),
              Later());
    EXPECT_EQ(Notes(0, 2), service.Requests().back().payload);
}

TEST_F(ControlSocketUpkeepTest, AnOwedNoteOffReachesAServiceThatIsBackAfterAWhile) {
    OpenTestOutput();
    service.Stop();
    service.RemoveFile();
    EXPECT_EQ(ENOENT, Set(kPort, Notes(0)).error);
    ASSERT_TRUE(HasEvent(20000));  // it is looked for in vain
    control.Serve();
    service.Start();
    ServeUntil([this] { return Later().size() == 4; });
    EXPECT_EQ((std::vector<int>{-1, kOptionOpenTestOutput, kOptionActivateTestOutput, kPort}), Later());
}

TEST_F(ControlSocketUpkeepTest, ANoteOffThatWasSentIsOwedUntilItIsAnswered) {
    OpenTestOutput();
    HangOnce(kPort);
    ASSERT_EQ(ETIMEDOUT, Set(kPort, Notes(0)).error);
    service.Stop();
    service.Start();
    EXPECT_EQ(0, Set(kOptionReloadConfiguration).error);
    EXPECT_EQ((std::vector<int>{kPort, -1, kOptionOpenTestOutput, kOptionActivateTestOutput, kPort,
                                kOptionReloadConfiguration}),
              Later());
}

TEST_F(ControlSocketUpkeepTest, ANoteOffThatIsAnsweredLateIsNotSentAgain) {
    OpenTestOutput();
    HangOnce(kPort);
    ASSERT_EQ(ETIMEDOUT, Set(kPort, Notes(0)).error);
    AnswerLate();
    EXPECT_EQ(0, Set(kOptionReloadConfiguration).error);
    EXPECT_EQ((std::vector<int>{kPort, kOptionReloadConfiguration}), Later());
}

TEST_F(ControlSocketUpkeepTest, AnOwedNoteOffThatIsRefusedIsNoErrorOfTheCallAndNotRepeated) {
    OpenTestOutput();
    HoldAndReleaseWhileHung();
    service.SetHook([](const Seen& request) {
        if (request.number != kPort) {
            return false;
        }
        ControlSocketService::Reply(request, ENXIO);
        return true;
    });
    AnswerLate();
    EXPECT_EQ(0, Set(kOptionReloadConfiguration).error);
    EXPECT_EQ(0, Set(kOptionReloadConfiguration).error);
    EXPECT_EQ((std::vector<int>{kPort, kPort, kOptionReloadConfiguration, kOptionReloadConfiguration}),
              Later());
}

TEST_F(ControlSocketUpkeepTest, ANoteOffThatTheServiceHasNoRoomForIsGivenAgain) {
    OpenTestOutput();
    std::atomic<bool> isFull = true;
    service.SetHook([&isFull](const Seen& request) {
        if (request.number != kPort || !isFull) {
            return false;
        }
        ControlSocketService::Reply(request, ENOBUFS);
        return true;
    });
    EXPECT_EQ(ENOBUFS, Set(kPort, Notes(0)).error);
    EXPECT_EQ(0, Set(kOptionReloadConfiguration).error);
    EXPECT_EQ((std::vector<int>{kPort, kPort, kOptionReloadConfiguration}), Later());
    isFull = false;
    ServeUntil([this] { return !service.Accepted().empty() && service.Accepted().back().first == kPort; });
}

TEST_F(ControlSocketUpkeepTest, AServiceThatStaysHungIsNotAskedAgainForWhatIsOwed) {
    OpenTestOutput();
    HoldAndReleaseWhileHung();
    EXPECT_FALSE(HasEvent(600));
    EXPECT_EQ(std::vector<int>{kPort}, Later());
}

TEST_F(ControlSocketUpkeepTest, NothingHappensWhileNothingIsOwed) {
    OpenTestOutput();
    EXPECT_EQ(0, Set(kPort, Notes(100)).error);
    EXPECT_EQ(0, Set(kPort, Notes(0)).error);
    EXPECT_FALSE(HasEvent(400));
    HangOnce(kOptionReloadConfiguration);
    ASSERT_EQ(ETIMEDOUT, Set(kOptionReloadConfiguration).error);
    AnswerLate();
    EXPECT_FALSE(HasEvent(400));
}

TEST_F(ControlSocketUpkeepTest, ATestOutputWhoseClosingWasAnsweredLateIsOpenedAgainBeforeTheNextPlay) {
    OpenTestOutput();
    HangOnce(kOptionDeactivateTestOutput);
    ASSERT_EQ(ETIMEDOUT, Set(kOptionDeactivateTestOutput, Index()).error);
    AnswerLate();
    EXPECT_EQ(0, Set(kOptionReloadConfiguration).error);
    Forget();
    EXPECT_EQ(0, Set(kPort, Notes(100)).error);
    EXPECT_EQ(0, Set(kPort, Notes(0)).error);
    EXPECT_EQ((std::vector<int>{kOptionOpenTestOutput, kOptionActivateTestOutput, kPort, kPort}), Later());
    const auto accepted = service.Accepted();
    EXPECT_EQ(TestOutputRecord(), accepted[accepted.size() - 4].second);
}

TEST_F(ControlSocketUpkeepTest, ATestOutputWhoseClosingWasRefusedLateIsNotOpenedAgain) {
    OpenTestOutput();
    HangOnce(kOptionDeactivateTestOutput);
    ASSERT_EQ(ETIMEDOUT, Set(kOptionDeactivateTestOutput, Index()).error);
    AnswerLate(EIO);
    EXPECT_EQ(0, Set(kPort, Notes(100)).error);
    EXPECT_EQ((std::vector<int>{kOptionDeactivateTestOutput, kPort}), Later());
}

TEST_F(ControlSocketUpkeepTest, ATestOutputThatIsNotOpenForAPlayIsOpenedBeforeTheNextOne) {
    OpenTestOutput();
    service.SetHook([used = false](const Seen& request) mutable {
        if (request.number != kPort || std::exchange(used, true)) {
            return false;
        }
        ControlSocketService::Reply(request, ENXIO);
        return true;
    });
    EXPECT_EQ(ENXIO, Set(kPort, Notes(100)).error);
    EXPECT_EQ(0, Set(kPort, Notes(0)).error);
    EXPECT_EQ((std::vector<int>{kPort, kOptionOpenTestOutput, kOptionActivateTestOutput, kPort}), Later());
}

TEST_F(ControlSocketUpkeepTest, ATestOutputThatIsRefusedAgainLeavesThePlayItsOwnError) {
    OpenTestOutput();
    HangOnce(kOptionDeactivateTestOutput);
    ASSERT_EQ(ETIMEDOUT, Set(kOptionDeactivateTestOutput, Index()).error);
    AnswerLate();
    service.SetHook([](const Seen& request) {
        ControlSocketService::Reply(request, request.number == kPort ? ENXIO : EPERM);
        return true;
    });
    EXPECT_EQ(ENXIO, Set(kPort, Notes(100)).error);
    EXPECT_EQ((std::vector<int>{kOptionDeactivateTestOutput, kOptionOpenTestOutput, kPort}), Later());
}

TEST_F(ControlSocketUpkeepTest, ATestOutputThatThePanelHasClosedIsNotOpenedForAPlay) {
    OpenTestOutput();
    ASSERT_EQ(0, Set(kOptionDeactivateTestOutput, Index()).error);
    service.SetHook([](const Seen& request) {
        ControlSocketService::Reply(request, ENXIO);
        return true;
    });
    EXPECT_EQ(ENXIO, Set(kPort, Notes(100)).error);
    EXPECT_EQ(ENXIO, Set(kPort, Notes(100)).error);
    EXPECT_EQ((std::vector<int>{kOptionDeactivateTestOutput, kPort, kPort}), Later());
}

TEST_F(ControlSocketUpkeepTest, ARestartedServiceGetsWirelessAndQuantizationWithoutACall) {
    OpenTestOutput();
    ASSERT_EQ(0, Set(kOptionWirelessOff).error);
    ASSERT_EQ(0, Set(kOptionSendGranularity, {2, 0, 0, 0}).error);
    ASSERT_EQ(0, Set(kOptionWirelessOn).error);
    ASSERT_EQ(0, Set(kOptionSendGranularity, {37, 0, 0, 0}).error);
    Forget();
    service.Stop();
    service.Start();
    ServeUntil([this] { return Later().size() == 5; });
    EXPECT_EQ((std::vector<int>{-1, kOptionOpenTestOutput, kOptionActivateTestOutput, kOptionWirelessOn,
                                kOptionSendGranularity}),
              Later());
    EXPECT_EQ((Bytes{37, 0, 0, 0}), service.Requests().back().payload);
}

TEST_F(ControlSocketUpkeepTest, ARestartedServiceGetsWirelessAndQuantizationBeforeTheNextCall) {
    OpenAttached();
    ASSERT_EQ(0, Set(kOptionWirelessOn).error);
    ASSERT_EQ(0, Set(kOptionSendGranularity, {37, 0, 0, 0}).error);
    Forget();
    service.Stop();
    service.Start();
    EXPECT_EQ(0, Set(kOptionBrowseHosts).error);
    EXPECT_EQ((std::vector<int>{-1, kOptionWirelessOn, kOptionSendGranularity, kOptionBrowseHosts}), Later());
}

TEST_F(ControlSocketUpkeepTest, ARestartedServiceGetsWhatWasAskedForWhileItWasGone) {
    OpenAttached();
    ASSERT_EQ(0, Set(kOptionSendGranularity, {2, 0, 0, 0}).error);
    service.Stop();
    ASSERT_EQ(ECONNREFUSED, Set(kOptionSendGranularity, {37, 0, 0, 0}).error);
    Forget();
    service.Start();
    ServeUntil([this] { return Later().size() == 2; });
    EXPECT_EQ((std::vector<int>{-1, kOptionSendGranularity}), Later());
    EXPECT_EQ((Bytes{37, 0, 0, 0}), service.Requests().back().payload);
}

TEST_F(ControlSocketUpkeepTest, ARestartedServiceDoesNotGetAQuantizationThatWasRefused) {
    OpenAttached();
    ASSERT_EQ(0, Set(kOptionSendGranularity, {2, 0, 0, 0}).error);
    ASSERT_EQ(EINVAL, Set(kOptionSendGranularity, {37}).error);
    Forget();
    service.Stop();
    service.Start();
    EXPECT_EQ(0, Set(kOptionBrowseHosts).error);
    EXPECT_EQ((std::vector<int>{-1, kOptionSendGranularity, kOptionBrowseHosts}), Later());
    EXPECT_EQ((Bytes{2, 0, 0, 0}), service.Requests()[service.Requests().size() - 2].payload);
}

TEST_F(ControlSocketUpkeepTest, AServiceThatIsGoneIsLookedForLessAndLessOften) {
    OpenAttached();
    service.Stop();
    service.RemoveFile();
    ASSERT_TRUE(HasEvent(20000));
    control.Serve();
    const auto start = std::chrono::steady_clock::now();
    for (int look = 0; look < 3; ++look) {
        ASSERT_TRUE(HasEvent(20000));
        control.Serve();
    }
    // 250, 500 and 1000 ms.
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(1740));
}

}  // namespace
}  // namespace vexil
