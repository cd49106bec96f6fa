#include "service/backends/RuntimeState.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "tests/doubles/LogCapture.h"

namespace vexil {
namespace {

class RuntimeStateTest : public ::testing::Test {
  protected:
    RuntimeStateTest() {
        std::string pattern = ::testing::TempDir() + "vexil-state-XXXXXX";
        folder = ::mkdtemp(pattern.data());
    }
    ~RuntimeStateTest() override { std::filesystem::remove_all(folder); }

    std::string folder;
};

TEST_F(RuntimeStateTest, TheFirstServiceFollowsNoUncleanEnd) {
    EXPECT_FALSE(RuntimeState(folder).LastEndWasUnclean());
}

TEST_F(RuntimeStateTest, AServiceThatWasKilledHasEndedUncleanly) {
    { const RuntimeState killed(folder); }
    EXPECT_TRUE(RuntimeState(folder).LastEndWasUnclean());
}

TEST_F(RuntimeStateTest, ACleanEndIsNoUncleanOne) {
    {
        const RuntimeState state(folder);
        state.EndCleanly();
    }
    EXPECT_FALSE(RuntimeState(folder).LastEndWasUnclean());
}

TEST_F(RuntimeStateTest, ACleanEndAfterAnUncleanOneIsClean) {
    { const RuntimeState killed(folder); }
    RuntimeState(folder).EndCleanly();
    EXPECT_FALSE(RuntimeState(folder).LastEndWasUnclean());
}

TEST_F(RuntimeStateTest, WithoutAFolderNothingIsRemembered) {
    const RuntimeState state;
    state.EndCleanly();
    EXPECT_FALSE(state.LastEndWasUnclean());
    EXPECT_EQ(state.PathOf("connections"), "");
}

TEST_F(RuntimeStateTest, AFolderThatIsMissingIsToldOf) {
    const LogCapture log;
    const RuntimeState state(folder + "/missing");
    EXPECT_FALSE(state.LastEndWasUnclean());
    EXPECT_EQ(log.Text(), "Cannot make " + folder + "/missing/vexil3d.running: No such file or directory.\n");
}

}  // namespace
}  // namespace vexil
