// Initialising a store, and what a store refuses that is not initialised.
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <functional>
#include <iterator>
#include <utility>

#include "shared/System/svLog.h"
#include "tests/config/StoreFixture.h"
#include "tests/doubles/FaultyPreferenceDomains.h"

namespace vexil {
namespace {

class InitializeTest : public StoreTest {};

TEST_F(InitializeTest, WithoutAnIdTheStoreIsNotInitialised) {
    const PreferencesStore store(domains, nullptr, true);
    EXPECT_FALSE(store.IsInitialized());
    EXPECT_EQ(store.User(), kAny);
    EXPECT_TRUE(domains.Synchronized().empty());
    EXPECT_EQ(log.Text(), "");
}

TEST_F(InitializeTest, TheFlagPicksTheUserScope) {
    EXPECT_EQ(PreferencesStore(domains, nullptr, false).User(), kOwn);
    EXPECT_EQ(PreferencesStore(domains, kApp, true).User(), kAny);
    EXPECT_EQ(PreferencesStore(domains, kApp, false).User(), kOwn);
}

TEST_F(InitializeTest, SynchronizesTheDomainOnTheCurrentHost) {
    EXPECT_TRUE(PreferencesStore(domains, kApp, false).IsInitialized());
    ASSERT_EQ(domains.Synchronized().size(), 1u);
    EXPECT_EQ(domains.Synchronized()[0], (PreferenceDomainId{kApp, kOwn, kHere}));
}

TEST_F(InitializeTest, TracesItsSteps) {
    PreferencesStore store(domains, nullptr, true);
    store.SetVerbose(true);
    EXPECT_TRUE(store.Initialize(kApp, true));
    EXPECT_EQ(log.Text(), "Initialize: App 'com.example.App'\nInitialize: Synchronizing 1\n");
}

TEST_F(InitializeTest, SaysNothingUnlessVerbose) {
    PreferencesStore store(domains, nullptr, true);
    EXPECT_TRUE(store.Initialize(kApp, true));
    EXPECT_EQ(log.Text(), "");
}

TEST_F(InitializeTest, ANullIdIsRefusedSilentlyAndChangesNothing) {
    PreferencesStore store = OpenVerbose();
    EXPECT_FALSE(store.Initialize(nullptr, false));
    EXPECT_TRUE(store.IsInitialized());
    EXPECT_EQ(store.User(), kAny);
    EXPECT_EQ(log.Text(), "");
}

TEST_F(InitializeTest, AnIdThatCannotBeMadeIsLoggedAndChangesNothing) {
    Put("Key", MakePropertyNumber(5));
    PreferencesStore store = Open();
    const std::string id(kMaxPropertyTextBytes + 1, 'x');
    EXPECT_FALSE(store.Initialize(id.c_str(), false));
    EXPECT_EQ(log.Text(), "GetEntryString: CFString NULL\n");
    EXPECT_TRUE(store.IsInitialized());
    EXPECT_EQ(store.User(), kAny);
    EXPECT_EQ(store.GetInt("Key", store.User(), 0), 5);
}

TEST_F(InitializeTest, AFailedSynchronizationLeavesTheStoreUninitialised) {
    FaultyPreferenceDomains faulty(domains);
    faulty.FailAll(true);
    PreferencesStore store(faulty, nullptr, true);
    store.SetVerbose(true);
    EXPECT_FALSE(store.Initialize(kApp, true));
    EXPECT_FALSE(store.IsInitialized());
    EXPECT_EQ(log.Text(), "Initialize: App 'com.example.App'\nInitialize: Synchronizing 0\n");
}

TEST_F(InitializeTest, AFailedSynchronizationTakesUpTheNewScope) {
    FaultyPreferenceDomains faulty(domains);
    PreferencesStore store(faulty, kApp, true);
    faulty.FailAll(true);
    EXPECT_FALSE(store.Initialize("com.example.Other", false));
    EXPECT_FALSE(store.IsInitialized());
    EXPECT_EQ(store.User(), kOwn);
}

TEST_F(InitializeTest, MayBeCalledAgainAfterAFailure) {
    FaultyPreferenceDomains faulty(domains);
    faulty.FailOnceAfter(0);
    PreferencesStore store(faulty, kApp, true);
    EXPECT_FALSE(store.IsInitialized());
    EXPECT_TRUE(store.Initialize(kApp, true));
    EXPECT_TRUE(store.IsInitialized());
}

TEST_F(InitializeTest, MovesTheStoreToAnotherDomain) {
    Put("Key", MakePropertyNumber(5));
    PreferencesStore store = Open();
    EXPECT_TRUE(store.Initialize("com.example.Other", true));
    EXPECT_EQ(store.GetInt("Key", store.User(), 0), 0);
    EXPECT_TRUE(store.Initialize(kApp, true));
    EXPECT_EQ(store.GetInt("Key", store.User(), 0), 5);
}

class UninitialisedTest : public StoreTest {
  protected:
    UninitialisedTest() : faulty(domains) { faulty.FailApplication(kApp); }
    std::string Refusal(const char* operation, const char* refused) {
        return Printed("%s Not initialized or invalid Entry (%p).\n", operation,
                       static_cast<const void*>(refused));
    }

