#include "service/backends/jack/JackServerWatch.h"

#include <gtest/gtest.h>
#include <poll.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace vexil {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

class JackServerWatchTest : public ::testing::Test {
  protected:
    JackServerWatchTest() {
        std::string pattern = ::testing::TempDir() + "vexil-watch-XXXXXX";
        folder = ::mkdtemp(pattern.data());
    }
    ~JackServerWatchTest() override { std::filesystem::remove_all(folder); }

    void Touch(const std::string& name) { std::ofstream(folder + "/" + name) << "x"; }
    static bool IsReadable(const JackServerWatch& watch) {
        pollfd event{watch.EventDescriptor(), POLLIN, 0};
        return ::poll(&event, 1, 0) == 1;
    }
    // Tries until there is no next try; how many there were.
    int TryAll(JackServerWatch& watch) {
        int tries = 0;
        while (watch.NextTry() && tries < 1000) {
            now = *watch.NextTry();
            watch.TryFailed(now);
            ++tries;
        }
        return tries;
    }

    std::string folder;
    JackServerWatch::Clock::time_point now{seconds(1000)};
};

TEST_F(JackServerWatchTest, TheFirstTryIsAtOnce) {
    JackServerWatch watch({{folder, "jack"}});
    EXPECT_FALSE(watch.NextTry());
    watch.Begin(now);
    EXPECT_EQ(watch.NextTry(), now);
}

TEST_F(JackServerWatchTest, TriesAreFewAndSoonOver) {
    JackServerWatch watch({{folder, "jack"}});
    watch.Begin(now);
    const auto start = now;
    EXPECT_LT(TryAll(watch), 20);
    EXPECT_LT(now - start, seconds(10));
    EXPECT_FALSE(watch.NextTry());
}

TEST_F(JackServerWatchTest, AServersFileBeginsNewTries) {
    JackServerWatch watch({{folder, "jack_x_"}});
    watch.Begin(now);
    TryAll(watch);
    Touch("jack_x_0_0");
    ASSERT_TRUE(IsReadable(watch));
    watch.TakeEvents(now);
    EXPECT_EQ(watch.NextTry(), now);
    EXPECT_GT(TryAll(watch), 5);
}

TEST_F(JackServerWatchTest, AFileThatIsMovedThereCountsAsWell) {
    JackServerWatch watch({{folder, "jack"}});
    watch.Begin(now);
    TryAll(watch);
    Touch("other");
    std::filesystem::rename(folder + "/other", folder + "/jack");
    watch.TakeEvents(now);
    EXPECT_TRUE(watch.NextTry());
}

TEST_F(JackServerWatchTest, AnotherFileIsNoServer) {
    JackServerWatch watch({{folder, "jack_x_"}});
    watch.Begin(now);
    TryAll(watch);
    Touch("jack_y_0_0");
    watch.TakeEvents(now);
    EXPECT_FALSE(watch.NextTry());
    EXPECT_FALSE(IsReadable(watch));
}

TEST_F(JackServerWatchTest, NothingWakesAfterTheEnd) {
    JackServerWatch watch({{folder, "jack"}});
    watch.Begin(now);
    Touch("jack-1");
    watch.End();
    EXPECT_FALSE(watch.NextTry());
    EXPECT_FALSE(IsReadable(watch));
    Touch("jack-2");
    EXPECT_FALSE(IsReadable(watch));
}

TEST_F(JackServerWatchTest, ItCanBeginAgain) {
    JackServerWatch watch({{folder, "jack"}});
    watch.Begin(now);
    watch.End();
    watch.Begin(now);
    TryAll(watch);
    Touch("jack-1");
    watch.TakeEvents(now);
    EXPECT_TRUE(watch.NextTry());
}

TEST_F(JackServerWatchTest, AFolderThatIsMissingIsNoProblem) {
    JackServerWatch watch({{folder + "/missing", "jack"}, {folder, "jack"}});
    watch.Begin(now);
    EXPECT_EQ(watch.Problem(), "");
    TryAll(watch);
    Touch("jack-1");
    watch.TakeEvents(now);
    EXPECT_TRUE(watch.NextTry());
}

TEST_F(JackServerWatchTest, ServersAreLookedForByTheNameThatClientsUse) {
    ::setenv("JACK_DEFAULT_SERVER", "studio", 1);
    ::setenv("XDG_RUNTIME_DIR", "/run/somebody", 1);
    ::unsetenv("PIPEWIRE_RUNTIME_DIR");
    ::setenv("PIPEWIRE_REMOTE", "pipewire-7", 1);
    const std::vector<JackServerWatch::Place> places = JackServerWatch::UsualPlaces();
    ASSERT_EQ(places.size(), 2U);
    EXPECT_EQ(places[0].folder, "/dev/shm");
    EXPECT_EQ(places[0].prefix, "jack_studio_");
    EXPECT_EQ(places[1].folder, "/run/somebody");
    EXPECT_EQ(places[1].prefix, "pipewire-7");
}

}  // namespace
}  // namespace vexil
