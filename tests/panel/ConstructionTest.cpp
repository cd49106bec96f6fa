// Making the window: what is made in which order, and what happens when something cannot be made.
#include <new>

#include "panel/CenterRect.h"
#include "tests/panel/PanelFixture.h"

namespace vexil {
namespace {

class Construction : public PanelTest {};

TEST_F(Construction, WindowIsCentredOnADisplayOf1024By768) {
    Start();
    EXPECT_EQ(memoryWidgets.windowContent, (ControlRect{169, 222, 599, 802}));
}

TEST_F(Construction, CentringTruncatesTowardZero) {
    desktop.displayWidth = 581;
    desktop.displayHeight = 427;
    ControlRect rect{};
    CenterRectOnMainDisplay(desktop, rect, 580, 430);
    EXPECT_EQ(rect, (ControlRect{-1, 0, 429, 580}));
}

TEST_F(Construction, WindowHasItsTitle) {
    Start();
    EXPECT_EQ(memoryWidgets.windowTitle, "Vexil III Control Panel");
}

TEST_F(Construction, AllControlsAreMadeInTheOrderOfTheirNumbers) {
    Start();
    ASSERT_EQ(memoryWidgets.creationOrder.size(), 36U);
    for (int i = 0; i < kControlCount; ++i) {
        EXPECT_EQ(memoryWidgets.creationOrder[static_cast<std::size_t>(i)], i);
    }
}

TEST_F(Construction, ControlsAreEmbeddedAsTabled) {
    Start();
    ASSERT_EQ(memoryWidgets.embeddings.size(), kEmbeddings.size());
    for (std::size_t i = 0; i < kEmbeddings.size(); ++i) {
        EXPECT_EQ(memoryWidgets.embeddings[i].container, kEmbeddings[i].container);
        EXPECT_EQ(memoryWidgets.embeddings[i].control, kEmbeddings[i].control);
    }
}

TEST_F(Construction, RowsAreNamedByTheShownPortNumbers) {
    Start();
    EXPECT_EQ(memoryWidgets.rows[0], "Port 11");
    EXPECT_EQ(memoryWidgets.rows[7], "Port 18");
    EXPECT_EQ(memoryWidgets.rows[8], "Port 21");
    EXPECT_EQ(memoryWidgets.rows[63], "Port 88");
}

TEST_F(Construction, OutputSideIsRefreshedBeforeTheInputSideAndTheOptionsLast) {
    Start();
    EXPECT_EQ(memoryWidgets.redrawOrder,
              (std::vector<int>{kOutputName, kTargetComputer, kTargetPortNumber, kInputName, kSourceComputer,
                                kSourcePortNumber, kQuantizationNumber}));
}

TEST_F(Construction, FailedWindowEndsTheRunWithItsStatusAndBothLines) {
    widgets.windowStatus = -5600;
    EXPECT_EQ(RunUserInterface(Platform()), -5600);
    EXPECT_EQ(log.Text(), "Cannot create window -5600Cannot initialize user interface; error -5600.\n");
    EXPECT_TRUE(memoryWidgets.creationOrder.empty());
    EXPECT_EQ(memoryDesktop.loopRuns, 0);
}

TEST_F(Construction, FailedWindowLeavesThePreferencesAlone) {
    widgets.windowStatus = -5600;
    RunUserInterface(Platform());
    EXPECT_TRUE(preferences.Changes().empty());
}

TEST_F(Construction, FailedWindowClosesTheConnection) {
    widgets.windowStatus = -5600;
    RunUserInterface(Platform());
    EXPECT_EQ(driver.OpenDescriptors(), 0U);
}

TEST_F(Construction, FailureOfAnyControlEndsTheRunWithItsStatus) {
    for (int control = 0; control < kControlCount; ++control) {
        SCOPED_TRACE(control);
        log.Clear();
        memoryWidgets.creationOrder.clear();
        widgets.failingControl = control;
        widgets.controlStatus = -30580 - control;
        EXPECT_EQ(RunUserInterface(Platform()), -30580 - control);
        EXPECT_EQ(log.Text(),
                  "Cannot initialize user interface; error " + std::to_string(-30580 - control) + ".\n");
        EXPECT_EQ(memoryWidgets.creationOrder.size(), static_cast<std::size_t>(control));
        EXPECT_TRUE(memoryWidgets.embeddings.empty());
        EXPECT_FALSE(memoryWidgets.hasWindow) << "what was made is disposed of";
        EXPECT_EQ(memoryDesktop.loopRuns, 0);
        EXPECT_EQ(driver.OpenDescriptors(), 0U);
    }
}

TEST_F(Construction, ConfigurationIsLoadedBeforeTheControlsAreMade) {
    widgets.failingControl = 0;
    RunUserInterface(Platform());
    EXPECT_EQ(driver.OptionNumbers(), std::vector<int>{196});
}

TEST_F(Construction, RunPreparesTheWindowRunsTheLoopAndHidesIt) {
    desktop.loopsThatEndAtOnce = 1;
    EXPECT_EQ(RunUserInterface(Platform()), 0);
    EXPECT_EQ(memoryDesktop.calls, (std::vector<std::string>{"flush", "background", "show", "hide"}));
}

TEST_F(Construction, WindowIsDisposedOfAtTheEnd) {
    desktop.loopsThatEndAtOnce = 1;
    RunUserInterface(Platform());
    EXPECT_FALSE(memoryWidgets.hasWindow);
}

TEST_F(Construction, NameWithoutAFormInTheWindowIsSkippedInBothLists) {
    driver.hostInfos = {'N', 'a', 0,   'A', 1, 1, 1, 1, 1, 1,   'L', 1, 1, 1, 1, 1, 1,   'E', 1, 1, 'N',
                        'b', 0,   'A', 1,   1, 1, 1, 1, 1, 'L', 1,   1, 1, 1, 1, 1, 'E', 1,   1, 0};
    widgets.namesWithoutForm = {"a"};
    Start();
    EXPECT_EQ(memoryWidgets.Of(kSourceComputer).items, std::vector<std::string>{"b"});
    EXPECT_EQ(memoryWidgets.Of(kTargetComputer).items, std::vector<std::string>{"b"});
}

TEST_F(Construction, PanelThatEndsWithoutRunningTwiceClosesNothingTwice) {
    Start();
    panel.reset();
    EXPECT_EQ(driver.OpenDescriptors(), 0U);
    const std::size_t closes = driver.calls.size();
    Start();
    panel.reset();
    EXPECT_EQ(driver.calls.size(), closes);
}

}  // namespace
}  // namespace vexil
