#include "shared/System/Utf8.h"

#include <gtest/gtest.h>

#include <utility>

namespace vexil {
namespace {

constexpr std::pair<const char*, char32_t> kEdges[] = {{"\x7F", 0x7F},
                                                       {"\xC2\x80", 0x80},
                                                       {"\xDF\xBF", 0x7FF},
                                                       {"\xE0\xA0\x80", 0x800},
                                                       {"\xED\x9F\xBF", 0xD7FF},
                                                       {"\xEE\x80\x80", 0xE000},
                                                       {"\xEF\xBF\xBF", 0xFFFF},
                                                       {"\xF0\x90\x80\x80", 0x10000},
                                                       {"\xF4\x8F\xBF\xBF", 0x10FFFF}};

TEST(Utf8Test, TheFirstAndLastCharacterOfEachLengthAreTaken) {
    for (const auto& [form, character] : kEdges) {
        const std::string text = std::string(form) + "x";
        std::string_view rest = text;
        EXPECT_EQ(TakeUtf8(rest), character);
        EXPECT_EQ(rest, "x");
    }
}

TEST(Utf8Test, TheFirstAndLastCharacterOfEachLengthAreAppended) {
    for (const auto& [form, character] : kEdges) {
        std::string text = "x";
        AppendUtf8(text, character);
        EXPECT_EQ(text, std::string("x") + form);
    }
}

TEST(Utf8Test, AZeroByteIsACharacter) {
    const std::string text(2, '\0');
    std::string_view rest = text;
    EXPECT_EQ(TakeUtf8(rest), U'\0');
    EXPECT_EQ(rest.size(), 1U);
}

TEST(Utf8Test, WhatIsMalformedIsNotTaken) {
    for (const char* text :
         {"",              // nothing
          "\x80", "\xBF",  // a continuation without a start
          "\xC0\x80",      // not the shortest form
          "\xC1\xBF", "\xE0\x9F\xBF", "\xF0\x8F\xBF\xBF", "\xED\xA0\x80", "\xED\xBF\xBF",  // surrogates
          "\xF4\x90\x80\x80",                                              // beyond the last character
          "\xF5\x80\x80\x80", "\xFF", "\xC3", "\xE2\x82", "\xF0\x9F\x8E",  // cut
          "\xC3x", "\xE2\x82x", "\xF0\x9F\x8Ex", "\xE2x\x82"}) {
        std::string_view rest = text;
        EXPECT_EQ(TakeUtf8(rest), std::nullopt) << testing::PrintToString(text);
        EXPECT_EQ(rest, text);
    }
}

TEST(Utf8Test, TextThatIsShortEnoughIsWhole) {
    EXPECT_EQ(WholeCharacters("B\xC3\xBC", 3), "B\xC3\xBC");
    EXPECT_EQ(WholeCharacters("", 0), "");
}

TEST(Utf8Test, ACutEndsBetweenTwoCharacters) {
    const std::string text = "a\xC3\xBC\xF0\x9F\x8E\xB9z";
    for (const auto& [longest, size] :
         {std::pair{0, 0}, {1, 1}, {2, 1}, {3, 3}, {4, 3}, {6, 3}, {7, 7}, {8, 8}}) {
        EXPECT_EQ(WholeCharacters(text, static_cast<std::size_t>(longest)),
                  text.substr(0, static_cast<std::size_t>(size)))
            << longest;
    }
}

TEST(Utf8Test, BytesThatBelongToNoCharacterAreAllCutAway) {
    EXPECT_EQ(WholeCharacters("\x80\x80\x80", 2), "");
}

}  // namespace
}  // namespace vexil
