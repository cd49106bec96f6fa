#include "config/PropertyValue.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <utility>
#include <vector>

namespace vexil {
namespace {

class Thing : public PropertyOpaque {
  public:
    explicit Thing(int thingNumber) : number(thingNumber) {}
    bool Equals(const PropertyOpaque& other) const override {
        const auto* thing = dynamic_cast<const Thing*>(&other);
        return thing != nullptr && thing->number == number;
    }

  private:
    int number;
};

PropertyRef MakeThing(int number) {
    return MakeProperty(PropertyOpaqueRef(std::make_shared<Thing>(number)));
}

// Values that all differ from each other, made anew by each call.
std::vector<PropertyRef> DifferentValues() {
    const std::uint8_t bytes[] = {1, 2};
    return {
        nullptr,
        MakePropertyString(""),
        MakePropertyString("1"),
        MakePropertyString("Studio"),
        MakePropertyString("studio"),
        MakePropertyNumber(0),
        MakePropertyNumber(1),
        MakeProperty(PropertyNumber(0.0)),
        MakeProperty(PropertyNumber(-0.0)),
        MakeProperty(PropertyNumber(1.0)),
        MakeProperty(PropertyNumber(std::numeric_limits<double>::quiet_NaN())),
        MakePropertyBoolean(false),
        MakePropertyBoolean(true),
        MakePropertyData(nullptr, 0),
        MakePropertyData(bytes, 1),
        MakePropertyData(bytes, 2),
        MakePropertyDictionary({}),
        MakePropertyDictionary({{"A", MakePropertyNumber(1)}}),
        MakePropertyDictionary({{"B", MakePropertyNumber(1)}}),
        MakePropertyDictionary({{"A", MakePropertyNumber(2)}}),
        MakePropertyDictionary({{"A", MakePropertyDictionary({{"A", MakePropertyNumber(1)}})}}),
        MakeThing(1),
        MakeThing(2),
        MakeProperty(PropertyOpaqueRef()),
    };
}

TEST(SameProperty, HoldsForEqualValuesAndNoOthers) {
    const std::vector<PropertyRef> left = DifferentValues();
    const std::vector<PropertyRef> right = DifferentValues();
    for (std::size_t l = 0; l < left.size(); ++l) {
        for (std::size_t r = 0; r < right.size(); ++r) {
            EXPECT_EQ(SameProperty(left[l], right[r]), l == r) << l << " and " << r;
        }
    }
}

TEST(SameProperty, LeavesOutWhetherAStringIsDirect) {
    EXPECT_TRUE(SameProperty(MakeProperty(PropertyString{"a", false}), MakePropertyString("a")));
}

TEST(PropertyValue, KindsHaveTheNumbersThatTracesPrint) {
    EXPECT_EQ(static_cast<int>(MakePropertyString("")->Type()), 0);
    EXPECT_EQ(static_cast<int>(MakePropertyNumber(0)->Type()), 1);
    EXPECT_EQ(static_cast<int>(MakePropertyBoolean(false)->Type()), 2);
    EXPECT_EQ(static_cast<int>(MakePropertyData(nullptr, 0)->Type()), 3);
    EXPECT_EQ(static_cast<int>(MakePropertyDictionary({})->Type()), 4);
    EXPECT_EQ(static_cast<int>(MakeThing(0)->Type()), 5);
}

TEST(MakePropertyString, TakesUpToTheLimitAndNoMore) {
    const std::string longest(kMaxPropertyTextBytes, 'x');
    ASSERT_NE(MakePropertyString(longest.c_str()), nullptr);
    EXPECT_EQ(MakePropertyString(longest.c_str())->As<PropertyString>()->text, longest);
    EXPECT_EQ(MakePropertyString((longest + "x").c_str()), nullptr);
}

TEST(MakePropertyString, OfNoTextIsNone) {
    EXPECT_EQ(MakePropertyString(nullptr), nullptr);
}

TEST(MakePropertyData, TakesUpToTheLimitAndNoMore) {
    const PropertyData block(kMaxPropertyDataBytes + 1, 7);
    ASSERT_NE(MakePropertyData(block.data(), block.size() - 1), nullptr);
    EXPECT_EQ(MakePropertyData(block.data(), block.size() - 1)->As<PropertyData>()->size(),
              kMaxPropertyDataBytes);
    EXPECT_EQ(MakePropertyData(block.data(), block.size()), nullptr);
}

TEST(PropertyInt32, KeepsTheLowBitsOfAWholeNumber) {
    const std::pair<std::int64_t, std::int32_t> numbers[] = {
        {0, 0},
        {-1, -1},
        {0x7FFFFFFF, 0x7FFFFFFF},
        {0x80000000, std::numeric_limits<std::int32_t>::min()},
        {0xFFFFFFFF, -1},
        {0x100000007, 7},
        {std::numeric_limits<std::int64_t>::min(), 0},
    };
    for (const auto& [whole, expected] : numbers) {
        EXPECT_EQ(PropertyInt32(whole), expected) << whole;
    }
}

TEST(PropertyInt32, CutsAFloatingNumberAndKeepsItInRange) {
    using Limits = std::numeric_limits<std::int32_t>;
    const std::pair<double, std::int32_t> numbers[] = {
        {1.9, 1},
        {-1.9, -1},
        {2147483646.5, 2147483646},
        {2147483648.0, Limits::max()},
        {1e300, Limits::max()},
        {-2147483649.0, Limits::min()},
        {-1e300, Limits::min()},
        {HUGE_VAL, Limits::max()},
        {std::numeric_limits<double>::quiet_NaN(), 0},
    };
    for (const auto& [floating, expected] : numbers) {
        EXPECT_EQ(PropertyInt32(floating), expected) << floating;
    }
}

}  // namespace
}  // namespace vexil
