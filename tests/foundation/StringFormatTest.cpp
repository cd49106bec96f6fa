// Formatting: the text, and the size that the block is given for it, which is the estimate of the format.
#include <gtest/gtest.h>

#include <cstdarg>
#include <limits>
#include <string>

#include "shared/System/svString.h"
#include "tests/foundation/FailedAssertion.h"

namespace vexil {
namespace {

// Not declared as a printf function: the formats here include those that a compiler refuses.
svString Formatted(const char* format, ...) {
    svString string;
    va_list arguments;
    va_start(arguments, format);
    string.FormatV(format, arguments);
    va_end(arguments);
    return string;
}

template <class... Arguments>
int Estimate(const char* format, Arguments... arguments) {
    return Formatted(format, arguments...).GetAllocLength();
}

template <class... Arguments>
std::string FormattedText(const char* format, Arguments... arguments) {
    return Formatted(format, arguments...).c_str();
}

const char* const kNoText = nullptr;

TEST(StringFormat, WritesTheText) {
    svString string("before");
    string.Format("%02d %s", 5, "PortFlags");
    EXPECT_STREQ(string.c_str(), "05 PortFlags");
    EXPECT_EQ(string.GetLength(), 12);
}

TEST(StringFormat, OfAnEmptyFormatIsEmpty) {
    svString string("before");
    string.Format("%s", "");
    EXPECT_EQ(string.GetLength(), 0);
    EXPECT_EQ(FormattedText(""), "");
}

TEST(StringFormat, KeepsABlockThatIsLargeEnough) {
    svString string;
    string.GetBuffer(100);
    string.Format("%d", 7);
    EXPECT_EQ(string.GetAllocLength(), 100);
    EXPECT_STREQ(string.c_str(), "7");
}

TEST(StringFormat, ReadsItsOwnCharacters) {
    svString string("abc");
    string.Format("%s-%s", string.c_str(), string.c_str() + 1);
    EXPECT_STREQ(string.c_str(), "abc-bc");
    string.GetBuffer(100);
    string.Format("%d%s%d", 123456, string.c_str(), 7);
    EXPECT_STREQ(string.c_str(), "123456abc-bc7");
    string = "%d!";
    string.Format(string.c_str(), 5);
    EXPECT_STREQ(string.c_str(), "5!");
}

TEST(StringFormat, HasRoomForALargeLongDouble) {
    std::string expected(400, '\0');
    expected.resize(static_cast<std::size_t>(std::snprintf(expected.data(), expected.size(), "%Lf", 1e300L)));
    EXPECT_EQ(FormattedText("%Lf", 1e300L), expected);
}

TEST(StringFormat, ReadsEachArgumentInItsOwnWidth) {
    EXPECT_EQ(FormattedText("%ld %s %p %s %lx %i %hd %s", 5000000000L, "a", nullptr, "b", 0xfffffffffUL, -1,
                            7, "c"),
              "5000000000 a (nil) b fffffffff -1 7 c");
    EXPECT_EQ(FormattedText("%Lf|%s|%lf|%s", 2.5L, "a", 0.25, "b"), "2.500000|a|0.250000|b");
}

TEST(StringFormat, SkipsTheModifiersThatSayNothing) {
    EXPECT_EQ(FormattedText("%Fd|%Nd|%Ld|%d", 1, 2, 3, 4), "1|2|3|4");
    EXPECT_EQ(FormattedText("%Fs|%Ns|%Ls|%hs|%hS", "a", "b", "c", "d", "e"), "a|b|c|d|e");
}

TEST(FormatEstimate, OfALiteralIsTheRestOfTheFormatForEachCharacter) {
    EXPECT_EQ(Estimate(""), 0);
    EXPECT_EQ(Estimate("a"), 1);
    EXPECT_EQ(Estimate("abc"), 3 + 2 + 1);
    EXPECT_EQ(Estimate("0123456789"), 55);
    EXPECT_EQ(Estimate("abc%d", 1), 5 + 4 + 3 + 32);
    EXPECT_EQ(Estimate("%d abc", 1), 32 + 4 + 3 + 2 + 1);
}

TEST(FormatEstimate, OfADoubledPercentSignIsTheRestFromTheSecond) {
    EXPECT_EQ(Estimate("%%"), 1);
    EXPECT_EQ(Estimate("%%%%"), 3 + 1);
    EXPECT_EQ(Estimate("a%%b"), 4 + 2 + 1);
    EXPECT_EQ(FormattedText("a%%b"), "a%b");
}

TEST(FormatEstimate, OfALongLiteralIsTakenInOnePass) {
    const std::string literal(40000, 'x');
    EXPECT_EQ(Estimate(literal.c_str()), 40000 / 2 * 40001);
}

TEST(FormatEstimate, OfATextIsItsLength) {
    EXPECT_EQ(Estimate("%s", "abc"), 3);
    EXPECT_EQ(Estimate("%hs", "abc"), 3);
    EXPECT_EQ(Estimate("%hS", "abc"), 3);
}

TEST(FormatEstimate, OfAnEmptyTextIsOne) {
    EXPECT_EQ(Estimate("%s", ""), 1);
}

TEST(FormatEstimate, OfANullTextIsSix) {
    EXPECT_EQ(Estimate("%s", kNoText), 6);
    EXPECT_EQ(Estimate("%.3s", kNoText), 3);
    EXPECT_EQ(Estimate("%8s", kNoText), 8);
    EXPECT_EQ(FormattedText("%s", kNoText), "(null)");
}

TEST(FormatEstimate, OfATextIsCutToThePrecision) {
    EXPECT_EQ(Estimate("%.2s", "abc"), 2);
    EXPECT_EQ(Estimate("%.9s", "abc"), 3);
    EXPECT_EQ(Estimate("%.*s", 2, "abc"), 2);
    EXPECT_EQ(Estimate("%.0s", "abc"), 0);
    EXPECT_EQ(Estimate("%.s", "abc"), 0);
    EXPECT_EQ(FormattedText("<%.0s>", "abc"), "<>");
}

TEST(FormatEstimate, OfATextReadsNoFurtherThanThePrecision) {
    const std::string exact = "abc";
    char* const unterminated = new char[3];
    exact.copy(unterminated, 3);
    EXPECT_EQ(Estimate("%.3s", unterminated), 3);
    delete[] unterminated;
}

TEST(FormatEstimate, OfATextIsAtLeastTheWidth) {
    EXPECT_EQ(Estimate("%10s", "abc"), 10);
    EXPECT_EQ(Estimate("%-10s", "abc"), 10);
    EXPECT_EQ(Estimate("%2s", "abc"), 3);
    EXPECT_EQ(Estimate("%10.2s", "abc"), 10);
    EXPECT_EQ(Estimate("%*s", 12, "abc"), 12);
}

TEST(FormatEstimate, OfAnIntegerIsAtLeast32) {
    EXPECT_EQ(Estimate("%d", 1), 32);
    EXPECT_EQ(Estimate("%i", 1), 32);
    EXPECT_EQ(Estimate("%o", 1), 32);
    EXPECT_EQ(Estimate("%u", 1), 32);
    EXPECT_EQ(Estimate("%x", 1), 32);
    EXPECT_EQ(Estimate("%X", 1), 32);
    EXPECT_EQ(Estimate("%p", nullptr), 32);
    EXPECT_EQ(Estimate("%ld", 1L), 32);
    EXPECT_EQ(Estimate("%hd", 1), 32);
}

TEST(FormatEstimate, OfAnIntegerIsWidthAndPrecisionWhenTheyAreMore) {
    EXPECT_EQ(Estimate("%40d", 1), 40);
    EXPECT_EQ(Estimate("%.40d", 1), 40);
    EXPECT_EQ(Estimate("%30.5d", 1), 35);
    EXPECT_EQ(Estimate("%20.5d", 1), 32);
    EXPECT_EQ(Estimate("%*.*d", 30, 30, 1), 60);
}

TEST(FormatEstimate, CountsTwoForEachNumberSign) {
    EXPECT_EQ(Estimate("%#x", 1), 34);
    EXPECT_EQ(Estimate("%##x", 1), 36);
    EXPECT_EQ(Estimate("%-+ 0d", 1), 32);
}

TEST(FormatEstimate, TakesTheWidthFromTheTextWhenTheArgumentIsZero) {
    EXPECT_EQ(Estimate("%*50d", 0, 1), 50);
    EXPECT_STRING_ASSERTION(Estimate("%*50d", 10, 1), "FALSE");
}

TEST(FormatEstimate, OfAnExponentIsAtLeast128) {
    EXPECT_EQ(Estimate("%e", 1.0), 128);
    EXPECT_EQ(Estimate("%g", 1.0), 128);
    EXPECT_EQ(Estimate("%G", 1.0), 128);
    EXPECT_EQ(Estimate("%200.10e", 1.0), 210);
}

TEST(FormatEstimate, OfAFixedPointNumberIsItsLengthWithSixMorePlaces) {
    EXPECT_EQ(Estimate("%f", 1.0), 8);
    EXPECT_EQ(Estimate("%.2f", 3.25), 10);
    EXPECT_EQ(Estimate("%.*f", 2, -3.25), 11);
    EXPECT_EQ(Estimate("%20f", 1.0), 20);
    EXPECT_EQ(Estimate("%400f", 1.0), 400);
    EXPECT_EQ(Estimate("%.1f", 9.99999999), 10);
    EXPECT_EQ(FormattedText("%.1f", 2.0 / 10), "0.2");
}

TEST(FormatEstimate, OfAHugeFixedPointNumberHoldsAllItsDigits) {
    constexpr double kMost = std::numeric_limits<double>::max();
    EXPECT_EQ(Estimate("%f", kMost), 309 + 1 + 6);
    EXPECT_EQ(Estimate("%f", -kMost), 1 + 309 + 1 + 6);
    EXPECT_EQ(Estimate("%.1200f", 0.1), 2 + 1206);
    EXPECT_EQ(Formatted("%.1200f", 0.1).GetLength(), 1202);
    EXPECT_EQ(Formatted("%.1200f", kMost).GetLength(), 309 + 1 + 1200);
    EXPECT_EQ(Estimate("%.1200f", std::numeric_limits<double>::infinity()), 3);
}

TEST(FormatEstimate, OfACountIsNothing) {
    int count = 0;
    EXPECT_EQ(Estimate("abc%n", &count), 5 + 4 + 3);
    EXPECT_EQ(count, 3);
}

TEST(FormatAssertion, NoFormat) {
    EXPECT_STRING_ASSERTION(Formatted(kNoText), "gIsValidString(lpszFormat)");
}

TEST(FormatAssertion, NegativeWidthOrPrecision) {
    EXPECT_STRING_ASSERTION(Formatted("%*d", -5, 1), "nWidth >= 0");
    EXPECT_STRING_ASSERTION(Formatted("%.*d", -5, 1), "nPrecision >= 0");
    EXPECT_STRING_ASSERTION(Formatted("%.-5d", 1), "nPrecision >= 0");
}

class UnsupportedConversion : public testing::TestWithParam<const char*> {};

TEST_P(UnsupportedConversion, StopsTheProgram) {
    EXPECT_STRING_ASSERTION(Formatted(GetParam(), 65, 65), "FALSE");
}

INSTANTIATE_TEST_SUITE_P(Conversions, UnsupportedConversion,
                         testing::Values("%c", "%hc", "%lc", "%5c", "%C", "%hC", "%lC", "%E", "%S", "%lS",
                                         "%ls", "%I64d", "%5.3I64x", "%Id", "%lld", "%hhd", "%zu", "%jd",
                                         "%td", "%a", "%m", "%q", "%F", "%L", "%", "%5", "%-", "%.", "%l",
                                         "%\n5d"));

TEST(FormatAssertion, ATextLongerThanItsEstimate) {
    EXPECT_STRING_ASSERTION(Formatted("%+f", 1.0), "r <= GetAllocLength()");
    EXPECT_STRING_ASSERTION(Formatted("%.40d", -1), "r <= GetAllocLength()");
}

TEST(FormatAssertion, AnEstimateAboveTheLargestBlock) {
    EXPECT_STRING_ASSERTION(Formatted("%2147483647d", 1), "nLen <= INT_MAX - 1");
    EXPECT_STRING_ASSERTION(Formatted("%99999999999999999999d", 1), "nLen <= INT_MAX - 1");
    EXPECT_STRING_ASSERTION(Formatted("%1500000000d%1500000000d", 1, 1), "nLen <= INT_MAX - 1");
    EXPECT_STRING_ASSERTION(Formatted("%.2147483647f", 1.0), "nLen <= INT_MAX - 1");
    EXPECT_STRING_ASSERTION(Formatted("%2147483647.2147483647x", 1), "nLen <= INT_MAX - 1");
    const std::string literal(70000, 'x');
    EXPECT_STRING_ASSERTION(Formatted(literal.c_str()), "nLen <= INT_MAX - 1");
}

}  // namespace
}  // namespace vexil
