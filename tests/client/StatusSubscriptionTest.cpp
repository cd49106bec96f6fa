// A program that hears of the service's status when it has changed, and of nothing else.
#include "client/StatusSubscription.h"

#include <gtest/gtest.h>
#include <poll.h>

#include <filesystem>
#include <mutex>

#include "tests/ctl/CtlFolder.h"
#include "tests/platform_linux/ControlSocketService.h"

namespace vexil {
namespace {

using namespace std::chrono_literals;
using Service = StatusNews::Service;
using Seen = ControlSocketService::Seen;

class StatusSubscriptionTest : public ::testing::Test {
  protected:
    StatusSubscriptionTest() {
        service.SetHook([this](const Seen& request) {
            const std::lock_guard lock(mutex);
            if (request.kind == kControlStatus) {
                AnswerStatus(request);
            } else if (isOld) {
                ControlSocketService::Reply(request, EINVAL);
            } else if (request.number != number) {
                ControlSocketService::Reply(request, 0, {number, 0, 0, 0});
            } else {
                waiting = request;
            }
            return true;
        });
    }
    ~StatusSubscriptionTest() override { service.Stop(); }

    void AnswerStatus(const Seen& request) {
        if (isSilent) {
            late = request;
        } else {
            ControlSocketService::Reply(request, 0, {status.begin(), status.end()});
        }
    }
    // The service's status becomes that one.
    void Become(const std::string& next) {
        const std::lock_guard lock(mutex);
        status = next;
        ++number;
        if (waiting) {
            ControlSocketService::Reply(*std::exchange(waiting, std::nullopt), 0, {number, 0, 0, 0});
        }
    }
    // Serves until there are news.
    StatusNews Await(StatusSubscription& subscription) {
        for (;;) {
            if (subscription.Serve()) {
                return subscription.News();
            }
            pollfd state{subscription.EventDescriptor(), POLLIN, 0};
            if (poll(&state, 1, 20'000) != 1) {
                ADD_FAILURE() << "no news";
                return subscription.News();
            }
        }
    }
    // The watch that waits for a change has come to the service.
    void AwaitWatch() {
        for (int tries = 0; tries < 20'000; ++tries) {
            {
                const std::lock_guard lock(mutex);
                if (waiting) {
                    return;
                }
            }
            std::this_thread::sleep_for(1ms);
        }
        FAIL() << "it does not watch";
    }
    // The service has been asked for its status, and has not answered.
    bool IsLate() {
        const std::lock_guard lock(mutex);
        return late.has_value();
    }
    static bool IsAsleep(const StatusSubscription& subscription) {
        pollfd state{subscription.EventDescriptor(), POLLIN, 0};
        return poll(&state, 1, 0) == 0;
    }

    std::mutex mutex;
    std::string status = "{}";
    std::uint8_t number = 5;
    bool isOld = false;
    bool isSilent = false;
    std::optional<Seen> waiting;
    std::optional<Seen> late;
    CtlFolder folder;
    ControlSocketService service{folder.SocketPath()};
};

TEST_F(StatusSubscriptionTest, TellsTheStatusAndEveryChangeOfItAndSleepsBetween) {
    service.Start();
    StatusSubscription subscription(folder.paths);
    EXPECT_EQ(Service::Running, Await(subscription).service);
    AwaitWatch();
    EXPECT_TRUE(IsAsleep(subscription));
    Become("{\"a\": 1}");
    EXPECT_EQ("{\"a\": 1}", Await(subscription).status);
    AwaitWatch();
    EXPECT_TRUE(IsAsleep(subscription));
    EXPECT_EQ(5U, service.Requests().size())
        << "two watches that were answered, one that waits, two statuses";
}

TEST_F(StatusSubscriptionTest, AServiceThatComesLaterIsSeen) {
    StatusSubscription subscription(folder.paths);
    const StatusNews none = Await(subscription);
    EXPECT_EQ(Service::Absent, none.service);
    EXPECT_EQ("no service is running at " + folder.SocketPath(), none.problem);
    EXPECT_TRUE(IsAsleep(subscription));
    service.Start();
    EXPECT_EQ(Service::Running, Await(subscription).service);
}

TEST_F(StatusSubscriptionTest, AServiceIsSeenWhoseFolderComesOnlyWithIt) {
    std::filesystem::remove(folder.paths.control);
    StatusSubscription subscription(folder.paths);
    EXPECT_EQ(Service::Absent, Await(subscription).service);
    std::filesystem::create_directory(folder.paths.control);
    while (!IsAsleep(subscription)) {
        EXPECT_FALSE(subscription.Serve());
    }
    service.Start();
    EXPECT_EQ(Service::Running, Await(subscription).service);
}

TEST_F(StatusSubscriptionTest, AServiceThatEndsAndComesBackIsSeen) {
    service.Start();
    StatusSubscription subscription(folder.paths);
    Await(subscription);
    for (int round = 0; round < 2; ++round) {
        service.Stop();
        service.RemoveFile();
        const StatusNews gone = Await(subscription);
        EXPECT_EQ(Service::Absent, gone.service);
        EXPECT_EQ("", gone.status);
        service.Start();
        EXPECT_EQ(Service::Running, Await(subscription).service);
    }
}

TEST_F(StatusSubscriptionTest, ASocketThatAKilledServiceLeftIsNoServiceAndCostsNoMoreThanAMoment) {
    service.Start();
    service.Stop();
    StatusSubscription subscription(folder.paths);
    EXPECT_EQ(Service::Absent, Await(subscription).service);
    pollfd state{subscription.EventDescriptor(), POLLIN, 0};
    int wakes = 0;
    while (poll(&state, 1, 1000) > 0) {
        EXPECT_FALSE(subscription.Serve());
        ++wakes;
    }
    EXPECT_LE(wakes, 8);
}

TEST_F(StatusSubscriptionTest, AServiceThatStandsStillIsToldAndSoIsThatItGoesOn) {
    isSilent = true;
    service.Start();
    StatusSubscription subscription(folder.paths, 10ms);
    const StatusNews silent = Await(subscription);
    EXPECT_EQ(Service::Silent, silent.service);
    EXPECT_EQ("the service does not answer", silent.problem);
    while (!IsLate()) {
        EXPECT_FALSE(subscription.Serve());
        std::this_thread::sleep_for(1ms);
    }
    ControlSocketService::Reply(*late, 0, {'{', '}'});
    EXPECT_EQ(Service::Running, Await(subscription).service);
}

TEST_F(StatusSubscriptionTest, OfAnEarlierServiceThereIsAStatusAndNoChange) {
    isOld = true;
    service.Start();
    StatusSubscription subscription(folder.paths);
    const StatusNews news = Await(subscription);
    EXPECT_EQ(Service::Running, news.service);
    EXPECT_EQ("{}", news.status);
    EXPECT_TRUE(IsAsleep(subscription));
    service.Stop();
    EXPECT_EQ(Service::Absent, Await(subscription).service);
}

TEST_F(StatusSubscriptionTest, AStatusThatComesInPartsIsJoined) {
    status = R"({"ports": [1], "next": 1})";
    service.SetHook([this](const Seen& request) {
        if (request.kind == kControlWatch) {
            if (request.number == 0) {
                ControlSocketService::Reply(request, 0, {1, 0, 0, 0});
            }
        } else {
            const std::string part = request.number == 0 ? status : R"({"ports": [2]})";
            ControlSocketService::Reply(request, 0, {part.begin(), part.end()});
        }
        return true;
    });
    service.Start();
    StatusSubscription subscription(folder.paths);
    EXPECT_EQ(R"({"ports":[1,2]})", Await(subscription).status);
}

}  // namespace
}  // namespace vexil
