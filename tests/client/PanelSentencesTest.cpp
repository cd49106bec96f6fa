// What the window says of how things stand, and in which order.
#include "client/PanelSentences.h"

#include <gmock/gmock.h>

#include <cstdlib>
#include <ctime>

namespace vexil {
namespace {

using Driver = PanelSituation::Driver;
using FileUse = PanelSituation::FileUse;
using Weight = Sentence::Weight;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

constexpr std::uint64_t kNoon = 1'793'016'000;  // 2026-10-26 12:00 UTC
constexpr std::uint64_t kHour = 3600;

OutputReport Output(const std::string& computer, const std::string& problem) {
    OutputReport output;
    output.target = {computer, 21};
    output.routeProblem = problem;
    return output;
}

PortReport Port(unsigned number, const std::string& computer = "", const std::string& problem = "") {
    PortReport port;
    port.port = number;
    port.output = Output(computer, problem);
    return port;
}

SessionReport Session(const std::string& computer, const std::string& problem) {
    SessionReport session;
    session.computer = computer;
    session.problem = problem;
    session.up = problem.empty();
    return session;
}

StatusReport Running() {
    StatusReport report;
    report.backend = "alsa";
    report.running = true;
    report.showConnectors = true;
    report.network = NetworkReport();
    report.ports = {Port(11), Port(12)};
    return report;
}

class PanelSentencesTest : public ::testing::Test {
  protected:
    PanelSentencesTest() {
        setenv("TZ", "UTC", 1);
        tzset();
        situation.driver = Driver::Running;
        situation.report = Running();
        situation.reportTime = kNoon;
    }
    std::vector<std::string> Texts() const {
        std::vector<std::string> texts;
        for (const Sentence& sentence : SentencesOf(situation)) {
            texts.push_back(sentence.text);
        }
        return texts;
    }
    std::string Line() const { return LineOf(situation).text; }
    Sentence First() const { return SentencesOf(situation).at(0); }

