// The typed getters.
#include <array>
#include <limits>

#include "tests/config/StoreFixture.h"

namespace vexil {
namespace {

class GetBinaryTest : public StoreTest {
  protected:
    GetBinaryTest() {
        const std::uint8_t bytes[] = {10, 20, 30};
        Put("Data", MakePropertyData(bytes, sizeof bytes));
    }
    std::array<std::uint8_t, 4> buffer{1, 1, 1, 1};
    std::uint32_t size = 0;
};

TEST_F(GetBinaryTest, CopiesTheBytesAndGivesTheirNumber) {
    const PreferencesStore store = OpenVerbose();
    size = 4;
    EXPECT_TRUE(store.GetBinary("Data", kAny, buffer.data(), &size));
    EXPECT_EQ(size, 3u);
    EXPECT_EQ(buffer, (std::array<std::uint8_t, 4>{10, 20, 30, 1}));
    EXPECT_EQ(log.Count("GetBinary: 3 bytes copied\n"), 1);
}

TEST_F(GetBinaryTest, FillsABufferOfExactlyTheLength) {
    const PreferencesStore store = Open();
    size = 3;
    EXPECT_TRUE(store.GetBinary("Data", kAny, buffer.data(), &size));
    EXPECT_EQ(size, 3u);
    EXPECT_EQ(log.Text(), "");
}

TEST_F(GetBinaryTest, ABufferOneByteTooSmallFailsAndGivesTheLength) {
    const PreferencesStore store = Open();
    size = 2;
    EXPECT_FALSE(store.GetBinary("Data", kAny, buffer.data(), &size));
    EXPECT_EQ(size, 3u);
    EXPECT_EQ(buffer, (std::array<std::uint8_t, 4>{1, 1, 1, 1}));
    EXPECT_EQ(log.Text(), "GetBinary: buffer null or overflow (3 > 2)\n");
}

TEST_F(GetBinaryTest, ANullBufferGivesTheLength) {
    const PreferencesStore store = Open();
    size = 100;
    EXPECT_FALSE(store.GetBinary("Data", kAny, nullptr, &size));
    EXPECT_EQ(size, 3u);
    EXPECT_EQ(log.Text(), "GetBinary: buffer null or overflow (3 > 100)\n");
}

TEST_F(GetBinaryTest, AnAbsentValueLeavesTheSizeAlone) {
    const PreferencesStore store = Open();
    size = 4;
    EXPECT_FALSE(store.GetBinary("Missing", kAny, buffer.data(), &size));
    EXPECT_EQ(size, 4u);
    EXPECT_EQ(log.Text(), "");
}

TEST_F(GetBinaryTest, EmptyDataIsAValueOfNoBytes) {
    Put("Empty", MakePropertyData(nullptr, 0));
    const PreferencesStore store = OpenVerbose();
    size = 4;
    EXPECT_TRUE(store.GetBinary("Empty", kAny, buffer.data(), &size));
    EXPECT_EQ(size, 0u);
    EXPECT_EQ(log.Count("GetBinary: 0 bytes copied\n"), 1);
}

class TypedGetterTest : public StoreTest {};

TEST_F(TypedGetterTest, GetStringGivesTheStoredText) {
    Put("Text", MakePropertyString("B\xC3\xBChne"));
    const PreferencesStore store = OpenVerbose();
    EXPECT_STREQ(store.GetString("Text", kAny, "default").c_str(), "B\xC3\xBChne");
    EXPECT_EQ(log.Count("GetString: result 'B\xC3\xBChne'\n"), 1);
}

TEST_F(TypedGetterTest, GetStringGivesTheDefaultForNoText) {
    Put("Number", MakePropertyNumber(1));
    const PreferencesStore store = OpenVerbose();
    EXPECT_STREQ(store.GetString("Missing", kAny, "default").c_str(), "default");
    EXPECT_STREQ(store.GetString("Number", kAny, "default").c_str(), "default");
    EXPECT_STREQ(store.GetString("Missing", kAny, nullptr).c_str(), "");
    EXPECT_EQ(log.Count("GetString: result 'default'\n"), 2);
    EXPECT_EQ(log.Count("GetString: result ''\n"), 1);
}

TEST_F(TypedGetterTest, GetStringGivesAStoredEmptyText) {
    Put("Text", MakePropertyString(""));
    const PreferencesStore store = Open();
    EXPECT_STREQ(store.GetString("Text", kAny, "default").c_str(), "");
}

TEST_F(TypedGetterTest, GetStringCopiesOutATextThatIsNotDirect) {
    Put("Text", MakeProperty(PropertyString{"a\xFF longer text", false}));
    const PreferencesStore store = Open();
    const svString text = store.GetString("Text", kAny, "default");
    EXPECT_STREQ(text.c_str(), "a\xFF longer text");
    EXPECT_EQ(text.GetLength(), 14);
}

TEST_F(TypedGetterTest, GetStringOfAnEmptyTextThatIsNotDirectGivesTheDefault) {
    Put("Text", MakeProperty(PropertyString{"", false}));
    const PreferencesStore store = Open();
    EXPECT_STREQ(store.GetString("Text", kAny, "default").c_str(), "default");
}

TEST_F(TypedGetterTest, GetStringEndsAtAZeroByte) {
    Put("Direct", MakeProperty(PropertyString{std::string("ab\0cd", 5), true}));
    Put("Copied", MakeProperty(PropertyString{std::string("ab\0cd", 5), false}));
    const PreferencesStore store = Open();
    EXPECT_EQ(store.GetString("Direct", kAny, "").GetLength(), 2);
    EXPECT_EQ(store.GetString("Copied", kAny, "").GetLength(), 2);
}

TEST_F(TypedGetterTest, GetBoolGivesTheStoredTruth) {
    Put("Yes", MakePropertyBoolean(true));
    Put("No", MakePropertyBoolean(false));
    const PreferencesStore store = OpenVerbose();
    EXPECT_TRUE(store.GetBool("Yes", kAny, false));
    EXPECT_EQ(log.Count("GetBool: result 'Yes'\n"), 1);
    EXPECT_FALSE(store.GetBool("No", kAny, true));
    EXPECT_EQ(log.Count("GetBool: result 'No'\n"), 1);
}

TEST_F(TypedGetterTest, GetBoolGivesTheDefaultForNoBoolean) {
    Put("Number", MakePropertyNumber(1));
    const PreferencesStore store = OpenVerbose();
    EXPECT_FALSE(store.GetBool("Number", kAny, false));
    EXPECT_TRUE(store.GetBool("Missing", kAny, true));
    EXPECT_EQ(log.Count("GetBool: result 'No'\n"), 1);
    EXPECT_EQ(log.Count("GetBool: result 'Yes'\n"), 1);
}

TEST_F(TypedGetterTest, GetIntGivesTheStoredNumber) {
    using Limits = std::numeric_limits<std::int32_t>;
    for (const std::int32_t number : {0, 1, -1, Limits::min(), Limits::max()}) {
        Put("Number", MakePropertyNumber(number));
        const PreferencesStore store = OpenVerbose();
        EXPECT_EQ(store.GetInt("Number", kAny, 99), number);
        EXPECT_EQ(log.Count(Printed("GetInt: result %d\n", number)), 1);
    }
}

TEST_F(TypedGetterTest, GetIntGivesTheDefaultForNoNumber) {
    Put("Text", MakePropertyString("5"));
    const PreferencesStore store = OpenVerbose();
    EXPECT_EQ(store.GetInt("Text", kAny, -7), -7);
    EXPECT_EQ(store.GetInt("Missing", kAny, -7), -7);
    EXPECT_EQ(log.Count("GetInt: result -7\n"), 2);
}

TEST_F(TypedGetterTest, AllButGetBinaryTraceTheirResultForAnAbsentValue) {
    const PreferencesStore store = OpenVerbose();
    std::uint32_t size = 0;
    store.GetBinary("Missing", kAny, nullptr, &size);
    EXPECT_EQ(log.Text(), "GetObjectOfType: Getting Entry 'Missing'\n");
}

TEST_F(TypedGetterTest, ALeafOfAnotherTypeInADictionaryCountsAsAbsent) {
    const std::uint8_t bytes[] = {1, 2, 3, 4};
    const PropertyRef leaves = MakePropertyDictionary({{"Boolean", MakePropertyBoolean(true)},
                                                       {"Data", MakePropertyData(bytes, sizeof bytes)},
                                                       {"Number", MakePropertyNumber(5)},
                                                       {"String", MakePropertyString("text")}});
    Put("A", leaves);
    const PreferencesStore store = Open();
    for (const auto& [name, value] : *leaves->As<PropertyDictionary>()) {
        const std::string path = "A/" + name;
        std::array<std::uint8_t, 4> buffer{};
        std::uint32_t size = 99;
        const bool isData = value->Type() == PropertyType::Data;
        EXPECT_EQ(store.GetBinary(path.c_str(), kAny, buffer.data(), &size), isData) << name;
        EXPECT_EQ(size, isData ? 4u : 99u) << name;
        EXPECT_STREQ(store.GetString(path.c_str(), kAny, "default").c_str(),
                     value->Type() == PropertyType::String ? "text" : "default")
            << name;
        EXPECT_EQ(store.GetBool(path.c_str(), kAny, false), value->Type() == PropertyType::Boolean) << name;
        EXPECT_EQ(store.GetInt(path.c_str(), kAny, -1), value->Type() == PropertyType::Number ? 5 : -1)
            << name;
    }
}

}  // namespace
}  // namespace vexil
