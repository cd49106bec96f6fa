// The window's table of controls: what people see and other programs address.
#include "panel/ControlTable.h"

#include <gtest/gtest.h>

#include <cctype>
#include <cstddef>
#include <cstring>
#include <set>
#include <string>
#include <vector>

namespace vexil {
namespace {

struct Row {
    ControlKind kind;
    const char* title;
    ControlRect rect;
};

// clang-format off
const Row kRows[] = {
    {ControlKind::ListBox, nullptr, {20, 20, 276, 100}},   // 0
    {ControlKind::CheckBox, "Local pipe (loopback) mode", {20, 240, 36, 450}},   // 1
    {ControlKind::PushButton, "About", {18, 490, 38, 560}},   // 2
    {ControlKind::CheckGroupBox, "MIDI IN", {28, 120, 136, 560}},   // 3
    {ControlKind::StaticText, "Port display name:", {60, 155, 76, 275}},   // 4
    {ControlKind::EditText, "", {60, 280, 76, 540}},   // 5
    {ControlKind::CheckBox, "Source computer name:", {86, 135, 102, 310}},   // 6
    {ControlKind::ComboBox, "", {86, 316, 102, 540}},   // 7
    {ControlKind::CheckBox, "Source Port:", {112, 135, 128, 260}},   // 8
    {ControlKind::StaticText, "", {112, 266, 126, 286}},   // 9
    {ControlKind::LittleArrows, nullptr, {110, 290, 130, 306}},   // 10
    {ControlKind::CheckGroupBox, "MIDI OUT", {138, 120, 276, 560}},   // 11
    {ControlKind::StaticText, "Port display name:", {170, 155, 186, 275}},   // 12
    {ControlKind::EditText, "", {170, 280, 186, 540}},   // 13
    {ControlKind::StaticText, "Target computer name:", {196, 155, 212, 310}},   // 14
    {ControlKind::ComboBox, "", {196, 316, 212, 540}},   // 15
    {ControlKind::StaticText, "Target Port:", {222, 155, 238, 260}},   // 16
    {ControlKind::StaticText, "", {222, 266, 238, 286}},   // 17
    {ControlKind::LittleArrows, nullptr, {220, 290, 240, 306}},   // 18
    {ControlKind::CheckBox, "Send Immediately", {248, 135, 264, 310}},   // 19
    {ControlKind::StaticText, "Test: MIDI Ch", {248, 390, 264, 480}},   // 20
    {ControlKind::StaticText, "1", {248, 480, 264, 500}},   // 21
    {ControlKind::LittleArrows, "", {246, 500, 266, 520}},   // 22
    {ControlKind::RoundButton, "", {246, 526, 264, 540}},   // 23
    {ControlKind::GroupBox, "Settings:", {290, 20, 400, 180}},   // 24
    {ControlKind::CheckBox, "Show Connectors", {312, 35, 332, 165}},   // 25
    {ControlKind::CheckBox, "Launch Monitor", {332, 35, 352, 165}},   // 26
    {ControlKind::CheckBox, "Enable Logging", {352, 35, 372, 165}},   // 27
    {ControlKind::CheckBox, "Use Wireless", {372, 35, 392, 165}},   // 28
    {ControlKind::GroupBox, "Realtime Options:", {290, 200, 380, 560}},   // 29
    {ControlKind::StaticText, "Send Quantization Time, ms:", {314, 215, 330, 410}},   // 30
    {ControlKind::StaticText, "", {314, 490, 330, 530}},   // 31
    {ControlKind::Slider, "", {340, 215, 360, 540}},   // 32
    {ControlKind::PushButton, "Load", {390, 330, 410, 400}},   // 33
    {ControlKind::PushButton, "Save", {390, 410, 410, 480}},   // 34
    {ControlKind::PushButton, "Apply", {390, 490, 410, 560}},   // 35
};
// clang-format on

std::string TitleOf(const char* title) {
    return title == nullptr ? "(none)" : title;
}

bool Contains(const ControlRect& outer, const ControlRect& inner) {
    return outer.left <= inner.left && outer.top <= inner.top && outer.right >= inner.right &&
           outer.bottom >= inner.bottom;
}

TEST(ControlTable, RowNumberIsTheControlsNumber) {
    for (int i = 0; i < kControlCount; ++i) {
        EXPECT_EQ(kControlTable[static_cast<std::size_t>(i)].number, i);
    }
}

TEST(ControlTable, KindTitleAndRectangleOfEveryControl) {
    ASSERT_EQ(std::size(kRows), kControlTable.size());
    for (std::size_t i = 0; i < kControlTable.size(); ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(kControlTable[i].kind, kRows[i].kind);
        EXPECT_EQ(TitleOf(kControlTable[i].title), TitleOf(kRows[i].title));
        EXPECT_EQ(kControlTable[i].rect, kRows[i].rect);
    }
}

TEST(ControlTable, SourceAndTargetPortArrowsRunFrom0To63) {
    for (const Control control : {kSourcePortArrows, kTargetPortArrows}) {
        const auto& row = kControlTable[static_cast<std::size_t>(control)];
        EXPECT_EQ(row.value, 0);
        EXPECT_EQ(row.minimum, 0);
        EXPECT_EQ(row.maximum, 63);
    }
}

TEST(ControlTable, ChannelArrowsRunFrom1To16AndStartAt1) {
    EXPECT_EQ(kControlTable[kTestChannelArrows].value, 1);
    EXPECT_EQ(kControlTable[kTestChannelArrows].minimum, 1);
    EXPECT_EQ(kControlTable[kTestChannelArrows].maximum, 16);
}

TEST(ControlTable, SliderRunsFrom0To100) {
    EXPECT_EQ(kControlTable[kQuantizationSlider].value, 0);
    EXPECT_EQ(kControlTable[kQuantizationSlider].minimum, 0);
    EXPECT_EQ(kControlTable[kQuantizationSlider].maximum, 100);
}

TEST(ControlTable, EveryControlLiesInTheWindow) {
    const ControlRect window{0, 0, kWindowHeight, kWindowWidth};
    for (const ControlSpec& spec : kControlTable) {
        EXPECT_TRUE(Contains(window, spec.rect)) << spec.number;
    }
}

TEST(ControlTable, GroupsAreEmbeddedInOrderAndTheTestSectionComesLast) {
    const std::vector<std::vector<int>> expected = {{3, 4, 5, 6, 7, 8, 9, 10},
                                                    {11, 12, 13, 14, 15, 16, 17, 18, 19},
                                                    {24, 25, 26, 27, 28},
                                                    {29, 30, 31, 32},
                                                    {11, 20, 21, 22, 23}};
    std::size_t place = 0;
    for (const std::vector<int>& group : expected) {
        for (std::size_t i = 1; i < group.size(); ++i, ++place) {
            ASSERT_LT(place, kEmbeddings.size());
            EXPECT_EQ(kEmbeddings[place].container, group[0]);
            EXPECT_EQ(kEmbeddings[place].control, group[i]);
        }
    }
    EXPECT_EQ(place, kEmbeddings.size());
}

TEST(ControlTable, ContainersAgreeWithTheEmbeddings) {
    std::vector<int> containers(kControlCount, kNoContainer);
    for (const Embedding& embedding : kEmbeddings) {
        containers[static_cast<std::size_t>(embedding.control)] = embedding.container;
    }
    for (const ControlSpec& spec : kControlTable) {
        EXPECT_EQ(spec.container, containers[static_cast<std::size_t>(spec.number)]) << spec.number;
    }
}

TEST(ControlTable, EmbeddedControlsLieInTheirGroup) {
    for (const Embedding& embedding : kEmbeddings) {
        EXPECT_TRUE(Contains(kControlTable[static_cast<std::size_t>(embedding.container)].rect,
                             kControlTable[static_cast<std::size_t>(embedding.control)].rect))
            << embedding.control;
    }
}

TEST(ControlTable, AccessibleNamesAreUniqueAndNotEmpty) {
    std::set<std::string> names;
    for (const ControlSpec& spec : kControlTable) {
        EXPECT_STRNE(spec.accessibleName, "") << spec.number;
        EXPECT_TRUE(names.insert(spec.accessibleName).second) << spec.accessibleName;
    }
}

TEST(ControlTable, EveryTipIsOneShortSentence) {
    for (const ControlSpec& spec : kControlTable) {
        ASSERT_NE(spec.tip, nullptr) << spec.number;
        const std::string tip = spec.tip;
        ASSERT_FALSE(tip.empty()) << spec.number;
        EXPECT_TRUE(std::isupper(static_cast<unsigned char>(tip.front()))) << tip;
        EXPECT_EQ(tip.find_first_of(".!?"), tip.size() - 1) << tip;
        EXPECT_LE(tip.size(), 110U) << tip;
    }
}

TEST(ControlTable, WhatCanBeUsedHasATipOfItsOwn) {
    std::set<std::string> tips;
    for (const ControlSpec& spec : kControlTable) {
        if (spec.kind == ControlKind::StaticText) {
            continue;
        }
        EXPECT_TRUE(tips.insert(spec.tip).second) << spec.tip;
    }
}

TEST(ControlTable, WindowIs580By430) {
    EXPECT_EQ(kWindowWidth, 580);
    EXPECT_EQ(kWindowHeight, 430);
    EXPECT_STREQ(kWindowTitle, "Vexil III Control Panel");
}

}  // namespace
}  // namespace vexil
