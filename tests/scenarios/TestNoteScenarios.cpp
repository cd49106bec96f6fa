// The round button: a chord sounds while it is held.
#include "tests/scenarios/Scenario.h"

namespace vexil {
namespace {

using Options = std::vector<int>;
using Bytes = std::vector<std::uint8_t>;

class TestNote : public Scenario {
  protected:
    // The chords sent to port 0 since the last Sent(): the MIDI bytes of each.
    std::vector<Bytes> Chords(int port = 0) {
        std::vector<Bytes> chords;
        for (std::size_t i = callsSeenHere; i < driver.calls.size(); ++i) {
            const KernelCall& call = driver.calls[i];
            if (call.operation == KernelOperation::SetOption && call.option == port) {
                chords.emplace_back(call.bytes.begin() + 14, call.bytes.end());
            }
        }
        callsSeenHere = driver.calls.size();
        return chords;
    }

    std::size_t callsSeenHere = 0;
};

TEST_F(TestNote, PressSendsTheChordOnAndTheReleaseSendsItOff) {
    Run([&] {
        Hands().PressTestButton(kButtonCentre, PressEnd::ReleaseInside);
        const std::vector<Bytes> chords = Chords();
        ASSERT_EQ(chords.size(), 2U);
        EXPECT_EQ(chords[0], (Bytes{0x90, 40, 100, 0x90, 52, 100, 0x90, 55, 100, 0x90, 62, 100, 0x90, 67, 100,
                                    0x90, 71, 100}));
        EXPECT_EQ(chords[1],
                  (Bytes{0x90, 40, 0, 0x90, 52, 0, 0x90, 55, 0, 0x90, 62, 0, 0x90, 67, 0, 0x90, 71, 0}));
    });
}

TEST_F(TestNote, ChordOfSixNotesIsAListOf32Bytes) {
    Run([&] {
        Sent();
        Hands().PressTestButton(kButtonCentre, PressEnd::ReleaseInside);
        EXPECT_EQ(LastCall(0).length, 32U);
    });
}

TEST_F(TestNote, ChordSoundsUntilThePressEnds) {
    Run([&] {
        Hands().PressTestButton(kButtonCentre, PressEnd::ReleaseInside,
                                [&] { EXPECT_EQ(Chords().size(), 1U); });
        EXPECT_EQ(Chords().size(), 1U);
    });
}

TEST_F(TestNote, HoweverThePressEndsTheChordIsSwitchedOff) {
    Run([&] {
        for (const PressEnd end : {PressEnd::ReleaseInside, PressEnd::ReleaseOutside,
                                   PressEnd::WindowDeactivated, PressEnd::GrabLost}) {
            Hands().PressTestButton(kButtonCentre, end);
            const std::vector<Bytes> chords = Chords();
            ASSERT_EQ(chords.size(), 2U) << static_cast<int>(end);
            EXPECT_EQ(chords[0][2], 100);
            EXPECT_EQ(chords[1][2], 0);
        }
    });
}

TEST_F(TestNote, PressOnTheEdgeIsNone) {
    Run([&] {
        for (const ButtonPoint point :
             {kButtonTopLeftCorner, kButtonLeftEdge, kButtonTopEdge, kButtonRightEdge, kButtonBottomEdge}) {
            Hands().PressTestButton(point, PressEnd::ReleaseInside);
        }
        EXPECT_TRUE(Chords().empty());
    });
}

TEST_F(TestNote, PressOnePixelInsideTheEdgeIsOne) {
    Run([&] {
        Hands().PressTestButton({1, 9}, PressEnd::ReleaseInside);
        EXPECT_EQ(Chords().size(), 2U);
    });
}

TEST_F(TestNote, TwentyFifthPressPlaysTheFirstChordAgain) {
    Run([&] {
        std::vector<Bytes> chords;
        for (int press = 0; press < 25; ++press) {
            Hands().PressTestButton(kButtonCentre, PressEnd::ReleaseInside);
            const std::vector<Bytes> both = Chords();
            ASSERT_EQ(both.size(), 2U);
            chords.push_back(both[0]);
        }
        EXPECT_NE(chords[1], chords[0]);
        EXPECT_NE(chords[23], chords[0]);
        EXPECT_EQ(chords[24], chords[0]);
    });
}

TEST_F(TestNote, FailedSendsAreLoggedAndTheNextPressPlaysTheNextChord) {
    driver.optionErrors[0] = EIO;
    Run([&] {
        world->log.Clear();
        Hands().PressTestButton(kButtonCentre, PressEnd::ReleaseInside);
        EXPECT_EQ(world->log.Text(), "testout error 5 while playing...\ntestout error 5 while playing...\n");
        driver.optionErrors.clear();
        Chords();
        Hands().PressTestButton(kButtonCentre, PressEnd::ReleaseInside);
        const std::vector<Bytes> chords = Chords();
        ASSERT_EQ(chords.size(), 2U);
        EXPECT_EQ(chords[0][1], 45);
    });
}

TEST_F(TestNote, ClosedTestPlaysNothing) {
    driver.optionErrors[193] = EIO;
    Run([&] {
        Hands().PressTestButton(kButtonCentre, PressEnd::ReleaseInside);
        EXPECT_TRUE(Chords().empty());
    });
}

TEST_F(TestNote, WithoutDriverNothingPlays) {
    driver.driverPresent = false;
    Run([&] {
        Sent();
        Hands().PressTestButton(kButtonCentre, PressEnd::ReleaseInside);
        EXPECT_EQ(Sent(), Options());
    });
}

TEST_F(TestNote, ChosenChannelIsInTheStatusByte) {
    Run([&] {
        Hands().HoldArrows(kTestChannelArrows, true, 9);
        Hands().PressTestButton(kButtonCentre, PressEnd::ReleaseInside);
        const std::vector<Bytes> chords = Chords();
        ASSERT_EQ(chords.size(), 2U);
        EXPECT_EQ(chords[0][0], 0x99);
        EXPECT_EQ(chords[1][0], 0x99);
    });
}

TEST_F(TestNote, Channel16SendsStatus0xFF) {
    Run([&] {
        Hands().HoldArrows(kTestChannelArrows, true, 15);
        Hands().PressTestButton(kButtonCentre, PressEnd::ReleaseInside);
        const std::vector<Bytes> chords = Chords();
        ASSERT_EQ(chords.size(), 2U);
        EXPECT_EQ(chords[0][0], 0xff);
    });
}

TEST_F(TestNote, ChordGoesOutThroughTheShownPort) {
    DriverConfiguration stored;
    stored.OutputPorts = std::uint64_t{1} << 42;
    Store(stored);
    Run([&] {
        Hands().ClickRow(42);
        Hands().PressTestButton(kButtonCentre, PressEnd::ReleaseInside);
        EXPECT_EQ(Chords(42).size(), 2U);
    });
}

TEST_F(TestNote, PressIsNoEdit) {
    Run([&] {
        Hands().PressTestButton(kButtonCentre, PressEnd::ReleaseInside);
        EXPECT_FALSE(CanApply());
    });
}

TEST_F(TestNote, CloseRequestDuringAPressSwitchesTheChordOffBeforeTheQuestion) {
    Run([&] {
        Hands().Click(kSendImmediatelyBox);
        Chords();
        Answer(AlertHit::Cancel, [&] { EXPECT_EQ(Chords().size(), 1U) << "still sounding"; });
        Hands().PressTestButton(kButtonCentre, PressEnd::ReleaseInside, [&] {
            EXPECT_EQ(Chords().size(), 1U);
            Hands().CloseWindow();
        });
        EXPECT_EQ(Chords().size(), 0U) << "switched off once, not twice";
        QuitWithoutApplying();
    });
}

TEST_F(TestNote, SessionThatEndsDuringAPressLeavesNoChordSounding) {
    Run([&] {
        Hands().PressTestButton(kButtonCentre, PressEnd::ReleaseInside, [&] { world->EndSession(); });
    });
    EXPECT_EQ(Chords().size(), 2U);
}

}  // namespace
}  // namespace vexil
