// Finding values by key paths.
#include "tests/config/StoreFixture.h"

namespace vexil {
namespace {

class GetObjectTest : public StoreTest {
  protected:
    const std::string tooLong = std::string(kMaxPropertyTextBytes + 1, 'x');
    const PropertyRef leaf = MakePropertyNumber(9);
    const PropertyRef inner = MakePropertyDictionary({{"C", leaf}});
    const PropertyRef outer = MakePropertyDictionary({{"B", inner}, {"D", MakePropertyString("text")}});
};

TEST_F(GetObjectTest, GivesATopLevelValueOfTheWantedType) {
    Put("A", leaf);
    const PreferencesStore store = OpenVerbose();
    EXPECT_EQ(store.GetObjectOfType("A", PropertyType::Number, kAny), leaf);
    EXPECT_EQ(log.Text(), Printed("GetObjectOfType: Getting Entry 'A'\n"
                                  "GetObjectOfType: Found CFType %p ID 1\n",
                                  static_cast<const void*>(leaf.get())));
}

TEST_F(GetObjectTest, AnAbsentValueIsNoneWithoutAnError) {
    const PreferencesStore store = OpenVerbose();
    EXPECT_EQ(store.GetObjectOfType("A/B", PropertyType::Number, kAny), nullptr);
    EXPECT_EQ(log.Text(), "GetObjectOfType: Getting Entry 'A'\n");
}

TEST_F(GetObjectTest, ATopLevelValueOfAnotherTypeIsNoneWithoutAnError) {
    Put("A", leaf);
    const PreferencesStore store = Open();
    EXPECT_EQ(store.GetObjectOfType("A", PropertyType::String, kAny), nullptr);
    EXPECT_EQ(log.Text(), "");
}

TEST_F(GetObjectTest, ARestBelowAPlainTopLevelValueIsIgnored) {
    Put("A", leaf);
    const PreferencesStore store = Open();
    EXPECT_EQ(store.GetObjectOfType("A/B/C", PropertyType::Number, kAny), leaf);
    EXPECT_EQ(store.GetObjectOfType("A/B/C", PropertyType::String, kAny), nullptr);
    EXPECT_EQ(log.Text(), "");
}

TEST_F(GetObjectTest, FollowsAPathThroughDictionaries) {
    Put("A", outer);
    const PreferencesStore store = OpenVerbose();
    EXPECT_EQ(store.GetObjectOfType("A/B/C", PropertyType::Number, kAny), leaf);
    const void* const a = outer.get();
    const void* const b = inner.get();
    const void* const c = leaf.get();
    EXPECT_EQ(log.Text(), Printed("GetObjectOfType: Getting Entry 'A'\n"
                                  "GetObjectOfType: Found CFType %p ID 4\n"
                                  "GetObjectOfType: Entering Dictionary %p\n"
                                  "GetDictEntryValue: Getting Entry 'B'\n"
                                  "GetDictEntryValue: Found CFType %p ID 4\n"
                                  "GetDictEntryValue: Entering Dictionary %p\n"
                                  "GetDictEntryValue: Getting Entry 'C'\n"
                                  "GetDictEntryValue: Found CFType %p ID 1\n"
                                  "GetDictEntryValue: Returning CFType %p ID 1\n"
                                  "GetDictEntryValue: Returning CFType %p ID 1\n",
                                  a, a, b, b, c, c, c));
}

TEST_F(GetObjectTest, ALeafOfADictionaryIsGivenWhateverItsType) {
    Put("A", outer);
    const PreferencesStore store = Open();
    EXPECT_EQ(store.GetObjectOfType("A/B/C", PropertyType::String, kAny), leaf);
    EXPECT_EQ(log.Text(), "");
}

TEST_F(GetObjectTest, ARestBelowALeafIsIgnored) {
    Put("A", outer);
    const PreferencesStore store = Open();
    EXPECT_EQ(store.GetObjectOfType("A/B/C/D/E", PropertyType::Number, kAny), leaf);
}

TEST_F(GetObjectTest, ATopLevelDictionaryIsNoValue) {
    Put("A", outer);
    const PreferencesStore store = Open();
    for (const PropertyType wanted : {PropertyType::Number, PropertyType::Dictionary}) {
        log.Clear();
        EXPECT_EQ(store.GetObjectOfType("A", wanted, kAny), nullptr);
        EXPECT_EQ(log.Text(), "GetObjectOfType: Attempt to get Dictionary as value\n");
    }
}

TEST_F(GetObjectTest, ANestedDictionaryIsNoValue) {
    Put("A", outer);
    const PreferencesStore store = Open();
    EXPECT_EQ(store.GetObjectOfType("A/B", PropertyType::Dictionary, kAny), nullptr);
    EXPECT_EQ(log.Text(),
              "GetDictEntryValue: Attempt to get Dictionary as value\n"
              "GetDictEntryValue: Returning NULL CFType\n");
}

TEST_F(GetObjectTest, AMissingLeafIsLoggedAtEveryLevel) {
    Put("A", outer);
    const PreferencesStore store = Open();
    EXPECT_EQ(store.GetObjectOfType("A/B/X", PropertyType::Number, kAny), nullptr);
    EXPECT_EQ(log.Text(),
              "GetDictEntryValue: Returning NULL CFType\n"
              "GetDictEntryValue: Returning NULL CFType\n");
}

TEST_F(GetObjectTest, AnEmptyEntryOfADictionaryCountsAsMissing) {
    Put("A", MakePropertyDictionary({{"B", nullptr}}));
    const PreferencesStore store = OpenVerbose();
    EXPECT_EQ(store.GetObjectOfType("A/B", PropertyType::Number, kAny), nullptr);
    EXPECT_EQ(log.Count("GetDictEntryValue: Found"), 0);
    EXPECT_EQ(log.Count("GetDictEntryValue: Returning NULL CFType\n"), 1);
}

TEST_F(GetObjectTest, ATrailingSlashNamesTheEmptyKey) {
    Put("A", MakePropertyDictionary({{"", leaf}}));
    const PreferencesStore store = Open();
    EXPECT_EQ(store.GetObjectOfType("A/", PropertyType::Number, kAny), leaf);
}

TEST_F(GetObjectTest, ATopLevelKeyThatCannotBeMadeIsLogged) {
    const PreferencesStore store = Open();
    EXPECT_EQ(store.GetObjectOfType(tooLong.c_str(), PropertyType::Number, kAny), nullptr);
    EXPECT_EQ(log.Text(), "GetEntryString: CFString NULL\n");
}

TEST_F(GetObjectTest, ANestedKeyThatCannotBeMadeIsLoggedWithoutAnotherError) {
    Put("A", outer);
    const PreferencesStore store = Open();
    EXPECT_EQ(store.GetObjectOfType(("A/" + tooLong).c_str(), PropertyType::Number, kAny), nullptr);
    EXPECT_EQ(log.Text(), "GetEntryString: CFString NULL\n");
}

TEST_F(GetObjectTest, LooksInTheGivenUserScope) {
    Put("A", leaf);
    const PreferencesStore store = Open();
    EXPECT_EQ(store.GetObjectOfType("A", PropertyType::Number, kOwn), nullptr);
}

TEST_F(GetObjectTest, WithoutADictionaryAnEntryIsNoneAndLogged) {
    const PreferencesStore store = Open();
    EXPECT_EQ(store.GetDictEntryValue(nullptr, nullptr), nullptr);
    EXPECT_EQ(log.Text(), "GetDictEntryValue: NULL Dictionary given.\n");
    log.Clear();
    EXPECT_EQ(store.GetDictEntryValue(leaf, "B"), nullptr);
    EXPECT_EQ(log.Text(), "GetDictEntryValue: NULL Dictionary given.\n");
}

TEST_F(GetObjectTest, WithoutAPathAnEntryIsNoneAndLogged) {
    const PreferencesStore store = Open();
    EXPECT_EQ(store.GetDictEntryValue(outer, nullptr), nullptr);
    EXPECT_EQ(log.Text(), "GetDictEntryValue: Attempt to get Dictionary as value\n");
}

}  // namespace
}  // namespace vexil
