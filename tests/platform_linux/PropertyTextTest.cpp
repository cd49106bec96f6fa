#include "platform/linux/preferences/PropertyText.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

#include "shared/System/Utf8.h"

namespace vexil {
namespace {

std::string Character(char32_t character) {
    std::string text;
    AppendUtf8(text, character);
    return text;
}

void ExpectReversible(const std::string& text) {
    const std::string stored = StoredText(text);
    for (std::string_view rest = stored; !rest.empty();) {
        const std::optional<char32_t> character = TakeUtf8(rest);
        ASSERT_TRUE(character && IsXmlCharacter(*character) && *character != '\r')
            << testing::PrintToString(text);
    }
    const PropertyString back = TextOfStored(stored);
    EXPECT_EQ(back.text, text);
    EXPECT_EQ(back.direct, stored == text) << testing::PrintToString(text);
}

TEST(PropertyTextTest, OrdinaryTextIsStoredAsItIs) {
    for (const char* text : {"", "Studio", "B\xC3\xBChne \xF0\x9F\x8E\xB9", " a\tb\nc ", "<&>\"'", "\x7F"}) {
        EXPECT_EQ(StoredText(text), text);
        EXPECT_TRUE(TextOfStored(text).direct);
    }
}

TEST(PropertyTextTest, ABytesStoredFormIsF700PlusTheByte) {
    EXPECT_EQ(StoredText("B\xFChne"), "B" + Character(0xF7FC) + "hne");
    EXPECT_EQ(StoredText("\r"), Character(0xF70D));
    EXPECT_EQ(StoredText(Character(0xF741)), Character(0xF7EF) + Character(0xF79D) + Character(0xF781));
}

TEST(PropertyTextTest, EverySingleByteSurvives) {
    for (int byte = 0; byte < 256; ++byte) {
        ExpectReversible(std::string(1, static_cast<char>(byte)));
    }
}

TEST(PropertyTextTest, EveryPairOfBytesSurvives) {
    for (int first = 0; first < 256; ++first) {
        for (int second = 0; second < 256; ++second) {
            ExpectReversible({static_cast<char>(first), static_cast<char>(second)});
        }
    }
}

TEST(PropertyTextTest, EveryCharacterOfTheBasicPlaneSurvives) {
    for (char32_t character = 0; character < 0x10000; ++character) {
        ExpectReversible(Character(character));  // surrogates too: three bytes that are not UTF-8
    }
}

TEST(PropertyTextTest, RandomTextsOfDifficultPiecesSurvive) {
    std::mt19937 random(1);
    const std::string pieces[] = {"a",    "\xC3", "\xA9", "\xEF\x9D\x81", "\xEF", "\x9D",
                                  "\x81", "\r",   "\x01", "\xF0\x9F\x8E", "\xB9", Character(0xF7FF)};
    for (int round = 0; round < 20000; ++round) {
        std::string text;
        for (auto length = random() % 8; length > 0; --length) {
            text += pieces[random() % std::size(pieces)];
        }
        ExpectReversible(text);
    }
}

TEST(PropertyTextTest, APrivateUseTextOfAnotherProgramIsTakenAsItStands) {
    const std::string arrow = Character(0xF741);  // would decode to "A", which is not stored so
    EXPECT_EQ(TextOfStored(arrow).text, arrow);
    EXPECT_TRUE(TextOfStored(arrow).direct);
}

TEST(PropertyTextTest, TextOfAnotherProgramMadeSafeKeepsItsPrivateUse) {
    EXPECT_EQ(XmlSafeText(Character(0xF741) + "\r"), Character(0xF741) + Character(0xF70D));
}

}  // namespace
}  // namespace vexil