    PanelSituation situation;
};

TEST_F(PanelSentencesTest, WithoutANewsThereIsNothingToSay) {
    EXPECT_THAT(SentencesOf({}), IsEmpty());
    EXPECT_EQ("", LineOf({}).text);
}

TEST_F(PanelSentencesTest, OfADriverItSaysWhatItRunsOn) {
    EXPECT_EQ("Driver running, ALSA, 2 ports", Line());
    EXPECT_EQ(Weight::Fine, First().weight);
    situation.report->backend = "jack";
    situation.report->ports = {Port(11)};
    situation.report->sessions = {Session("stage", ""), Session("attic", "")};
    EXPECT_EQ("Driver running, JACK, 1 port, 2 computers", Line());
    situation.report->backend = "none";
    situation.report->portsLeftOut = 3;
    situation.report->sessions.pop_back();
    EXPECT_EQ("Driver running, no MIDI system, 4 ports, 1 computer", Line());
}

TEST_F(PanelSentencesTest, OfADriverThatIsNotThereItSaysSo) {
    situation.report.reset();
    EXPECT_EQ("The driver's status makes no sense", Line());
    situation.driver = Driver::Absent;
    EXPECT_EQ("No driver is running", Line());
    situation.driver = Driver::Silent;
    EXPECT_EQ("The driver does not answer", Line());
    situation.driver = Driver::Unusable;
    situation.driverProblem = "what answers is not for this user";
    EXPECT_EQ("The driver cannot be asked: what answers is not for this user", Line());
    EXPECT_EQ(Weight::Trouble, First().weight);
}

TEST_F(PanelSentencesTest, TheMostImportantComesFirst) {
    StatusReport& report = *situation.report;
    report.running = false;
    report.midiProblem = "The JACK server has ended.";
    report.network->problem = "Port 11188 is taken.";
    report.network->refused = {{"laptop", "0123456789abcdef"}};
    report.network->remarks = {"More than one computer is called \"attic\"."};
    report.realtimeProblem = "No realtime priority.";
    report.ports = {Port(14, "stage", "Port 21 of \"stage\" is not enabled as MIDI IN.")};
    situation.notStored = "you may not write /x";
    situation.notTakenUp = "it does not answer";
    situation.hasChanges = true;
    situation.fileUse = FileUse::Loaded;
    situation.file = "/home/me/live.vexil3";
    EXPECT_THAT(Texts(),
                ElementsAre("Not stored: you may not write /x",
                            "Stored, but the driver has not taken it up: it does not answer",
                            "The JACK server has ended", "Port 11188 is taken",
                            "Port 14: Port 21 of \"stage\" is not enabled as MIDI IN",
                            "A computer with another key than before calls itself \"laptop\"",
                            "Changes are not applied", "Driver running, ALSA, 1 port", "No realtime priority",
                            "More than one computer is called \"attic\"", "live.vexil3 was loaded"));
    EXPECT_EQ(Texts()[0], Line());
    situation.driver = Driver::Silent;
    EXPECT_EQ("The driver does not answer", Texts()[2]);
}

TEST_F(PanelSentencesTest, WhatIsStoredWithoutADriverWasNotMissedByIt) {
    situation.notTakenUp = "Broken pipe";
    situation.driver = Driver::Absent;
    EXPECT_THAT(Texts(), ElementsAre("No driver is running"));
}

TEST_F(PanelSentencesTest, WhereNothingIsWrongTheLineNamesTheSettingsFileToo) {
    situation.fileUse = FileUse::Saved;
    situation.file = "/home/me/live.vexil3";
    EXPECT_EQ("live.vexil3 was saved. Driver running, ALSA, 2 ports", Line());
    situation.hasChanges = true;
    EXPECT_EQ("live.vexil3 was saved. Changes are not applied", Line());
    situation.driver = Driver::Absent;
    EXPECT_EQ("No driver is running", Line());
    situation = {};
    situation.fileUse = FileUse::Loaded;
    situation.file = "a\x1b.vexil3";
    EXPECT_EQ("a?.vexil3 was loaded", Line());
}

TEST_F(PanelSentencesTest, AComputerThatDoesNotAnswerIsNamedWithItsPortsAndSinceWhen) {
    const std::string problem = "The computer \"studio\" does not answer.";
    situation.report->ports = {Port(14, "studio", problem)};
    situation.report->sessions = {Session("studio", problem)};
    situation.report->sessions[0].seconds = 57 * 60 + 5;
    EXPECT_EQ("Port 14: The computer \"studio\" does not answer (since 11:02)", Line());
    situation.report->sessions[0].seconds = 13 * kHour;
    EXPECT_EQ("Port 14: The computer \"studio\" does not answer (since 2026-10-25 23:00)", Line());
    situation.report->sessions[0].seconds = 0;
    situation.report->ports.push_back(Port(18, "studio", problem));
    EXPECT_EQ("Ports 14 and 18: The computer \"studio\" does not answer", Line());
    situation.report->ports.push_back(Port(21, "studio", problem));
    EXPECT_EQ("Port 14 and 2 more: The computer \"studio\" does not answer", Line());
    EXPECT_FALSE(First().remedy);
    EXPECT_THAT(First().advice, HasSubstr("the same network"));
}

TEST_F(PanelSentencesTest, AnotherKeyCanBeAccepted) {
    const std::string problem = "Another key than before answers as \"studio\".";
    situation.report->ports = {Port(14, "studio", problem)};
    situation.report->sessions = {Session("studio", problem)};
    situation.report->sessions[0].needs = "key";
    ASSERT_TRUE(First().remedy);
    EXPECT_EQ("Accept", First().remedy->button);
    EXPECT_THAT(First().remedy->words, ElementsAre("pin", "studio"));
    situation.report->ports = {};
    situation.report->sessions = {};
    situation.report->network->refused = {{"laptop", "0123456789abcdef"}};
    EXPECT_THAT(First().remedy->words, ElementsAre("pin", "laptop", "0123456789abcdef"));
    EXPECT_THAT(First().advice, HasSubstr("0123456789abcdef"));
    EXPECT_EQ(Weight::Notice, First().weight);
}

TEST_F(PanelSentencesTest, ASecretThatIsWantedCanBeEntered) {
    situation.report->sessions = {Session("studio", "\"studio\" wants a secret, and none is set here.")};
    situation.report->sessions[0].needs = "secret";
    EXPECT_EQ("\"studio\" wants a secret, and none is set here", Line());
    ASSERT_TRUE(First().remedy);
    EXPECT_TRUE(First().remedy->asksSecret);
    EXPECT_THAT(First().remedy->words, ElementsAre("secret"));
}

TEST_F(PanelSentencesTest, AComputerThatIsConnectedForTheFirstTimeCanBeBlocked) {
    situation.report->sessions = {Session("stage", "")};
    situation.report->sessions[0].key = "0011223344556677";
    situation.report->sessions[0].since = kNoon - kHour;
    const std::vector<Sentence> sentences = SentencesOf(situation);
    ASSERT_EQ(2U, sentences.size());
    EXPECT_EQ("\"stage\" was connected for the first time at 11:00", sentences[1].text);
    EXPECT_THAT(sentences[1].remedy->words, ElementsAre("block", "0011223344556677"));
    situation.report->sessions[0].since = kNoon - 25 * kHour;
    EXPECT_EQ(1U, SentencesOf(situation).size());
}

TEST_F(PanelSentencesTest, WhatKeepsAllPortsFromBeingHeardIsSaidOnce) {
    situation.report->running = false;
    situation.report->midiProblem = "The ALSA sequencer is not there.";
    for (PortReport& port : situation.report->ports) {
        port.output->endpoint.problem = situation.report->midiProblem;
    }
    EXPECT_THAT(Texts(), ElementsAre("The ALSA sequencer is not there", "Driver running, ALSA, 2 ports"));
    situation.report = Running();
    situation.report->showConnectors = false;
    for (PortReport& port : situation.report->ports) {
        port.output->endpoint.problem = "Show Connectors is off: programs do not list this port.";
    }
    EXPECT_THAT(Texts(), ElementsAre("Driver running, ALSA, 2 ports",
                                     "Show Connectors is off: music programs do not list the ports"));
}

}  // namespace
}  // namespace vexil
