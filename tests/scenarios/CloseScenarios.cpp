// Quitting: with and without unapplied settings.
#include "tests/scenarios/Scenario.h"

namespace vexil {
namespace {

using Options = std::vector<int>;

class Close : public Scenario {};

TEST_F(Close, WithoutChangesNothingIsAsked) {
    Run([&] { Hands().CloseWindow(); });
    EXPECT_TRUE(dialogs.alerts.empty());
}

TEST_F(Close, QuestionIsExact) {
    Run([&] {
        Hands().MoveSlider(9);
        Answer(AlertHit::Other);
        Hands().CloseWindow();
    });
    ASSERT_EQ(dialogs.alerts.size(), 1U);
    const AlertRequest& alert = dialogs.alerts[0];
    EXPECT_EQ(alert.message, "Settings have not been previously applied. Apply settings?");
    EXPECT_EQ(alert.explanation,
              "You also can continue to make settings clicking <Cancel> or revert using <Quit>.");
    EXPECT_EQ(alert.otherButton.title, std::string("\4Quit"));
    EXPECT_EQ(alert.cancelButton.title, std::string("\6Cancel"));
    EXPECT_EQ(alert.defaultButton.title, std::string("\16Apply and Quit"));
    EXPECT_EQ(alert.kind, kAlertCaution);
    EXPECT_EQ(alert.defaultButtonNumber, kAlertDefaultButton);
}

TEST_F(Close, QuitAsksOnceAndStoresNothing) {
    Run([&] {
        Hands().MoveSlider(9);
        Answer(AlertHit::Other);
        Sent();
        Hands().CloseWindow();
    });
    EXPECT_EQ(dialogs.alerts.size(), 1U);
    EXPECT_EQ(Stored().SendGranularity, 2U);
    EXPECT_EQ(Sent(), Options{194});
}

TEST_F(Close, ApplyAndQuitAppliesAndAsksOnce) {
    Run([&] {
        Hands().MoveSlider(9);
        Answer(AlertHit::Default);
        Sent();
        Hands().CloseWindow();
    });
    EXPECT_EQ(dialogs.alerts.size(), 1U);
    EXPECT_EQ(Stored().SendGranularity, 9U);
    EXPECT_EQ(Sent(), (Options{190, 194}));
}

TEST_F(Close, CancelKeepsThePanelAndItsChanges) {
    Run([&] {
        Hands().MoveSlider(9);
        Answer(AlertHit::Cancel);
        Hands().CloseWindow();
        EXPECT_TRUE(world->IsWindowVisible());
        EXPECT_TRUE(CanApply());
        EXPECT_EQ(Text(kQuantizationNumber), "0.9");
        Hands().MoveSlider(2);
        EXPECT_FALSE(CanApply());
    });
}

TEST_F(Close, CanceledCloseAsksAgainNextTime) {
    Run([&] {
        Hands().MoveSlider(9);
        Answer(AlertHit::Cancel);
        Hands().CloseWindow();
        Answer(AlertHit::Other);
        Hands().CloseWindow();
    });
    EXPECT_EQ(dialogs.alerts.size(), 2U);
}

TEST_F(Close, EscapeIsCancel) {
    Run([&] {
        Hands().MoveSlider(9);
        Answer(AlertHit::Escape);
        Hands().CloseWindow();
        EXPECT_TRUE(world->IsWindowVisible());
        Hands().MoveSlider(2);
    });
}

TEST_F(Close, ReturnIsApplyAndQuit) {
    Run([&] {
        Hands().MoveSlider(9);
        Answer(AlertHit::Return);
        Hands().CloseWindow();
    });
    EXPECT_EQ(Stored().SendGranularity, 9U);
}

TEST_F(Close, AppliedChangesAreNotAskedAbout) {
    Run([&] {
        Hands().MoveSlider(9);
        Hands().Click(kApply);
        Hands().CloseWindow();
    });
    EXPECT_TRUE(dialogs.alerts.empty());
}

TEST_F(Close, RequestDuringTheQuestionAsksNoSecondOne) {
    Run([&] {
        Hands().MoveSlider(9);
        Answer(AlertHit::Cancel, [&] { Hands().CloseWindow(); });
        Hands().CloseWindow();
        EXPECT_TRUE(world->IsWindowVisible());
        Hands().MoveSlider(2);
    });
    EXPECT_EQ(dialogs.alerts.size(), 1U);
}

TEST_F(Close, RequestDuringAnotherAlertAsksNothingAndEndsNothing) {
    Run([&] {
        Hands().MoveSlider(9);
        Answer(AlertHit::Default, [&] { Hands().CloseWindow(); });
        Hands().Click(kAbout);
        EXPECT_TRUE(world->IsWindowVisible());
        Hands().MoveSlider(2);
    });
    EXPECT_EQ(dialogs.alerts.size(), 1U);
}

TEST_F(Close, RequestDuringAFileDialogAsksNothing) {
    Run([&] {
        Hands().MoveSlider(9);
        dialogs.fileAnswers.push_back({kUserCanceled, "", [&] { Hands().CloseWindow(); }});
        Hands().Click(kSave);
        Hands().MoveSlider(2);
    });
    EXPECT_TRUE(dialogs.alerts.empty());
}

TEST_F(Close, EndedSessionAsksAndCancelRunsTheLoopAgain) {
    RunAll({[&] {
                Hands().MoveSlider(9);
                Answer(AlertHit::Cancel);
            },
            [&] {
                EXPECT_TRUE(world->IsWindowVisible());
                EXPECT_EQ(Text(kQuantizationNumber), "0.9");
                EXPECT_TRUE(CanApply());
                Hands().MoveSlider(11);
                Hands().Click(kApply);
                EXPECT_EQ(Stored().SendGranularity, 11U);
            }});
    EXPECT_EQ(dialogs.alerts.size(), 1U);
}

TEST_F(Close, EndedSessionAsksAtEveryEndUntilItIsNotCanceled) {
    RunAll({[&] {
                Hands().MoveSlider(9);
                Answer(AlertHit::Cancel);
            },
            [&] { Answer(AlertHit::Cancel); }, [&] { Answer(AlertHit::Other); }});
    EXPECT_EQ(dialogs.alerts.size(), 3U);
    EXPECT_EQ(Stored().SendGranularity, 2U);
}

TEST_F(Close, EndedSessionWithApplyAndQuitApplies) {
    Run([&] {
        Hands().MoveSlider(9);
        Answer(AlertHit::Default);
        Sent();
    });
    EXPECT_EQ(Stored().SendGranularity, 9U);
    EXPECT_EQ(Sent(), (Options{190, 194}));
}

TEST_F(Close, EndedSessionAsksTheSameQuestion) {
    Run([&] {
        Hands().MoveSlider(9);
        Answer(AlertHit::Other);
    });
    ASSERT_EQ(dialogs.alerts.size(), 1U);
    EXPECT_EQ(dialogs.alerts[0].message, "Settings have not been previously applied. Apply settings?");
    EXPECT_EQ(dialogs.alerts[0].defaultButton.title, std::string("\16Apply and Quit"));
}

TEST_F(Close, SessionThatEndsDuringTheQuestionIsAskedAboutAgainAfterCancel) {
    Run([&] {
        Hands().MoveSlider(9);
        Answer(AlertHit::Cancel, [&] { world->EndSession(); });
        Answer(AlertHit::Other);
        Hands().CloseWindow();
    });
    EXPECT_EQ(dialogs.alerts.size(), 2U);
}

TEST_F(Close, RequestDuringTheQuestionOfAnEndedSessionAsksNoSecondOne) {
    Run([&] {
        Hands().MoveSlider(9);
        Answer(AlertHit::Other, [&] { Hands().CloseWindow(); });
    });
    EXPECT_EQ(dialogs.alerts.size(), 1U);
}

TEST_F(Close, ApplyAndQuitReportsAChangedWirelessOption) {
    Run([&] {
        Hands().Click(kUseWirelessBox);
        Answer(AlertHit::Default);
        Answer(AlertHit::Default);
        Hands().CloseWindow();
    });
    ASSERT_EQ(dialogs.alerts.size(), 2U);
    EXPECT_EQ(dialogs.alerts[1].message, "\"Use Wireless\" option has been changed!");
    EXPECT_EQ(Stored().MiscOptions, 15U);
}

TEST_F(Close, ApplyAndQuitCorrectsAnInadmissibleConfiguration) {
    Run([&] {
        Hands().Click(kMidiOut);
        Answer(AlertHit::Default);
        Answer(AlertHit::Default);
        Hands().CloseWindow();
    });
    EXPECT_EQ(Stored().OutputPorts, 1U);
}

TEST_F(Close, AfterCancelTheTestOutputStillWorks) {
    RunAll({[&] {
                Hands().MoveSlider(9);
                Answer(AlertHit::Cancel);
            },
            [&] {
                Sent();
                Hands().PressTestButton(kButtonCentre, PressEnd::ReleaseInside);
                EXPECT_EQ(Sent(), (Options{0, 0}));
                Hands().MoveSlider(2);
            }});
}

}  // namespace
}  // namespace vexil
