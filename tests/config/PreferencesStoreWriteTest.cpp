// Storing values under key paths.
#include <limits>
#include <memory>
#include <utility>

#include "tests/config/StoreFixture.h"
#include "tests/doubles/FaultyPreferenceDomains.h"

namespace vexil {
namespace {

class PutObjectTest : public StoreTest {
  protected:
    bool PutNumber(PreferencesStore& store, const std::string& path, std::int32_t number) {
        PropertyRef value = MakePropertyNumber(number);
        return store.PutObject(path.c_str(), value, kAny, true);
    }
    void ExpectStored(const std::string& key, const PropertyRef& value) {
        EXPECT_TRUE(SameProperty(Stored(key), value)) << key;
    }

    const std::string tooLong = std::string(kMaxPropertyTextBytes + 1, 'x');
};

TEST_F(PutObjectTest, StoresATopLevelValueForGood) {
    PreferencesStore store = OpenVerbose();
    EXPECT_TRUE(PutNumber(store, "A", 1));
    ExpectStored("A", MakePropertyNumber(1));
    EXPECT_EQ(log.Text(), "PutObject: Setting Entry 'A'\nSetSynchronizeProperty: Synchronizing 1\n");
}

TEST_F(PutObjectTest, SaysNothingUnlessVerbose) {
    PreferencesStore store = Open();
    EXPECT_TRUE(PutNumber(store, "A", 1));
    EXPECT_TRUE(PutNumber(store, "B/C/D", 1));
    EXPECT_EQ(log.Text(), "");
}

TEST_F(PutObjectTest, EveryWriteIsSynchronizedAtOnce) {
    PreferencesStore store = Open();
    domains.Forget();
    EXPECT_TRUE(PutNumber(store, "A", 1));
    EXPECT_TRUE(PutNumber(store, "B/C", 1));
    EXPECT_EQ(domains.Changes().size(), 2u);
    ASSERT_EQ(domains.Synchronized().size(), 2u);
    EXPECT_EQ(domains.Synchronized()[1], (PreferenceDomainId{kApp, kAny, kHere}));
}

TEST_F(PutObjectTest, StoresInTheGivenUserScope) {
    PreferencesStore store = Open();
    PropertyRef value = MakePropertyNumber(1);
    EXPECT_TRUE(store.PutObject("A", value, kOwn, true));
    EXPECT_EQ(Stored("A"), nullptr);
    EXPECT_EQ(store.GetInt("A", kOwn, 0), 1);
}

TEST_F(PutObjectTest, MakesTheDictionariesOnTheWay) {
    PreferencesStore store = OpenVerbose();
    EXPECT_TRUE(PutNumber(store, "A/B/C", 1));
    ExpectStored("A",
                 MakePropertyDictionary({{"B", MakePropertyDictionary({{"C", MakePropertyNumber(1)}})}}));
    EXPECT_EQ(log.Text(),
              "PutObject: Setting Entry 'A/B/C'\n"
              "GetDictEntryValue: Setting Entry 'B/C'\n"
              "GetDictEntryValue: Setting Entry 'C'\n"
              "SetSynchronizeProperty: Synchronizing 1\n");
}

TEST_F(PutObjectTest, KeepsTheOtherEntriesOfADictionary) {
    Put("A", MakePropertyDictionary({{"Old", MakePropertyString("kept")},
                                     {"B", MakePropertyDictionary({{"Deep", MakePropertyBoolean(true)}})}}));
    PreferencesStore store = Open();
    EXPECT_TRUE(PutNumber(store, "A/New", 1));
    EXPECT_TRUE(PutNumber(store, "A/B/New", 2));
    ExpectStored("A",
                 MakePropertyDictionary({{"Old", MakePropertyString("kept")},
                                         {"New", MakePropertyNumber(1)},
                                         {"B", MakePropertyDictionary({{"Deep", MakePropertyBoolean(true)},
                                                                       {"New", MakePropertyNumber(2)}})}}));
}

TEST_F(PutObjectTest, ReplacesAnEntryOfADictionary) {
    Put("A", MakePropertyDictionary({{"B", MakePropertyString("old")}}));
    PreferencesStore store = Open();
    EXPECT_TRUE(PutNumber(store, "A/B", 1));
    ExpectStored("A", MakePropertyDictionary({{"B", MakePropertyNumber(1)}}));
}

TEST_F(PutObjectTest, ReplacesATopLevelValueThatIsNoDictionary) {
    Put("A", MakePropertyNumber(7));
    PreferencesStore store = Open();
    EXPECT_TRUE(PutNumber(store, "A/B", 1));
    ExpectStored("A", MakePropertyDictionary({{"B", MakePropertyNumber(1)}}));
}

TEST_F(PutObjectTest, ReplacesANestedValueThatIsNoDictionary) {
    Put("A", MakePropertyDictionary({{"B", MakePropertyNumber(7)}}));
    PreferencesStore store = Open();
    EXPECT_TRUE(PutNumber(store, "A/B/C", 1));
    ExpectStored("A",
                 MakePropertyDictionary({{"B", MakePropertyDictionary({{"C", MakePropertyNumber(1)}})}}));
}

TEST_F(PutObjectTest, NoneRemovesTheEntry) {
    Put("A", MakePropertyNumber(7));
    Put("B", MakePropertyDictionary({{"C", MakePropertyNumber(7)}, {"D", MakePropertyNumber(8)}}));
    PreferencesStore store = Open();
    PropertyRef none;
    EXPECT_TRUE(store.PutObject("A", none, kAny, true));
    EXPECT_TRUE(store.PutObject("B/C", none, kAny, true));
    EXPECT_EQ(Stored("A"), nullptr);
    ExpectStored("B", MakePropertyDictionary({{"D", MakePropertyNumber(8)}}));
}

TEST_F(PutObjectTest, LeavesAStoredDictionaryThatOthersHoldUnchanged) {
    Put("A", MakePropertyDictionary({{"B", MakePropertyNumber(1)}}));
    const PropertyRef held = Stored("A");
    PreferencesStore store = Open();
    EXPECT_TRUE(PutNumber(store, "A/B", 2));
    EXPECT_TRUE(SameProperty(held, MakePropertyDictionary({{"B", MakePropertyNumber(1)}})));
}

TEST_F(PutObjectTest, ATopLevelKeyThatCannotBeMadeIsLogged) {
    PreferencesStore store = Open();
    EXPECT_FALSE(PutNumber(store, tooLong, 1));
    EXPECT_EQ(log.Text(), "GetEntryString: CFString NULL\n");
    EXPECT_TRUE(domains.Changes().empty());
}

TEST_F(PutObjectTest, ANestedKeyThatCannotBeMadeEndsWithoutALineEnd) {
    Put("A", MakePropertyDictionary({{"B", MakePropertyNumber(1)}}));
    PreferencesStore store = Open();
    for (const std::string& path : {"A/" + tooLong, "A/B/" + tooLong, "A/C/" + tooLong}) {
        log.Clear();
        EXPECT_FALSE(PutNumber(store, path, 2));
        EXPECT_EQ(log.Text(), "GetEntryString: CFString NULL\nPutObject: Out of memory.");
    }
    EXPECT_TRUE(domains.Changes().empty());
    ExpectStored("A", MakePropertyDictionary({{"B", MakePropertyNumber(1)}}));
}

TEST_F(PutObjectTest, AFailedSynchronizationFailsTheWriteWithATraceOnly) {
    Put("A", MakePropertyNumber(7));
    FaultyPreferenceDomains faulty(domains);
    PreferencesStore store(faulty, kApp, true);
    store.SetVerbose(true);
    faulty.FailAll(true);
    EXPECT_FALSE(PutNumber(store, "A", 1));
    EXPECT_EQ(log.Text(), "PutObject: Setting Entry 'A'\nSetSynchronizeProperty: Synchronizing 0\n");
    EXPECT_EQ(store.GetInt("A", kAny, 0), 7);
    EXPECT_TRUE(store.IsInitialized());
}

// A way for PutObject to end, by its path.
class PutObjectReferenceTest : public PutObjectTest {
  protected:
    const std::string paths[5] = {"A", "A/B", tooLong, "A/" + tooLong, ""};
};

TEST_F(PutObjectReferenceTest, AnOwnedValueIsTakenOverOnEveryPath) {
    PreferencesStore store = Open();
    PreferencesStore uninitialised(domains, nullptr, true);
    for (const std::string& path : paths) {
        PropertyRef value = MakePropertyNumber(1);
        store.PutObject(path.c_str(), value, kAny, true);
        EXPECT_EQ(value, nullptr) << path.substr(0, 9);
    }
    PropertyRef value = MakePropertyNumber(1);
    uninitialised.PutObject("A", value, kAny, true);
    EXPECT_EQ(value, nullptr);
}

TEST_F(PutObjectReferenceTest, AFailedWriteLeavesNoReferenceToTheValue) {
    PreferencesStore store = Open();
    for (const std::string& path : {tooLong, "A/" + tooLong}) {
        PropertyRef value = MakePropertyNumber(1);
        const std::weak_ptr<const PropertyValue> watch = value;
        EXPECT_FALSE(store.PutObject(path.c_str(), value, kAny, true));
        EXPECT_TRUE(watch.expired());
    }
}

TEST_F(PutObjectReferenceTest, AValueThatIsNotOwnedStaysTheCallers) {
    PreferencesStore store = Open();
    for (const std::string& path : paths) {
        PropertyRef value = MakePropertyNumber(1);
        store.PutObject(path.c_str(), value, kAny, false);
        EXPECT_NE(value, nullptr) << path.substr(0, 9);
    }
}

class SetDictEntryTest : public PutObjectTest {};

TEST_F(SetDictEntryTest, WithoutADictionaryFailsAndIsLogged) {
    PreferencesStore store = Open();
    EXPECT_FALSE(store.SetDictEntryValue(nullptr, "B", MakePropertyNumber(1)));
    EXPECT_EQ(log.Text(), "GetDictEntryValue: NULL Dictionary given.\n");
}

TEST_F(SetDictEntryTest, SetsTheEntryInPlace) {
    PreferencesStore store = Open();
    PropertyDictionary dictionary = {{"A", MakePropertyNumber(1)}};
    EXPECT_TRUE(store.SetDictEntryValue(&dictionary, "B/C", MakePropertyNumber(2)));
    EXPECT_TRUE(SameProperty(
        MakePropertyDictionary(dictionary),
        MakePropertyDictionary(
            {{"A", MakePropertyNumber(1)}, {"B", MakePropertyDictionary({{"C", MakePropertyNumber(2)}})}})));
}

TEST_F(SetDictEntryTest, LeavesTheDictionaryAloneWhenAnEntryCannotBeMade) {
    PreferencesStore store = Open();
    PropertyDictionary dictionary = {{"A", MakePropertyNumber(1)}};
    EXPECT_FALSE(store.SetDictEntryValue(&dictionary, ("A/" + tooLong).c_str(), MakePropertyNumber(2)));
    EXPECT_TRUE(SameProperty(MakePropertyDictionary(dictionary),
                             MakePropertyDictionary({{"A", MakePropertyNumber(1)}})));
}

class TypedSetterTest : public PutObjectTest {};

TEST_F(TypedSetterTest, EachStoresItsType) {
    PreferencesStore store = Open();
    const std::uint8_t bytes[] = {0, 255, 1};
    const std::int32_t number = std::numeric_limits<std::int32_t>::min();
    const bool yes = true;
    const bool no = false;
    EXPECT_TRUE(store.SetBinary("Data", kAny, bytes, sizeof bytes));
    EXPECT_TRUE(store.SetString("Text", kAny, "B\xC3\xBChne"));
    EXPECT_TRUE(store.SetString("Empty", kAny, ""));
    EXPECT_TRUE(store.SetInt("Number", kAny, &number));
    EXPECT_TRUE(store.SetBool("Yes", kAny, &yes));
    EXPECT_TRUE(store.SetBool("No", kAny, &no));
    ExpectStored("Data", MakePropertyData(bytes, sizeof bytes));
    ExpectStored("Text", MakePropertyString("B\xC3\xBChne"));
    ExpectStored("Empty", MakePropertyString(""));
    ExpectStored("Number", MakePropertyNumber(number));
    ExpectStored("Yes", MakePropertyBoolean(true));
    ExpectStored("No", MakePropertyBoolean(false));
}

TEST_F(TypedSetterTest, EachRemovesTheKeyWhenGivenNothing) {
    PreferencesStore store = Open();
    const std::pair<const char*, bool (*)(PreferencesStore&)> removals[] = {
        {"SetString", [](PreferencesStore& s) { return s.SetString("A", kAny, nullptr); }},
        {"SetInt", [](PreferencesStore& s) { return s.SetInt("A", kAny, nullptr); }},
        {"SetBool", [](PreferencesStore& s) { return s.SetBool("A", kAny, nullptr); }},
        {"SetBinary of no bytes", [](PreferencesStore& s) { return s.SetBinary("A", kAny, "x", 0); }},
        {"SetBinary of null", [](PreferencesStore& s) { return s.SetBinary("A", kAny, nullptr, 5); }},
    };
    for (const auto& [name, remove] : removals) {
        EXPECT_TRUE(PutNumber(store, "A", 1));
        EXPECT_TRUE(remove(store)) << name;
        EXPECT_EQ(Stored("A"), nullptr) << name;
    }
    EXPECT_EQ(log.Text(), "");
}

TEST_F(TypedSetterTest, EachWritesThroughAKeyPath) {
    PreferencesStore store = Open();
    const std::int32_t number = 5;
    EXPECT_TRUE(store.SetInt("A/B", kAny, &number));
    EXPECT_TRUE(store.SetString("A/C", kAny, "text"));
    EXPECT_EQ(store.GetInt("A/B", kAny, 0), 5);
    EXPECT_STREQ(store.GetString("A/C", kAny, "").c_str(), "text");
}

TEST_F(TypedSetterTest, ATextThatCannotBeMadeIsLoggedAndNotStored) {
    PreferencesStore store = Open();
    EXPECT_FALSE(store.SetString("A", kAny, tooLong.c_str()));
    EXPECT_EQ(log.Text(), "SetString: CFString NULL\n");
    EXPECT_TRUE(domains.Changes().empty());
}

TEST_F(TypedSetterTest, ABlockThatCannotBeMadeIsLoggedAndNotStored) {
    PreferencesStore store = Open();
    const PropertyData block(kMaxPropertyDataBytes + 1, 0);
    EXPECT_FALSE(store.SetBinary("A", kAny, block.data(), static_cast<std::uint32_t>(block.size())));
    EXPECT_EQ(log.Text(), "SetBinary: CFData NULL\n");
    EXPECT_TRUE(domains.Changes().empty());
}

TEST_F(TypedSetterTest, TheStoredBytesAreTheStoresOwn) {
    PreferencesStore store = Open();
    std::uint8_t bytes[] = {1, 2};
    EXPECT_TRUE(store.SetBinary("A", kAny, bytes, sizeof bytes));
    bytes[0] = 9;
    const std::uint8_t expected[] = {1, 2};
    ExpectStored("A", MakePropertyData(expected, sizeof expected));
}

TEST_F(StoreTest, SeveralStoresSeeTheirOwnDomains) {
    PreferencesStore first = Open();
    PreferencesStore second(domains, "com.example.Other", true);
    const std::int32_t one = 1;
    const std::int32_t two = 2;
    EXPECT_TRUE(first.SetInt("A", kAny, &one));
    EXPECT_TRUE(second.SetInt("A", kAny, &two));
    EXPECT_EQ(first.GetInt("A", kAny, 0), 1);
    EXPECT_EQ(second.GetInt("A", kAny, 0), 2);
}

}  // namespace
}  // namespace vexil
