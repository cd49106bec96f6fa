#include "service/backends/EndpointNames.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace vexil {
namespace {

using ::testing::ElementsAre;

constexpr NameRules kRules = {.longest = 12, .separators = ":/"};

std::vector<Endpoint> Outputs(const std::vector<std::string>& names) {
    std::vector<Endpoint> endpoints;
    for (const std::string& name : names) {
        endpoints.push_back({static_cast<int>(endpoints.size()), true, name, false});
    }
    return endpoints;
}

std::string NameOf(const std::string& name) {
    return MakeEndpointNames(Outputs({name}), kRules)[0];
}

TEST(EndpointNamesTest, ANameThatIsLegalStays) {
    EXPECT_EQ(NameOf("Stage piano"), "Stage piano");
}

TEST(EndpointNamesTest, LettersBeyondAsciiStay) {
    EXPECT_EQ(NameOf("Fl\xC3\xBCgel \xF0\x9F\x8E\xB9"), "Fl\xC3\xBCgel \xF0\x9F\x8E\xB9");
}

TEST(EndpointNamesTest, SeparatorsBecomeDashes) {
    EXPECT_EQ(NameOf("a:b/c"), "a-b-c");
}

TEST(EndpointNamesTest, ControlCharactersBecomeSpaces) {
    EXPECT_EQ(NameOf("a\tb\x7F"
                     "c\xC2\x85"
                     "d"),
              "a b c d");
}

TEST(EndpointNamesTest, BytesThatAreNoUtf8BecomeQuestionMarks) {
    EXPECT_EQ(NameOf("a\xFFz"), "a?z");
    EXPECT_EQ(NameOf("\xC0\x80"), "??");
    EXPECT_EQ(NameOf("\xED\xA0\x80"), "???");
    EXPECT_EQ(NameOf("\xF4\x90\x80\x80"), "????");
    EXPECT_EQ(NameOf("a\xE2\x82"), "a??");
}

TEST(EndpointNamesTest, SpacesAroundANameGo) {
    EXPECT_EQ(NameOf("  a b "), "a b");
}

TEST(EndpointNamesTest, ALongNameIsCutBetweenCharacters) {
    EXPECT_EQ(NameOf("abcdefghijklmn"), "abcdefghijkl");
    EXPECT_EQ(NameOf("abcdefghijk\xC3\xBCz"), "abcdefghijk");
    EXPECT_EQ(NameOf("abcdefghijk lm"), "abcdefghijk");
}

TEST(EndpointNamesTest, ANameWithNothingToSeeIsThatOfThePort) {
    EXPECT_THAT(MakeEndpointNames({{10, true, "", false}, {63, false, " \t", false}}, kRules),
                ElementsAre("Port 23", "Port 88"));
}

TEST(EndpointNamesTest, EqualNamesAreNumbered) {
    EXPECT_THAT(MakeEndpointNames(Outputs({"Piano", "Piano", "Piano"}), kRules),
                ElementsAre("Piano", "Piano (2)", "Piano (3)"));
}

TEST(EndpointNamesTest, NamesThatBecomeEqualAreNumbered) {
    EXPECT_THAT(MakeEndpointNames(Outputs({"a:b", "a/b", "abcdefghijklm", "abcdefghijklx"}), kRules),
                ElementsAre("a-b", "a-b (2)", "abcdefghijkl", "abcdefgh (2)"));
}

TEST(EndpointNamesTest, ANumberThatIsANameAlreadyIsPassedOver) {
    EXPECT_THAT(MakeEndpointNames(Outputs({"a", "a (2)", "a"}), kRules), ElementsAre("a", "a (2)", "a (3)"));
}

TEST(EndpointNamesTest, WhichKeepsTheNameGoesByPortAndSide) {
    EXPECT_THAT(
        MakeEndpointNames({{1, true, "x", false}, {0, false, "x", false}, {0, true, "x", false}}, kRules),
        ElementsAre("x (3)", "x (2)", "x"));
}

TEST(EndpointNamesTest, ANameSaysItsDirectionWhereTheRulesWantIt) {
    EXPECT_THAT(
        MakeEndpointNames({{0, true, "Piano", false}, {0, false, "Piano", false}, {1, true, "Piano", false}},
                          {.longest = 100, .separators = "", .directions = true}),
        ElementsAre("Piano out", "Piano in", "Piano (2) out"));
}

TEST(EndpointNamesTest, ALongNameKeepsItsDirection) {
    EXPECT_THAT(MakeEndpointNames({{0, true, "abcdefghijklm", false}, {1, true, "abcdefghijklx", false}},
                                  {.longest = 12, .separators = "", .directions = true}),
                ElementsAre("abcdefgh out", "abcd (2) out"));
}

class PortNamesTest : public ::testing::Test {
  protected:
    void Name(int port, const char* output, const char* input) {
        configuration.CustomNames[port].Out_CustomName = output;
        configuration.CustomNames[port].In_CustomName = input;
    }
    std::string Output(int port) const {
        return MakePortNames(configuration, true)[static_cast<std::size_t>(port)];
    }
    std::string Input(int port) const {
        return MakePortNames(configuration, false)[static_cast<std::size_t>(port)];
    }

    DriverConfiguration configuration;
};

TEST_F(PortNamesTest, APortIsCalledAsItsUserCallsIt) {
    Name(6, "Stage piano", "Strings");
    EXPECT_EQ(Output(6), "Stage piano");
    EXPECT_EQ(Input(6), "Strings");
}

TEST_F(PortNamesTest, APortWithoutANameOfItsOwnIsCalledByItsNumber) {
    EXPECT_EQ(Output(6), "Port 17");
    EXPECT_EQ(Input(63), "Port 88");
}

TEST_F(PortNamesTest, OfPortsWithOneNameTheOthersHaveTheirNumber) {
    Name(0, "Piano", "");
    Name(6, "Piano", "Piano");
    EXPECT_EQ(Output(0), "Piano");
    EXPECT_EQ(Output(6), "Piano 17");
    EXPECT_EQ(Input(6), "Piano");
}

TEST_F(PortNamesTest, ANameDoesNotDependOnWhichPortsAreInUse) {
    Name(0, "Piano", "");
    Name(6, "Piano", "");
    configuration.OutputPorts = 1 << 6;
    const std::string alone = Output(6);
    configuration.OutputPorts |= 1;
    EXPECT_EQ(Output(6), alone);
}

TEST_F(PortNamesTest, ANumberThatIsANameAlreadyIsPassedOver) {
    Name(0, "Port 12", "");
    EXPECT_EQ(Output(1), "Port 12 12");
    Name(2, "Port 12 12", "");
    EXPECT_EQ(Output(2), "Port 12 12 13");
}

}  // namespace
}  // namespace vexil
