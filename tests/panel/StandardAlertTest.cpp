// The one alert that every question goes through.
#include "panel/StandardAlert.h"

#include <gtest/gtest.h>

#include "tests/doubles/FaultyDialogs.h"
#include "tests/doubles/MemoryDialogs.h"

namespace vexil {
namespace {

class StandardAlert : public testing::Test {
  protected:
    int Show(const char* message, const char* explanation, const char* other, const char* cancel,
             const char* ok, int type = kAlertPlain, int button = kAlertDefaultButton) {
        return ShowStandardAlert(dialogs, message, explanation, other, cancel, ok, type, button);
    }
    void Answer(AlertHit hit) { dialogs.alertAnswers.push_back({hit}); }

    MemoryDialogs dialogs;
};

TEST_F(StandardAlert, GivesTheNumberOfTheButton) {
    Answer(AlertHit::Default);
    Answer(AlertHit::Cancel);
    Answer(AlertHit::Other);
    EXPECT_EQ(Show("m", nullptr, "o", "c", "d"), 1);
    EXPECT_EQ(Show("m", nullptr, "o", "c", "d"), 2);
    EXPECT_EQ(Show("m", nullptr, "o", "c", "d"), 3);
}

TEST_F(StandardAlert, WithoutAMessageIsNotShown) {
    EXPECT_EQ(Show(nullptr, "e", "o", "c", "d"), -1);
    EXPECT_TRUE(dialogs.alerts.empty());
}

TEST_F(StandardAlert, ThatCannotBeShownGivesMinus1) {
    FaultyDialogs failing(dialogs);
    failing.alertsFail = true;
    EXPECT_EQ(ShowStandardAlert(failing, "m", nullptr, nullptr, nullptr, nullptr, kAlertStop, 1), -1);
}

TEST_F(StandardAlert, ShowsEveryTextAsItStands) {
    Answer(AlertHit::Default);
    Show("<b>m</b>", "e\n\n", "\4Quit", "c", "d", kAlertStop, kAlertOtherButton);
    const AlertRequest& alert = dialogs.alerts.at(0);
    EXPECT_EQ(alert.message, "<b>m</b>");
    EXPECT_TRUE(alert.hasExplanation);
    EXPECT_EQ(alert.explanation, "e\n\n");
    EXPECT_EQ(alert.otherButton.title, "\4Quit");
    EXPECT_EQ(alert.cancelButton.title, "c");
    EXPECT_EQ(alert.defaultButton.title, "d");
    EXPECT_EQ(alert.kind, kAlertStop);
    EXPECT_EQ(alert.defaultButtonNumber, kAlertOtherButton);
}

TEST_F(StandardAlert, NullTextsAreNoExplanationNoButtonsAndTheToolkitsOk) {
    Answer(AlertHit::Default);
    Show("m", nullptr, nullptr, nullptr, nullptr);
    const AlertRequest& alert = dialogs.alerts.at(0);
    EXPECT_FALSE(alert.hasExplanation);
    EXPECT_EQ(alert.otherButton.kind, AlertButton::Kind::None);
    EXPECT_EQ(alert.cancelButton.kind, AlertButton::Kind::None);
    EXPECT_EQ(alert.defaultButton.kind, AlertButton::Kind::None);
}

TEST_F(StandardAlert, SpecialTextIsTheToolkitsOwn) {
    Answer(AlertHit::Default);
    Show("m", nullptr, kToolkitButtonText, kToolkitButtonText, "d");
    const AlertRequest& alert = dialogs.alerts.at(0);
    EXPECT_EQ(alert.otherButton.kind, AlertButton::Kind::ToolkitDefault);
    EXPECT_EQ(alert.cancelButton.kind, AlertButton::Kind::ToolkitDefault);
}

TEST_F(StandardAlert, EmptyExplanationIsOne) {
    Answer(AlertHit::Default);
    Show("m", "", nullptr, nullptr, nullptr);
    EXPECT_TRUE(dialogs.alerts.at(0).hasExplanation);
}

}  // namespace
}  // namespace vexil
