// Playing chords through an open test output.
#include <cerrno>

#include "tests/driver/TestOutputFixture.h"

namespace vexil {
namespace {

const std::vector<std::vector<std::uint8_t>> kChords = {
    {40, 52, 55, 62, 67, 71}, {45, 55, 61, 65, 70},     {51, 55, 61, 65, 72},     {50, 53, 60, 64, 69},
    {43, 53, 59, 63, 68},     {49, 53, 59, 63, 70},     {36, 48, 52, 58, 62, 67}, {47, 51, 57, 61, 66},
    {46, 50, 56, 60, 65},     {45, 49, 55, 59, 64},     {40, 57, 62, 67, 71},     {45, 55, 61, 65, 70},
    {50, 54, 60, 64, 69},     {50, 54, 60, 64, 71},     {50, 54, 60, 64, 69},     {43, 53, 60, 65, 69, 72},
    {49, 53, 59, 64, 68, 71}, {48, 52, 58, 64, 69, 72}, {47, 51, 57, 63, 68, 71}, {46, 50, 56, 62, 67, 70},
    {45, 49, 55, 61, 66, 69}, {44, 54, 60, 65, 69},     {43, 53, 59, 64, 68, 71}, {48, 52, 57, 62, 67, 72}};

class TestOutputPlayTest : public TestOutputFixture {
  protected:
    TestOutputPlayTest() { OpenOn(0); }

    // The packet list of a chord at the panel's time.
    Bytes List(const std::vector<std::uint8_t>& chord, std::uint8_t status, std::uint8_t velocity) const {
        Bytes list = {1,
                      0,
                      0,
                      0,  // one packet
                      0x88,
                      0x77,
                      0x66,
                      0x55,
                      0x44,
                      0x33,
                      0x22,
                      0x11,  // its time
                      static_cast<std::uint8_t>(3 * chord.size()),
                      0};  // its length
        for (const std::uint8_t note : chord) {
            list.push_back(status);
            list.push_back(note);
            list.push_back(velocity);
        }
        return list;
    }
    void Press() {
        output.Play(true);
        output.Play(false);
    }
};

TEST_F(TestOutputPlayTest, NoteOnSendsOnePacketOfThreeBytesForEachNote) {
    output.Play(true);
    ASSERT_EQ((std::vector<int>{0}), control.OptionNumbers());
    EXPECT_EQ(List(kChords[0], 0x90, 100), control.calls[0].bytes);
    EXPECT_EQ("", log.Text());
}

TEST_F(TestOutputPlayTest, SixNotesAreSentWithLength32AndFiveWith29) {
    Press();
    Press();
    ASSERT_EQ(4U, control.calls.size());
    EXPECT_EQ(32U, control.calls[0].length);
    EXPECT_EQ(32U, control.calls[1].length);
    EXPECT_EQ(29U, control.calls[2].length);
    EXPECT_EQ(29U, control.calls[3].length);
}

TEST_F(TestOutputPlayTest, NoteOffIsANoteOnWithoutVelocity) {
    output.Play(false);
    EXPECT_EQ(List(kChords[0], 0x90, 0), control.calls[0].bytes);
}

TEST_F(TestOutputPlayTest, TheOptionNumberIsThePort) {
    OpenOn(63);
    output.Play(true);
    EXPECT_EQ((std::vector<int>{63}), control.OptionNumbers());
}

TEST_F(TestOutputPlayTest, PacketsCarryTheHostTimeOfTheirPlay) {
    panel.time = 1;
    output.Play(true);
    panel.time = 0xFFFFFFFFFFFFFFFF;
    output.Play(false);
    EXPECT_EQ((Bytes{1, 0, 0, 0, 0, 0, 0, 0}),
              Bytes(control.calls[0].bytes.begin() + 4, control.calls[0].bytes.begin() + 12));
    EXPECT_EQ(Bytes(8, 0xFF), Bytes(control.calls[1].bytes.begin() + 4, control.calls[1].bytes.begin() + 12));
}

TEST_F(TestOutputPlayTest, ChannelsOneToFifteenFollowNoteOn) {
    for (int channel = 1; channel <= 15; ++channel) {
        panel.channel = channel;
        control.calls.clear();
        output.Play(true);
        EXPECT_EQ(List(kChords[0], static_cast<std::uint8_t>(0x8F + channel), 100), control.calls[0].bytes);
    }
}

TEST_F(TestOutputPlayTest, ChannelSixteenSendsFFBeforeEachNote) {
    panel.channel = 16;
    Press();
    EXPECT_EQ(List(kChords[0], 0xFF, 100), control.calls[0].bytes);
    EXPECT_EQ(List(kChords[0], 0xFF, 0), control.calls[1].bytes);
}

TEST_F(TestOutputPlayTest, EachPressPlaysTheNextChordAndTheFirstFollowsTheLast) {
    for (std::size_t press = 0; press < 49; ++press) {
        control.calls.clear();
        Press();
        ASSERT_EQ(2U, control.calls.size());
        SCOPED_TRACE(press);
        EXPECT_EQ(List(kChords[press % 24], 0x90, 100), control.calls[0].bytes);
        EXPECT_EQ(List(kChords[press % 24], 0x90, 0), control.calls[1].bytes);
    }
}

TEST_F(TestOutputPlayTest, NoteOnDoesNotMoveOnToTheNextChord) {
    output.Play(true);
    EXPECT_EQ(0U, connection.chordIndex);
}

TEST_F(TestOutputPlayTest, RefusedNoteOnIsLogged) {
    control.optionErrors[0] = EIO;
    output.Play(true);
    EXPECT_EQ("testout error 5 while playing...\n", log.Text());
    EXPECT_EQ(0U, connection.chordIndex);
    EXPECT_TRUE(connection.IsTestOutputOpen(0));
}

TEST_F(TestOutputPlayTest, RefusedNoteOffIsLoggedAndStillMovesOn) {
    control.optionErrors[0] = EIO;
    output.Play(false);
    EXPECT_EQ("testout error 5 while playing...\n", log.Text());
    EXPECT_EQ(1U, connection.chordIndex);
}

TEST_F(TestOutputPlayTest, ClosedPortSendsNothingAndKeepsTheChord) {
    connection.currentPort = 1;
    Press();
    EXPECT_TRUE(control.calls.empty());
    EXPECT_EQ(0U, connection.chordIndex);
    EXPECT_EQ("", log.Text());
}

TEST_F(TestOutputPlayTest, PlayDoesNotAskForAConnection) {
    connection.Close();
    control.calls.clear();
    output.Play(false);
    EXPECT_EQ("testout error 9 while playing...\n", log.Text());
    EXPECT_EQ(1U, connection.chordIndex);
}

TEST_F(TestOutputPlayTest, ChordThatDoesNotFitTheListIsLoggedAndNeitherSentNorPassed) {
    TestOutput narrow(connection, panel, 31);
    narrow.Play(false);
    EXPECT_EQ("Unexpected error while playing...\n", log.Text());
    EXPECT_TRUE(control.calls.empty());
    EXPECT_EQ(0U, connection.chordIndex);
}

TEST_F(TestOutputPlayTest, ListThatCannotBeStartedStopsWithoutAWord) {
    TestOutput none(connection, panel, 3);
    none.Play(false);
    EXPECT_EQ("", log.Text());
    EXPECT_TRUE(control.calls.empty());
    EXPECT_EQ(0U, connection.chordIndex);
}

}  // namespace
}  // namespace vexil
