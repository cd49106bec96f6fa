#include "service/control/RouteText.h"

#include <gmock/gmock.h>

namespace vexil {
namespace {

// The route of the output of port 11 to port 12 of this computer, and what is said of it.
class RouteTextTest : public ::testing::Test {
  protected:
    RouteTextTest() {
        configuration.Hosts[0].DstHost = "studio";
        configuration.PortFlags[0].targetPort = 1;
        configuration.InputPorts = 2;
    }

    std::string Problem() const {
        const RouteTable table = MakeRouteTable(configuration, LocalNames({"studio"}));
        return RouteProblemText(table.routes[0], configuration);
    }

    DriverConfiguration configuration;
};

TEST_F(RouteTextTest, OfAWayThatGetsThroughIsEmpty) {
    EXPECT_EQ("", Problem());
}

TEST_F(RouteTextTest, OfAnOutputThatIsOff) {
    configuration.OutputPorts = 0;
    EXPECT_EQ("The output is not enabled.", Problem());
}

TEST_F(RouteTextTest, WithoutATargetComputer) {
    configuration.Hosts[0].DstHost = "";
    EXPECT_EQ("No target computer is set.", Problem());
}

TEST_F(RouteTextTest, ToAPortThatIsNoInput) {
    configuration.InputPorts = 0;
    EXPECT_EQ("Port 12 is not enabled as MIDI IN.", Problem());
}

TEST_F(RouteTextTest, ToALocalPipe) {
    configuration.LocalPipes = 2;
    EXPECT_EQ("Port 12 is a local pipe, which hears only itself.", Problem());
}

TEST_F(RouteTextTest, ToAPortThatListensToAnotherComputer) {
    configuration.PortFlags[1].flags = kSourcePortUnused;
    configuration.Hosts[1].SrcHost = "stage";
    EXPECT_EQ("Port 12 listens to the computer \"stage\" only.", Problem());
}

TEST_F(RouteTextTest, ToAPortThatListensToNoComputer) {
    configuration.PortFlags[1].flags = kSourcePortUnused;
    EXPECT_EQ("Port 12 listens to one computer only, and none is named.", Problem());
}

TEST_F(RouteTextTest, ToAPortThatListensToAnotherPort) {
    configuration.PortFlags[1].flags = kSourceComputerUnused;
    configuration.PortFlags[1].sourcePort = 63;
    EXPECT_EQ("Port 12 listens to port 88 only.", Problem());
}

TEST_F(RouteTextTest, ToAnotherComputer) {
    configuration.Hosts[0].DstHost = "stage";
    EXPECT_EQ("The computer \"stage\" cannot be reached.", Problem());
}

TEST_F(RouteTextTest, ToAPortThatThereIsNot) {
    configuration.PortFlags[0].targetPort = 64;
    EXPECT_EQ("There is no port 91 to send to.", Problem());
}

TEST(LoopTextTest, NamesTheWayAndItsRateAndTheComputerWhereThatIsAnother) {
    Route route;
    route.port = 0;
    route.computer = "stage";
    route.destination = Destination::Input(0);
    EXPECT_EQ("Port 12 -> 11 carries 37000 messages a second: a loop?", LoopText(1, route, 37000));
    route.destination = Destination::Remote(0, 0, 1);
    EXPECT_EQ("Port 12 -> 11 of \"stage\" carries 6000 messages a second: a loop?", LoopText(1, route, 6000));
    EXPECT_EQ("", LoopText(1, route, 0));
}

TEST(PortTextTest, IsTheNumberThatIsShown) {
    EXPECT_EQ("11", PortText(0));
    EXPECT_EQ("88", PortText(63));
}

TEST(NameTextTest, HasNoControlCharacters) {
    EXPECT_EQ("a?b?c", NameText("a\nb\x7F"
                                "c"));
    EXPECT_EQ("csi?31m", NameText("csi\u009b31m"));
    EXPECT_EQ("over?ride", NameText("over\u202eride"));
}

TEST(NameTextTest, IsCutBetweenCharacters) {
    const std::string name = std::string(63, 'x') + "\xC3\xA9";
    EXPECT_EQ(std::string(63, 'x') + "...", NameText(name));
    EXPECT_EQ(std::string(64, 'x'), NameText(std::string(64, 'x')));
}

}  // namespace
}  // namespace vexil
