// What the store does when there is no memory. This program has an allocator of its own that fails on demand.
#include <new>
#include <set>

#include "tests/config/FailingAllocator.h"
#include "tests/config/StoreFixture.h"

namespace vexil {
namespace {

class StoreMemoryTest : public StoreTest {};

TEST_F(StoreMemoryTest, ANumberThatCannotBeMadeIsLogged) {
    PreferencesStore store = Open();
    const std::int32_t number = 1;
    {
        const FailingAllocation failing(0);
        EXPECT_FALSE(store.SetInt("A", kAny, &number));
    }
    EXPECT_EQ(log.Text(), "SetInt: CFNumber NULL\n");
    EXPECT_TRUE(domains.Changes().empty());
}

TEST_F(StoreMemoryTest, ATextThatCannotBeMadeIsLogged) {
    PreferencesStore store = Open();
    {
        const FailingAllocation failing(0);
        EXPECT_FALSE(store.SetString("A", kAny, "text"));
    }
    EXPECT_EQ(log.Text(), "SetString: CFString NULL\n");
}

TEST_F(StoreMemoryTest, ABlockThatCannotBeMadeIsLogged) {
    PreferencesStore store = Open();
    {
        const FailingAllocation failing(0);
        EXPECT_FALSE(store.SetBinary("A", kAny, "bytes", 5));
    }
    EXPECT_EQ(log.Text(), "SetBinary: CFData NULL\n");
}

TEST_F(StoreMemoryTest, AKeyThatCannotBeMadeIsLogged) {
    const PreferencesStore store = Open();
    {
        const FailingAllocation failing(0);
        EXPECT_EQ(store.GetEntryString("a key that is too long to be kept in place"), std::nullopt);
    }
    EXPECT_EQ(log.Text(), "GetEntryString: CFString NULL\n");
}

TEST_F(StoreMemoryTest, ABooleanNeedsNoMemoryOfItsOwn) {
    PreferencesStore store = Open();
    const bool yes = true;
    EXPECT_TRUE(store.SetBool("A", kAny, &yes));
    EXPECT_TRUE(SameProperty(Stored("A"), MakePropertyBoolean(true)));
}

// Wherever memory runs out on the way, the nested write fails with one of its lines, and neither the
// dictionary nor anything stored has changed.
TEST_F(StoreMemoryTest, ANestedWriteFailsWholeWhereverMemoryRunsOut) {
    const PropertyRef before = MakePropertyDictionary(
        {{"an entry whose key takes memory", MakePropertyDictionary({{"B", MakePropertyNumber(1)}})}});
    const char* const path = "an entry whose key takes memory/another entry whose key takes memory";
    const PropertyRef value = MakePropertyNumber(2);
    PreferencesStore store = Open();
    std::set<std::string> lines;
    bool done = false;
    for (long successes = 0; !done; ++successes) {
        PropertyDictionary dictionary = *before->As<PropertyDictionary>();
        bool thrown = false;
        bool result = false;
        {
            const FailingAllocation failing(successes);
            try {
                result = store.SetDictEntryValue(&dictionary, path, value);
            } catch (const std::bad_alloc&) {
                thrown = true;  // from the copy of the path, the one thing left to the allocator's exception
            }
            done = !failing.Happened();
        }
        EXPECT_EQ(result, done);
        EXPECT_TRUE(done || SameProperty(MakePropertyDictionary(dictionary), before)) << successes;
        if (!thrown) {
            lines.insert(log.Text());
        }
        log.Clear();
    }
    EXPECT_EQ(lines, (std::set<std::string>{"", "GetEntryString: CFString NULL\n",
                                            "GetDictEntryValue: NULL Dictionary given.\n"}));
}

TEST_F(StoreMemoryTest, AWriteThatRunsOutOfMemoryStoresNothingAndSaysSo) {
    Put("A", MakePropertyDictionary({{"B", MakePropertyNumber(1)}}));
    const PropertyRef before = Stored("A");
    PreferencesStore store = Open();
    int outOfMemory = 0;
    bool done = false;
    for (long successes = 0; !done; ++successes) {
        PropertyRef value = MakePropertyNumber(2);
        bool result = false;
        bool thrown = false;
        {
            const FailingAllocation failing(successes);
            try {
                result = store.PutObject("A/C", value, kAny, true);
            } catch (const std::bad_alloc&) {
                thrown = true;  // from the copy of the path or from the domains
            }
            done = !failing.Happened();
        }
        EXPECT_EQ(result, done);
        if (done) {
            break;
        }
        if (!thrown) {
            EXPECT_EQ(log.Text(), "PutObject: Out of memory.");
            EXPECT_EQ(value, nullptr);
            EXPECT_EQ(Stored("A"), before);
            ++outOfMemory;
        }
        log.Clear();
    }
    EXPECT_GE(outOfMemory, 2) << "the copy of the dictionary and the new entry";
}

}  // namespace
}  // namespace vexil
