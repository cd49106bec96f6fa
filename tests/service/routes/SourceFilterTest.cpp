#include "service/routes/SourceFilter.h"

#include <gmock/gmock.h>

namespace vexil {
namespace {

const LocalNames kHere({"studio"});
const ComputerNames kStage({"Stage.local", "192.168.1.7"});

class SourceFilterTest : public ::testing::Test {
  protected:
    SourceFilterTest() { configuration.InputPorts = std::uint64_t{1} << 9; }
    void ListenTo(const char* computer) {
        configuration.PortFlags[9].flags = kSourcePortUnused;
        configuration.Hosts[9].SrcHost = computer;
    }

    DriverConfiguration configuration;
};

TEST_F(SourceFilterTest, AnInputWithoutAFilterAdmitsEveryComputer) {
    configuration.PortFlags[9].flags = kSourceComputerUnused | kSourcePortUnused;
    EXPECT_EQ(ProblemAtInput(configuration, 9, kHere, 4), RouteProblem::None);
    EXPECT_EQ(ProblemAtInput(configuration, 9, kStage, 4), RouteProblem::None);
}

TEST_F(SourceFilterTest, AnInputAdmitsTheComputerThatItNamesByAnyOfItsNames) {
    for (const char* name : {"stage", "STAGE.", "192.168.1.7"}) {
        ListenTo(name);
        EXPECT_EQ(ProblemAtInput(configuration, 9, kStage, 4), RouteProblem::None) << name;
        EXPECT_EQ(ProblemAtInput(configuration, 9, kHere, 4), RouteProblem::WrongSourceComputer) << name;
    }
}

TEST_F(SourceFilterTest, LocalhostIsThisComputerAndNoOther) {
    ListenTo("localhost");
    EXPECT_EQ(ProblemAtInput(configuration, 9, kHere, 4), RouteProblem::None);
    EXPECT_EQ(ProblemAtInput(configuration, 9, kStage, 4), RouteProblem::WrongSourceComputer);
}

TEST_F(SourceFilterTest, ThePortCountsForEveryComputer) {
    configuration.PortFlags[9] = {kSourceComputerUnused, 0, 4, 0};
    EXPECT_EQ(ProblemAtInput(configuration, 9, kStage, 4), RouteProblem::None);
    EXPECT_EQ(ProblemAtInput(configuration, 9, kStage, 5), RouteProblem::WrongSourcePort);
}

TEST_F(SourceFilterTest, APortThatIsNoInputOrAPipeAdmitsNobody) {
    EXPECT_EQ(ProblemAtInput(configuration, 8, kStage, 4), RouteProblem::TargetNotInput);
    configuration.LocalPipes = std::uint64_t{1} << 9;
    EXPECT_EQ(ProblemAtInput(configuration, 9, kStage, 4), RouteProblem::TargetIsPipe);
}

}  // namespace
}  // namespace vexil