    FaultyPreferenceDomains faulty;
    const char* path = "Key";
};

TEST_F(UninitialisedTest, EveryReadIsRefusedAndLogged) {
    Put("Key", MakePropertyNumber(5));
    const PreferencesStore store(faulty, kApp, true);
    std::uint32_t size = 77;
    char buffer[8];
    const std::pair<const char*, std::function<bool()>> reads[] = {
        {"GetObjectOfType",
         [&] { return store.GetObjectOfType(path, PropertyType::Number, kAny) == nullptr; }},
        {"GetBinary", [&] { return !store.GetBinary(path, kAny, buffer, &size) && size == 77; }},
        {"GetString", [&] { return store.GetString(path, kAny, "default") == "default"; }},
        {"GetBool", [&] { return store.GetBool(path, kAny, true); }},
        {"GetInt", [&] { return store.GetInt(path, kAny, -3) == -3; }},
    };
    for (const auto& [name, refused] : reads) {
        log.Clear();
        EXPECT_TRUE(refused()) << name;
        EXPECT_EQ(log.Text(), Refusal("GetObjectOfType:", path)) << name;
    }
}

TEST_F(UninitialisedTest, EveryWriteIsRefusedAndLogged) {
    PreferencesStore store(faulty, kApp, true);
    const bool boolean = true;
    const std::int32_t number = 1;
    PropertyRef value = MakePropertyNumber(1);
    const std::pair<const char*, std::function<bool()>> writes[] = {
        {"PutObject", [&] { return store.PutObject(path, value, kAny, false); }},
        {"SetBinary", [&] { return store.SetBinary(path, kAny, "x", 1); }},
        {"SetString", [&] { return store.SetString(path, kAny, "x"); }},
        {"SetBool", [&] { return store.SetBool(path, kAny, &boolean); }},
        {"SetInt", [&] { return store.SetInt(path, kAny, &number); }},
    };
    for (const auto& [name, write] : writes) {
        log.Clear();
        EXPECT_FALSE(write()) << name;
        EXPECT_EQ(log.Text(), Refusal("PutObject:", path)) << name;
    }
    EXPECT_TRUE(domains.Changes().empty());
}

TEST_F(UninitialisedTest, ADirectPropertyWriteIsRefusedAndLogged) {
    PreferencesStore store(faulty, kApp, true);
    PropertyRef value = MakePropertyNumber(1);
    EXPECT_FALSE(store.SetSynchronizeProperty("Key", value, kAny, true));
    EXPECT_EQ(log.Count("SetSynchronizeProperty: Not initialized or invalid Entry (0x"), 1);
    EXPECT_EQ(value, nullptr);
}

TEST_F(StoreTest, ANullPathIsRefusedAndLogged) {
    PreferencesStore store = Open();
    EXPECT_EQ(store.GetInt(nullptr, kAny, 3), 3);
    EXPECT_EQ(log.Text(), Printed("GetObjectOfType: Not initialized or invalid Entry (%p).\n",
                                  static_cast<void*>(nullptr)));
    log.Clear();
    EXPECT_FALSE(store.SetString(nullptr, kAny, "x"));
    EXPECT_EQ(log.Text(),
              Printed("PutObject: Not initialized or invalid Entry (%p).\n", static_cast<void*>(nullptr)));
}

// In a process of its own, which ends before the log's closing line.
TEST_F(StoreTest, ItsLinesCarryTheLogsPrefix) {
    char path[] = "/tmp/vexil-store-log-XXXXXX";
    const int descriptor = mkstemp(path);
    ASSERT_NE(descriptor, -1);
    EXPECT_EXIT(
        {
            OpenLog("CtrlPanel: ", "", kLogAppend, path);
            PreferencesStore store(domains, nullptr, true);
            store.SetVerbose(true);
            store.Initialize(kApp, true);
            store.GetInt("A", kAny, 5);
            store.GetObjectOfType(nullptr, PropertyType::Number, kAny);
            _exit(0);
        },
        testing::ExitedWithCode(0), "");
    std::ifstream file(path);
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    close(descriptor);
    unlink(path);
    EXPECT_EQ(text.substr(text.find('\n') + 1),
              Printed("CtrlPanel: Initialize: App 'com.example.App'\n"
                      "CtrlPanel: Initialize: Synchronizing 1\n"
                      "CtrlPanel: GetObjectOfType: Getting Entry 'A'\n"
                      "CtrlPanel: GetInt: result 5\n"
                      "CtrlPanel: GetObjectOfType: Not initialized or invalid Entry (%p).\n",
                      static_cast<void*>(nullptr)));
}

class GetEntryStringTest : public StoreTest {};

TEST_F(GetEntryStringTest, GivesTheText) {
    const PreferencesStore store = Open();
    EXPECT_EQ(store.GetEntryString("01 PortFlags"), "01 PortFlags");
    EXPECT_EQ(store.GetEntryString(""), "");
    EXPECT_EQ(log.Text(), "");
}

TEST_F(GetEntryStringTest, OfATextThatIsTooLongIsNoneAndLogged) {
    const PreferencesStore store = Open();
    const std::string longest(kMaxPropertyTextBytes, 'x');
    EXPECT_EQ(store.GetEntryString(longest.c_str()), longest);
    EXPECT_EQ(log.Text(), "");
    EXPECT_EQ(store.GetEntryString((longest + "x").c_str()), std::nullopt);
    EXPECT_EQ(log.Text(), "GetEntryString: CFString NULL\n");
}

TEST_F(GetEntryStringTest, OfNoTextIsNoneAndLogged) {
    const PreferencesStore store = Open();
    EXPECT_EQ(store.GetEntryString(nullptr), std::nullopt);
    EXPECT_EQ(log.Text(), "GetEntryString: CFString NULL\n");
}

}  // namespace
}  // namespace vexil
