// The marks of the ports, from one status of the driver to the next.
#include "client/PortMarks.h"

#include <gmock/gmock.h>

namespace vexil {
namespace {

using ::testing::HasSubstr;

class PortMarksTest : public ::testing::Test {
  protected:
    PortMarksTest() {
        PortReport both;
        both.port = 12;
        both.output = OutputReport();
        both.output->endpoint.name = "Stage piano";
        both.output->target = {"studio", 21};
        both.input = InputReport();
        PortReport pipe;
        pipe.port = 88;
        pipe.pipe = true;
        pipe.output = OutputReport();
        pipe.input = InputReport();
        report.ports = {both, pipe};
    }
    const PortMark& Mark(std::size_t index) {
        marks.Take(report);
        return marks.All()[index];
    }
    std::uint64_t& Messages() { return report.ports[0].output->traffic.messages; }

    StatusReport report;
    PortMarks marks;
};

TEST_F(PortMarksTest, TellHowAPortIsEnabled) {
    EXPECT_TRUE(Mark(1).in);
    EXPECT_TRUE(Mark(1).out);
    EXPECT_FALSE(Mark(1).pipe);
    EXPECT_TRUE(Mark(63).pipe);
    EXPECT_FALSE(Mark(63).in || Mark(63).out);
    EXPECT_EQ(PortMark(), Mark(0));
    report.ports[0].input.reset();
    EXPECT_FALSE(Mark(1).in);
}

TEST_F(PortMarksTest, SayTheSameInWords) {
    EXPECT_EQ(
        "MIDI OUT \"Stage piano\" to studio, port 21, not connected.\n"
        "MIDI IN from any computer and port, not connected.",
        Mark(1).words);
    EXPECT_EQ("MIDI OUT to its own input, not connected.\nMIDI IN from its own output, not connected.",
              Mark(63).words);
    report.ports[0].output->endpoint.connections = 2;
    report.ports[0].input->sourceComputer = "attic\x1b";
    report.ports[0].output->routeProblem = "The computer \"studio\" does not answer.";
    EXPECT_EQ(
        "MIDI OUT \"Stage piano\" to studio, port 21, 2 connections.\n"
        "The computer \"studio\" does not answer.\n"
        "MIDI IN from attic?, any port, not connected.",
        Mark(1).words);
}

TEST_F(PortMarksTest, ConnectedIsToAProgramOrToAnotherComputer) {
    EXPECT_FALSE(Mark(1).connected);
    report.ports[0].input->endpoint.connections = 1;
    EXPECT_TRUE(Mark(1).connected);
    report.ports[0].input->endpoint.connections = 0;
    SessionReport session;
    session.up = true;
    session.ways = {{12, 21, false, false, ""}};
    report.sessions = {session};
    EXPECT_TRUE(Mark(1).connected);
    report.sessions[0].ways[0].problem = "Port 21 is a local pipe.";
    EXPECT_FALSE(Mark(1).connected);
    report.sessions[0].ways[0] = {31, 12, true, false, ""};
    EXPECT_TRUE(Mark(1).connected);
    report.sessions[0].up = false;
    EXPECT_FALSE(Mark(1).connected);
}

TEST_F(PortMarksTest, TroubleIsWhateverKeepsItFromBeingHeard) {
    EXPECT_FALSE(Mark(1).trouble);
    report.ports[0].input->endpoint.problem = "The name is taken.";
    EXPECT_TRUE(Mark(1).trouble);
    report.ports[0].input->endpoint.problem = "Show Connectors is off: programs do not list this port.";
    EXPECT_FALSE(Mark(1).trouble) << "it is what the user has chosen";
    report.ports[0].output->warning = "A loop?";
    EXPECT_TRUE(Mark(1).trouble);
}

TEST_F(PortMarksTest, APortPlaysWhenItHasCountedMessagesBetweenTwoLooks) {
    Messages() = 100;
    EXPECT_FALSE(Mark(1).playing) << "nobody knows when they were";
    report.looks = 1;
    Messages() = 101;
    EXPECT_TRUE(Mark(1).playing);
    EXPECT_THAT(Mark(1).words, HasSubstr("Playing now."));
    EXPECT_TRUE(Mark(1).playing) << "the same look says nothing new";
    report.looks = 2;
    EXPECT_FALSE(Mark(1).playing);
}

TEST_F(PortMarksTest, WithoutADriverThereAreNone) {
    Messages() = 100;
    Mark(1);
    marks.Clear();
    EXPECT_EQ(PortMark(), marks.All()[1]);
    report.looks = 7;
    EXPECT_FALSE(Mark(1).playing) << "another driver counts anew";
}

}  // namespace
}  // namespace vexil
