#include "service/backends/ConnectionMemory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "tests/doubles/LogCapture.h"

namespace vexil {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class ConnectionMemoryTest : public ::testing::Test {
  protected:
    using Set = std::set<std::string>;

    ConnectionMemoryTest() {
        std::string pattern = ::testing::TempDir() + "vexil-connections-XXXXXX";
        folder = ::mkdtemp(pattern.data());
        path = folder + "/connections";
    }
    ~ConnectionMemoryTest() override { std::filesystem::remove_all(folder); }

    std::vector<std::string> Look(ConnectionMemory& memory, const Set& connected) {
        return memory.Look(
            0, true, connected, [this](const std::string& name) { return there.contains(name); }, now);
    }
    // The next service, which has found nothing connected.
    std::vector<std::string> LookAnew() {
        ConnectionMemory memory(path);
        return Look(memory, {});
    }

    std::string folder;
    std::string path;
    Set there = {"keys:out"};
    ConnectionMemory::Clock::time_point now{seconds(1000)};
};

TEST_F(ConnectionMemoryTest, NothingIsConnectedThatNeverWas) {
    ConnectionMemory memory(path);
    EXPECT_THAT(Look(memory, {}), IsEmpty());
}

TEST_F(ConnectionMemoryTest, WhatWasConnectedIsConnectedByTheNextService) {
    ConnectionMemory memory(path);
    EXPECT_THAT(Look(memory, {"keys:out"}), IsEmpty());
    memory.Save();
    EXPECT_THAT(LookAnew(), ElementsAre("keys:out"));
}

TEST_F(ConnectionMemoryTest, EachEndpointHasItsOwn) {
    ConnectionMemory memory(path);
    Look(memory, {"keys:out"});
    memory.Save();
    ConnectionMemory next(path);
    const auto isThere = [](const std::string&) { return true; };
    EXPECT_THAT(next.Look(0, false, {}, isThere, now), IsEmpty());
    EXPECT_THAT(next.Look(1, true, {}, isThere, now), IsEmpty());
    EXPECT_THAT(next.Look(0, true, {}, isThere, now), ElementsAre("keys:out"));
}

TEST_F(ConnectionMemoryTest, APortIsConnectedWhenItIsThere) {
    ConnectionMemory memory(path);
    Look(memory, {"keys:out"});
    memory.Save();
    there.clear();
    ConnectionMemory next(path);
    EXPECT_THAT(Look(next, {}), IsEmpty());
    there = {"keys:out"};
    EXPECT_THAT(Look(next, {}), ElementsAre("keys:out"));
    EXPECT_THAT(Look(next, {}), IsEmpty());
}

TEST_F(ConnectionMemoryTest, APortThatWentAndComesIsConnectedAgain) {
    ConnectionMemory memory(path);
    Look(memory, {"keys:out"});
    Look(memory, {});
    there.clear();
    now += seconds(10);
    EXPECT_THAT(Look(memory, {}), IsEmpty());
    there = {"keys:out"};
    EXPECT_THAT(Look(memory, {}), ElementsAre("keys:out"));
}

TEST_F(ConnectionMemoryTest, WhatSomebodyHasDisconnectedIsForgotten) {
    ConnectionMemory memory(path);
    Look(memory, {"keys:out"});
    EXPECT_FALSE(memory.NextLook());
    Look(memory, {});
    EXPECT_EQ(memory.NextLook(), now + ConnectionMemory::kGoing);
    now += ConnectionMemory::kGoing;
    EXPECT_THAT(Look(memory, {}), IsEmpty());
    EXPECT_FALSE(memory.NextLook());
    memory.Save();
    EXPECT_THAT(LookAnew(), IsEmpty());
}

TEST_F(ConnectionMemoryTest, AnEndpointThatComesAnewHasBeenDisconnectedByNobody) {
    ConnectionMemory memory(path);
    Look(memory, {"keys:out"});
    Look(memory, {});
    memory.Renew(0, true);
    now += seconds(10);
    EXPECT_THAT(Look(memory, {}), ElementsAre("keys:out"));
}

TEST_F(ConnectionMemoryTest, WhatCouldNotBeConnectedIsGivenAgainForAWhile) {
    ConnectionMemory memory(path);
    Look(memory, {"keys:out"});
    memory.Renew(0, true);
    for (int tries = 1; tries < ConnectionMemory::kMostTries; ++tries) {
        EXPECT_THAT(Look(memory, {}), ElementsAre("keys:out"));
        EXPECT_TRUE(memory.Failed(0, true, "keys:out", now));
        EXPECT_EQ(memory.NextLook(), now + ConnectionMemory::kRetry);
        EXPECT_THAT(Look(memory, {}), IsEmpty());
        now += ConnectionMemory::kRetry;
    }
    EXPECT_THAT(Look(memory, {}), ElementsAre("keys:out"));
    EXPECT_FALSE(memory.Failed(0, true, "keys:out", now));
    EXPECT_FALSE(memory.NextLook());
    now += seconds(100);
    EXPECT_THAT(Look(memory, {}), IsEmpty());
}

TEST_F(ConnectionMemoryTest, NamesOfAnyKindAreKept) {
    there = {"a b:c d ", "output 3 x", "Fl\xC3\xBCgel:\xFF", " lead"};
    ConnectionMemory memory(path);
    Look(memory, there);
    memory.Save();
    EXPECT_THAT(LookAnew(), ::testing::UnorderedElementsAreArray(there));
}

TEST_F(ConnectionMemoryTest, GarbageInTheFileIsLeftOut) {
    std::ofstream(path)
        << "output 64 keys:out\noutput -1 keys:out\noutput x\noutput\n\noutput 0\noutput 0 \n\x01\n"
           "input 0 keys:out\noutput 0 keys:out\noutput 0 keys:out";
    EXPECT_THAT(LookAnew(), ElementsAre("keys:out"));
}

TEST_F(ConnectionMemoryTest, AFolderThatIsMissingIsToldOfOnce) {
    LogCapture log;
    ConnectionMemory memory(folder + "/missing/connections");
    Look(memory, {"keys:out"});
    memory.Save();
    Look(memory, {"keys:out", "other:out"});
    memory.Save();
    EXPECT_EQ(log.Text(), "The connections cannot be remembered in " + folder +
                              "/missing/connections: No such file or directory.\n");
}

}  // namespace
}  // namespace vexil
