// Who may connect: processes of other users, with and without the group.
#include <gmock/gmock.h>
#include <grp.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <vector>

#include "tests/service/control/ControlServerFixture.h"

namespace vexil {
namespace {

using ::testing::ElementsAre;

class ControlServerPeerTest : public ControlServerFixture {
  protected:
    static constexpr gid_t kGroup = 54321;
    static constexpr uid_t kStranger = 54322;

    ControlServerPeerTest() : ControlServerFixture(kGroup) {}
    void SetUp() override {
        if (geteuid() != 0) {
            GTEST_SKIP() << "needs root, to start a process of another user";
        }
        ASSERT_EQ(0, chmod(path.c_str(), 0666));
        ASSERT_EQ(0, chmod(folder.Path().c_str(), 0755));
    }

    // Whether a process of another user, with these groups, gets an answer.
    bool IsServed(uid_t user, gid_t group, const std::vector<gid_t>& more) {
        const pid_t child = fork();
        if (child == 0) {
            const bool isOther =
                setgroups(more.size(), more.data()) == 0 && setgid(group) == 0 && setuid(user) == 0;
            const RawClient client(path);
            client.Send(1, kControlReload, 0);
            std::uint8_t reply[64];
            const ssize_t size = recv(client.Number(), reply, sizeof reply, 0);
            _exit(!isOther ? 2 : size > 0 ? 0 : 1);
        }
        int status = 0;
        while (waitpid(child, &status, WNOHANG) == 0) {
            Serve();
        }
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) != 2);
        return WEXITSTATUS(status) == 0;
    }
};

TEST_F(ControlServerPeerTest, StrangerIsTurnedAway) {
    EXPECT_FALSE(IsServed(kStranger, 54323, {}));
    EXPECT_THAT(driver.asked, ElementsAre("refused"));
}

TEST_F(ControlServerPeerTest, MemberOfTheGroupIsServed) {
    EXPECT_TRUE(IsServed(kStranger, kGroup, {}));
    EXPECT_TRUE(IsServed(kStranger, 54323, {1, 2, kGroup}));
}

TEST_F(ControlServerPeerTest, MemberOfManyGroupsIsServed) {
    std::vector<gid_t> groups(2000);
    for (std::size_t i = 0; i < groups.size(); ++i) {
        groups[i] = static_cast<gid_t>(60000 + i);
    }
    EXPECT_FALSE(IsServed(kStranger, 54323, groups));
    groups.back() = kGroup;
    EXPECT_TRUE(IsServed(kStranger, 54323, groups));
}

TEST_F(ControlServerPeerTest, GroupMeansNothingToAUsersOwnService) {
    server = std::make_unique<ControlServer>(listening.Number(), std::nullopt, driver);
    EXPECT_FALSE(IsServed(kStranger, kGroup, {}));
}

}  // namespace
}  // namespace vexil
