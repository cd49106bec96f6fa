#include "service/routes/RouteTable.h"

#include <gmock/gmock.h>

namespace vexil {
namespace {

const LocalNames kNames({"Studio.local", "Studio on the second floor"});

class RouteTableTest : public ::testing::Test {
  protected:
    // Output 4 to input 9 of this computer, with nothing in the way.
    RouteTableTest() {
        configuration.OutputPorts = std::uint64_t{1} << 4;
        configuration.InputPorts = std::uint64_t{1} << 9;
        configuration.Hosts[4].DstHost = "studio";
        configuration.PortFlags[4].targetPort = 9;
    }

    Route RouteOf(int source) const {
        return MakeRouteTable(configuration, kNames).routes[static_cast<std::size_t>(source)];
    }
    Route TestRoute(const TestOutputRecord& record, int port) const {
        return MakeTestRoute(record, port, configuration, kNames);
    }

    DriverConfiguration configuration;
};

// A test output's record with no flag but those given.
TestOutputRecord Record(const char* targetComputer, std::uint8_t targetPort, std::uint8_t flags = 0) {
    return {{flags, 0, 0, targetPort}, targetComputer, ""};
}

TEST(LocalNamesTest, LocalhostIsAlwaysAmongThem) {
    EXPECT_TRUE(LocalNames({}).Contains("LocalHost"));
}

TEST(LocalNamesTest, NamesCompareWithoutRegardToCase) {
    EXPECT_TRUE(kNames.Contains("sTUDIO"));
    EXPECT_TRUE(kNames.Contains("STUDIO ON THE SECOND FLOOR"));
}

TEST(LocalNamesTest, NamesCompareWithoutRegardToTheTrailingDotAndLocalDomain) {
    for (const char* name : {"studio", "studio.", "studio.local", "Studio.LOCAL.", "studio.Local"}) {
        EXPECT_TRUE(kNames.Contains(name)) << name;
    }
}

TEST(LocalNamesTest, AnotherNameIsNotAmongThem) {
    for (const char* name :
         {"studio2", "studi", "local", "studio.example", "studio.local.example", " studio", "studiolocal"}) {
        EXPECT_FALSE(kNames.Contains(name)) << name;
    }
}

TEST(LocalNamesTest, TheEmptyNameIsNeverAmongThem) {
    const LocalNames names({"", ".", ".local."});
    EXPECT_FALSE(names.Contains(""));
    EXPECT_FALSE(names.Contains("."));
    EXPECT_FALSE(names.Contains(".local"));
}

TEST(LocalNamesTest, LettersBeyondAsciiCompareAsTheyAre) {
    const LocalNames names({"B\xc3\xbchne"});
    EXPECT_TRUE(names.Contains("b\xc3\xbchne"));
    EXPECT_FALSE(names.Contains("b\xc3\x9chne"));
}

TEST_F(RouteTableTest, AnOutputGoesToItsTargetPortOnThisComputer) {
    const Route route = RouteOf(4);
    EXPECT_EQ(route.destination.kind, Destination::Kind::Input);
    EXPECT_EQ(route.problem, RouteProblem::None);
    EXPECT_EQ(route.destination.port, 9);
    EXPECT_TRUE(GetsThrough(route));
}

TEST_F(RouteTableTest, APortThatIsNoOutputGoesNowhere) {
    configuration.OutputPorts = 0;
    EXPECT_EQ(RouteOf(4).destination.kind, Destination::Kind::Nowhere);
    EXPECT_EQ(RouteOf(4).problem, RouteProblem::NotEnabled);
    EXPECT_FALSE(GetsThrough(RouteOf(4)));
}

TEST_F(RouteTableTest, AnEmptyTargetComputerSendsNowhere) {
    configuration.Hosts[4].DstHost = "";
    EXPECT_EQ(RouteOf(4).destination.kind, Destination::Kind::Nowhere);
    EXPECT_EQ(RouteOf(4).problem, RouteProblem::NoTarget);
}

TEST_F(RouteTableTest, ATargetPortBeyondThePortsSendsNowhere) {
    for (const int target : {64, 255}) {
        configuration.PortFlags[4].targetPort = static_cast<std::uint8_t>(target);
        EXPECT_EQ(RouteOf(4).destination.kind, Destination::Kind::Nowhere) << target;
        EXPECT_EQ(RouteOf(4).problem, RouteProblem::TargetPortUnused) << target;
    }
}

TEST_F(RouteTableTest, TheLastPortIsATarget) {
    configuration.PortFlags[4].targetPort = 63;
    configuration.InputPorts = std::uint64_t{1} << 63;
    EXPECT_TRUE(GetsThrough(RouteOf(4)));
    EXPECT_EQ(RouteOf(4).destination.port, 63);
}

TEST_F(RouteTableTest, AnotherComputerIsARemoteDestinationWithItsReason) {
    configuration.Hosts[4].DstHost = "stage.local";
    EXPECT_EQ(RouteOf(4).destination.kind, Destination::Kind::Remote);
    EXPECT_EQ(RouteOf(4).problem, RouteProblem::RemoteUnreachable);
    EXPECT_EQ(RouteOf(4).destination.port, 9);
    EXPECT_FALSE(GetsThrough(RouteOf(4)));
}

TEST_F(RouteTableTest, ARouteKeepsTheComputerAndThePortThatItWasSetTo) {
    configuration.Hosts[4].DstHost = "Stage.local";
    EXPECT_EQ(RouteOf(4).computer, "Stage.local");
    EXPECT_EQ(RouteOf(4).port, 9);
    EXPECT_EQ(TestRoute(Record("Studio", 64), 30).computer, "Studio");
    EXPECT_EQ(TestRoute(Record("Studio", 64), 30).port, 64);
}

TEST_F(RouteTableTest, TheRouteOfAPipeKeepsThisComputer) {
    configuration.LocalPipes = std::uint64_t{1} << 20;
    EXPECT_EQ(RouteOf(20).computer, "Studio.local");
    EXPECT_EQ(RouteOf(20).port, 20);
}

TEST_F(RouteTableTest, AnotherComputerHearsFromWhichOutputOrTestOutputItIs) {
    configuration.Hosts[4].DstHost = "stage";
    EXPECT_EQ(RouteOf(4).destination.from, 4);
    EXPECT_EQ(TestRoute(Record("stage", 9), 4).destination.from, 68);
}

TEST_F(RouteTableTest, ATargetThatIsNoInputIsNotReached) {
    configuration.InputPorts = 0;
    EXPECT_EQ(RouteOf(4).destination.kind, Destination::Kind::Input);
    EXPECT_EQ(RouteOf(4).problem, RouteProblem::TargetNotInput);
    EXPECT_FALSE(GetsThrough(RouteOf(4)));
}

TEST_F(RouteTableTest, ATargetThatIsALocalPipeIsNotReached) {
    configuration.LocalPipes = std::uint64_t{1} << 9;
    EXPECT_EQ(RouteOf(4).problem, RouteProblem::TargetIsPipe);
}

TEST_F(RouteTableTest, AnInputPassesTheSourceComputerThatItNames) {
    configuration.PortFlags[9].flags = kSourcePortUnused;
    configuration.Hosts[9].SrcHost = "STUDIO.local.";
    EXPECT_EQ(RouteOf(4).problem, RouteProblem::None);
}

TEST_F(RouteTableTest, AnInputFiltersAnotherSourceComputer) {
    configuration.PortFlags[9].flags = kSourcePortUnused;
    configuration.Hosts[9].SrcHost = "stage";
    EXPECT_EQ(RouteOf(4).destination.kind, Destination::Kind::Input);
    EXPECT_EQ(RouteOf(4).problem, RouteProblem::WrongSourceComputer);
}

TEST_F(RouteTableTest, AnInputWhoseUsedSourceComputerIsEmptyHearsNobody) {
    configuration.PortFlags[9].flags = kSourcePortUnused;
    EXPECT_EQ(RouteOf(4).problem, RouteProblem::WrongSourceComputer);
}

TEST_F(RouteTableTest, ASourceComputerThatIsNotUsedDoesNotFilter) {
    configuration.PortFlags[9].flags = kSourcePortUnused | kSourceComputerUnused;
    configuration.Hosts[9].SrcHost = "stage";
    EXPECT_EQ(RouteOf(4).problem, RouteProblem::None);
}

TEST_F(RouteTableTest, AnInputPassesTheSourcePortThatItNames) {
    configuration.PortFlags[9] = {kSourceComputerUnused, 0, 4, 0};
    EXPECT_EQ(RouteOf(4).problem, RouteProblem::None);
}

TEST_F(RouteTableTest, AnInputFiltersAnotherSourcePort) {
    configuration.PortFlags[9] = {kSourceComputerUnused, 0, 5, 0};
    EXPECT_EQ(RouteOf(4).problem, RouteProblem::WrongSourcePort);
}

TEST_F(RouteTableTest, ASourcePortThatIsNotUsedDoesNotFilter) {
    configuration.PortFlags[9] = {kSourceComputerUnused | kSourcePortUnused, 0, 5, 0};
    EXPECT_EQ(RouteOf(4).problem, RouteProblem::None);
}

TEST_F(RouteTableTest, ALocalPipeReturnsToItsOwnInputPastEveryFilter) {
    configuration.LocalPipes = std::uint64_t{1} << 4;
    configuration.PortFlags[4].flags = 0;  // both filters used
    configuration.Hosts[4].SrcHost = "stage";
    const Route route = RouteOf(4);
    EXPECT_TRUE(GetsThrough(route));
    EXPECT_EQ(route.destination.port, 4);
}

TEST_F(RouteTableTest, ALocalPipeNeedsNeitherOutputNorInput) {
    configuration.OutputPorts = configuration.InputPorts = 0;
    configuration.LocalPipes = std::uint64_t{1} << 63;
    EXPECT_TRUE(GetsThrough(RouteOf(63)));
    EXPECT_EQ(RouteOf(63).destination.port, 63);
}

TEST_F(RouteTableTest, SendImmediatelyIsTheOutputsFlag) {
    configuration.PortFlags[9].flags |= kSendImmediately;
    EXPECT_FALSE(RouteOf(4).immediate);
    configuration.PortFlags[4].flags |= kSendImmediately;
    EXPECT_TRUE(RouteOf(4).immediate);
    configuration.LocalPipes = std::uint64_t{1} << 4;
    EXPECT_TRUE(RouteOf(4).immediate);
}

TEST_F(RouteTableTest, EveryOutputInputAndBothSidesOfAPipeHaveEndpoints) {
    configuration.LocalPipes = std::uint64_t{1} << 20;
    const RouteTable table = MakeRouteTable(configuration, kNames);
    EXPECT_EQ(table.outputEndpoints, std::uint64_t{1} << 4 | std::uint64_t{1} << 20);
    EXPECT_EQ(table.inputEndpoints, std::uint64_t{1} << 9 | std::uint64_t{1} << 20);
}

TEST_F(RouteTableTest, ATestOutputGoesWhereItsRecordSays) {
    const Route route = TestRoute(Record("Studio", 9), 30);
    EXPECT_TRUE(GetsThrough(route));
    EXPECT_EQ(route.destination.port, 9);
}

TEST_F(RouteTableTest, ATestOutputHasItsPortAsSourcePort) {
    configuration.PortFlags[9] = {kSourceComputerUnused, 0, 30, 0};
    EXPECT_EQ(TestRoute(Record("studio", 9), 30).problem, RouteProblem::None);
    EXPECT_EQ(TestRoute(Record("studio", 9), 31).problem, RouteProblem::WrongSourcePort);
}

TEST_F(RouteTableTest, ATestOutputOnAPipeGoesWhereItsRecordSaysAndNotIntoThePipe) {
    configuration.LocalPipes = std::uint64_t{1} << 30;
    EXPECT_EQ(TestRoute(Record("studio", 9), 30).destination.port, 9);
    EXPECT_EQ(TestRoute(Record("studio", 30), 30).problem, RouteProblem::TargetIsPipe);
}

TEST_F(RouteTableTest, ATestOutputKnowsTheProblemsOfAnOutput) {
    EXPECT_EQ(TestRoute(Record("", 9), 4).problem, RouteProblem::NoTarget);
    EXPECT_EQ(TestRoute(Record(".local", 9), 4).problem, RouteProblem::NoTarget);
    EXPECT_EQ(TestRoute(Record("studio", 64), 4).problem, RouteProblem::TargetPortUnused);
    EXPECT_EQ(TestRoute(Record("studio", 10), 4).problem, RouteProblem::TargetNotInput);
    EXPECT_EQ(TestRoute(Record("stage", 9), 4).destination.kind, Destination::Kind::Remote);
}

TEST_F(RouteTableTest, ATestOutputSendsImmediatelyByItsRecordsFlag) {
    configuration.PortFlags[4].flags |= kSendImmediately;
    EXPECT_FALSE(TestRoute(Record("studio", 9), 4).immediate);
    EXPECT_TRUE(TestRoute(Record("studio", 9, kSendImmediately), 4).immediate);
}

}  // namespace
}  // namespace vexil
