#include "platform/linux/network/KeyStore.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace vexil {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

ssize_t FullDisk(int /*file*/, const void* /*bytes*/, std::size_t /*count*/) {
    errno = ENOSPC;
    return -1;
}

std::string ReadAll(const std::string& path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

unsigned ModeOf(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 ? status.st_mode & 0777U : 0;
}

class KeyStoreTest : public testing::Test {
  protected:
    KeyStoreTest() {
        std::string name = (std::filesystem::temp_directory_path() / "vexil-keys-XXXXXX").string();
        root = mkdtemp(name.data());
        place = {root + "/state/network", "host1", "machine1"};
    }
    ~KeyStoreTest() override { std::filesystem::remove_all(root); }

    KeyStore Open(bool diskIsFull = false) {
        told.clear();
        DurabilityCalls calls = SystemDurabilityCalls();
        calls.write = diskIsFull ? FullDisk : calls.write;
        KeyStore store(
            place, [this](const std::string& line) { told.push_back(line); }, calls);
        store.Key();
        return store;
    }
    KeyHash KeyNow() { return Open().Key().value().Hash(); }
    std::string PathOf(const char* end) const { return place.folder + "/host1." + end; }
    // What was set aside, of a file.
    std::vector<std::string> SetAsideOf(const std::string& name) const {
        std::vector<std::string> contents;
        for (const auto& entry : std::filesystem::directory_iterator(place.folder)) {
            if (entry.path().filename().string().find(name + ".damaged-") == 0) {
                contents.push_back(ReadAll(entry.path()));
            }
        }
        return contents;
    }
    NetworkSettings SomeSettings() const {
        NetworkSettings settings;
        settings.speaks = InterfaceChoice::Loopback();
        settings.access.pins = {{KeyHash{1}, "studio", 5}};
        settings.secret = StretchedSecret{2};
        return settings;
    }

    std::string root;
    KeyPlace place;
    std::vector<std::string> told;
};

TEST_F(KeyStoreTest, AKeyIsMadeOnceAndIsThisUsersAlone) {
    const KeyHash first = KeyNow();
    EXPECT_THAT(told, ElementsAre("Made a new key for the network: " + ShortKeyText(first)));
    EXPECT_EQ(ModeOf(PathOf("key")), 0600U);
    EXPECT_EQ(ModeOf(place.folder), 0700U);
    EXPECT_EQ(KeyNow(), first);
    EXPECT_THAT(told, IsEmpty());
}

TEST_F(KeyStoreTest, ComputersThatShareAHomeHaveTheirOwnKeys) {
    const KeyHash first = KeyNow();
    place.hostId = "host2";
    const KeyHash second = KeyNow();
    EXPECT_NE(first, second);
    place.hostId = "host1";
    EXPECT_EQ(KeyNow(), first);
}

TEST_F(KeyStoreTest, AKeyThatWasMadeForAnotherComputerIsNotUsed) {
    const KeyHash first = KeyNow();
    place.machineId = "machine2";
    EXPECT_NE(KeyNow(), first);
    EXPECT_THAT(told,
                ElementsAre(HasSubstr("the key was made for another computer"), HasSubstr("Made a new key")));
    EXPECT_THAT(SetAsideOf("host1.key"), testing::SizeIs(1));
    KeyNow();
    EXPECT_THAT(told, IsEmpty());
}

TEST_F(KeyStoreTest, ADamagedKeyIsKeptAsideAndANewOneMade) {
    const KeyHash first = KeyNow();
    for (const std::string damaged : {"", "garbage", "vexil3 key 1\nmachine machine1\nno key\n"}) {
        std::filesystem::remove_all(place.folder);
        std::filesystem::create_directories(place.folder);
        std::ofstream(PathOf("key")) << damaged;
        EXPECT_NE(KeyNow(), first);
        EXPECT_THAT(told, testing::Contains(HasSubstr("the key is damaged")));
        EXPECT_THAT(told, testing::Contains(HasSubstr("Made a new key")));
        EXPECT_THAT(SetAsideOf("host1.key"), ElementsAre(damaged));
    }
}

TEST_F(KeyStoreTest, WhatIsNoFileIsKeptAside) {
    std::filesystem::create_directories(PathOf("key"));
    EXPECT_TRUE(Open().Key());
    EXPECT_THAT(told, testing::Contains(HasSubstr("Set aside")));
    EXPECT_EQ(ModeOf(PathOf("key")), 0600U);
}

TEST_F(KeyStoreTest, AKeyThatOthersCouldReadIsClosedAndTold) {
    const KeyHash first = KeyNow();
    ASSERT_EQ(chmod(PathOf("key").c_str(), 0644), 0);
    EXPECT_EQ(KeyNow(), first);
    EXPECT_EQ(ModeOf(PathOf("key")), 0600U);
    EXPECT_THAT(told, ElementsAre(HasSubstr("Others could read")));
}

TEST_F(KeyStoreTest, SettingsComeBack) {
    KeyStore store = Open();
    EXPECT_EQ(store.Settings(), NetworkSettings());
    EXPECT_TRUE(store.Save(SomeSettings()));
    EXPECT_EQ(store.Settings(), SomeSettings());
    EXPECT_EQ(Open().Settings(), SomeSettings());
    EXPECT_EQ(ModeOf(PathOf("network")), 0600U);
}

TEST_F(KeyStoreTest, DamagedSettingsAreKeptAsideAndTheNetworkIsOff) {
    ASSERT_TRUE(Open().Save(SomeSettings()));
    std::ofstream(PathOf("network"), std::ios::app) << "garbage";
    const std::string damaged = ReadAll(PathOf("network"));
    EXPECT_EQ(Open().Settings(), NetworkSettings());
    EXPECT_THAT(told, ElementsAre(HasSubstr("the network is off")));
    EXPECT_THAT(SetAsideOf("host1.network"), ElementsAre(damaged));
}

TEST_F(KeyStoreTest, AFullDiskKeepsTheOldPins) {
    ASSERT_TRUE(Open().Save(SomeSettings()));
    const std::string before = ReadAll(PathOf("network"));
    KeyStore store = Open(true);
    NetworkSettings changed = SomeSettings();
    changed.access.pins.clear();
    EXPECT_FALSE(store.Save(changed));
    EXPECT_EQ(store.Settings(), SomeSettings());
    EXPECT_EQ(ReadAll(PathOf("network")), before);
    EXPECT_THAT(told, ElementsAre(HasSubstr("No space left on device")));
}

TEST_F(KeyStoreTest, AFullDiskKeepsTheOldKey) {
    const KeyHash first = KeyNow();
    KeyStore store = Open(true);
    EXPECT_FALSE(store.MakeNewKey());
    EXPECT_EQ(store.Key()->Hash(), first);
    EXPECT_EQ(KeyNow(), first);
}

TEST_F(KeyStoreTest, WhereAKeyCannotBeStoredItCountsUntilTheEnd) {
    KeyStore store = Open(true);
    EXPECT_TRUE(store.Key());
    EXPECT_THAT(told,
                ElementsAre(HasSubstr("No space left on device"), HasSubstr("until this program ends")));
    place.folder = "";
    EXPECT_TRUE(Open().Key());
    EXPECT_THAT(told, ElementsAre(HasSubstr("this user has no home"), HasSubstr("until this program ends")));
}

TEST_F(KeyStoreTest, ANewKeyReplacesTheOldOne) {
    KeyStore store = Open();
    const KeyHash first = store.Key()->Hash();
    EXPECT_TRUE(store.MakeNewKey());
    EXPECT_NE(store.Key()->Hash(), first);
    EXPECT_EQ(KeyNow(), store.Key()->Hash());
}

TEST_F(KeyStoreTest, NothingIsWrittenBeforeTheKeyIsAskedFor) {
    KeyStore store(place, [this](const std::string& line) { told.push_back(line); });
    EXPECT_TRUE(store.Settings().speaks.IsOff());
    EXPECT_FALSE(std::filesystem::exists(place.folder));
    EXPECT_THAT(told, IsEmpty());
    EXPECT_TRUE(store.Key());
    EXPECT_TRUE(std::filesystem::exists(PathOf("key")));
}

TEST_F(KeyStoreTest, WhatCannotBeReadIsNotReplaced) {
    if (geteuid() == 0) {
        GTEST_SKIP() << "root reads every file";
    }
    ASSERT_TRUE(Open().Save(SomeSettings()));
    ASSERT_EQ(chmod(PathOf("key").c_str(), 0), 0);
    ASSERT_EQ(chmod(PathOf("network").c_str(), 0), 0);
    KeyStore store = Open();
    EXPECT_FALSE(store.Key());
    EXPECT_TRUE(store.Settings().speaks.IsOff());
    EXPECT_FALSE(store.Save(SomeSettings()));
    EXPECT_THAT(told, testing::Contains(HasSubstr("Permission denied")));
}

}  // namespace
}  // namespace vexil
