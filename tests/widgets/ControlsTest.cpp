// Port list, little arrows and slider: what only real widgets can do wrong.
#include <QAccessible>
#include <QListWidget>
#include <QScrollBar>
#include <QSlider>
#include <QTest>

#include "tests/widgets/WindowFixture.h"

namespace vexil {
namespace {

class Controls : public WindowFixture {
  protected:
    QListWidget& List() { return Find<QListWidget>(kPortList); }
    QPoint Row(int row) {
        return List().viewport()->mapTo(person.Window(), List().visualItemRect(List().item(row)).center());
    }
    // What assistive technology reads and sets.
    QAccessibleValueInterface& NumberOf(int control) {
        return *QAccessible::queryAccessibleInterface(person.Find(control))->valueInterface();
    }
    QWindow* Window() { return person.Window()->windowHandle(); }
};

// --- port list ---

TEST_F(Controls, SixteenRowsFillTheListExactly) {
    EXPECT_EQ(List().visualItemRect(List().item(0)).top(), 0);
    EXPECT_EQ(List().visualItemRect(List().item(15)).bottom(), List().viewport()->height() - 1);
    EXPECT_EQ(List().viewport()->height(), 16 * kListCellHeight);
    EXPECT_EQ(List().width(), kListCellWidth);
    EXPECT_TRUE(List().verticalScrollBar()->isVisible());
}

TEST_F(Controls, ClickOnARowIsOneHit) {
    person.ClickRow(5, false);
    EXPECT_EQ(Story(), Lines{"0 hit"});
}

TEST_F(Controls, ClickOnTheSelectedRowIsAHitToo) {
    person.ClickRow(0, false);
    EXPECT_EQ(Story(), Lines{"0 hit"});
}

TEST_F(Controls, ControlWithPageUpAndPageDownChoosesThePortFromAnywhere) {
    for (const int focused : {kPortList, kInputName, kTargetComputer, kTargetPortArrows, kLocalPipe,
                              kQuantizationSlider, kTestButton}) {
        person.TabTo(focused);
        handlers.calls.clear();
        const int row = widgets.SelectedRow();
        QTest::keyClick(Window(), Qt::Key_PageDown, Qt::ControlModifier);
        EXPECT_EQ(widgets.SelectedRow(), row + 1) << focused;
        QTest::keyClick(Window(), Qt::Key_PageDown, Qt::ControlModifier);
        QTest::keyClick(Window(), Qt::Key_PageUp, Qt::ControlModifier);
        EXPECT_EQ(widgets.SelectedRow(), row + 1) << focused;
        // Every hit comes to the list and to the window; the keys themselves come to nobody.
        EXPECT_EQ(Count(EventKind::ControlHit), 2 * 3) << focused;
        EXPECT_EQ(Story(), Lines{"0 hit"}) << focused;
        EXPECT_TRUE(person.Find(focused)->hasFocus()) << focused;
    }
}

TEST_F(Controls, ControlWithPageUpAndPageDownStopsAtTheEndsOfTheList) {
    QTest::keyClick(Window(), Qt::Key_PageUp, Qt::ControlModifier);
    EXPECT_EQ(widgets.SelectedRow(), 0);
    widgets.SelectRow(63);
    QTest::keyClick(Window(), Qt::Key_PageDown, Qt::ControlModifier);
    EXPECT_EQ(widgets.SelectedRow(), 63);
    EXPECT_TRUE(handlers.calls.empty());
}

TEST_F(Controls, OtherMouseButtonsDoNotSelect) {
    for (const Qt::MouseButton button : {Qt::RightButton, Qt::MiddleButton}) {
        QTest::mouseClick(Window(), button, {}, Row(5));
    }
    EXPECT_EQ(widgets.SelectedRow(), 0);
    EXPECT_TRUE(handlers.calls.empty());
}

TEST_F(Controls, DragAcrossRowsEndsWithTheLastRowSelectedAndReported) {
    std::vector<int> rowsAtHits;
    handlers.during = [&](const PanelEvent& event) {
        if (event.kind == EventKind::ControlHit && event.control == kPortList) {
            rowsAtHits.push_back(widgets.SelectedRow());
        }
    };
    QTest::mousePress(Window(), Qt::LeftButton, {}, Row(2));
    QTest::mouseMove(Window(), Row(4));
    QTest::mouseMove(Window(), Row(7));
    QTest::mouseRelease(Window(), Qt::LeftButton, {}, Row(7));
    handlers.during = {};
    EXPECT_EQ(widgets.SelectedRow(), 7);
    ASSERT_FALSE(rowsAtHits.empty());
    EXPECT_EQ(rowsAtHits.front(), 2);
    EXPECT_EQ(rowsAtHits.back(), 7);
    EXPECT_EQ(List().selectedItems().size(), 1);
}

TEST_F(Controls, DragWhoseWindowIsDeactivatedIsReported) {
    QTest::mousePress(Window(), Qt::LeftButton, {}, Row(2));
    QTest::mouseMove(Window(), Row(7));
    handlers.calls.clear();
    QWidget other;
    other.show();
    other.activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(&other));
    EXPECT_EQ(Story(), Lines{"0 hit"});
    EXPECT_EQ(widgets.SelectedRow(), 7);
    QTest::mouseRelease(Window(), Qt::LeftButton, {}, Row(7));
}

TEST_F(Controls, DragThatAQuestionInterruptsIsReportedAndOver) {
    QTest::mousePress(Window(), Qt::LeftButton, {}, Row(2));
    QTest::mouseMove(Window(), Row(7));
    handlers.calls.clear();
    const UnseenQuestion question(*person.Window());
    EXPECT_EQ(Story(), Lines{"0 hit"});
    EXPECT_EQ(widgets.SelectedRow(), 7);
    QTest::mouseRelease(Window(), Qt::LeftButton, {}, Row(7));
}

TEST_F(Controls, OnlyTheArrowKeysMoveTheSelection) {
    person.ClickRow(8, false);
    for (const Qt::Key key : {Qt::Key_PageUp, Qt::Key_PageDown, Qt::Key_Home, Qt::Key_End, Qt::Key_Left,
                              Qt::Key_Right, Qt::Key_P, Qt::Key_Space, Qt::Key_Return}) {
        QTest::keyClick(Window(), key);
        EXPECT_EQ(widgets.SelectedRow(), 8) << key;
        EXPECT_EQ(List().selectedItems().size(), 1);
    }
}

TEST_F(Controls, ArrowKeysWithModifiersMoveTheOneSelection) {
    person.ClickRow(8, false);
    QTest::keyClick(Window(), Qt::Key_Down, Qt::ControlModifier);
    EXPECT_EQ(widgets.SelectedRow(), 9);
    QTest::keyClick(Window(), Qt::Key_Down, Qt::ShiftModifier);
    EXPECT_EQ(widgets.SelectedRow(), 10);
    EXPECT_EQ(List().selectedItems().size(), 1);
}

TEST_F(Controls, ArrowKeysKeepTheSelectedRowInSight) {
    person.ClickRow(15, false);
    person.Press(Key::Down);
    EXPECT_TRUE(List().viewport()->rect().contains(List().visualItemRect(List().item(16))));
}

TEST_F(Controls, RowSelectedByAssistiveTechnologyIsReportedAndCannotBeDeselected) {
    QAccessibleInterface* interface = QAccessible::queryAccessibleInterface(&List());
    ASSERT_NE(interface, nullptr);
    QAccessibleInterface* cell = interface->child(3);
    ASSERT_NE(cell, nullptr);
    ASSERT_NE(cell->tableCellInterface(), nullptr);
    List().selectionModel()->select(List().model()->index(3, 0), QItemSelectionModel::ClearAndSelect);
    EXPECT_EQ(widgets.SelectedRow(), 3);
    EXPECT_EQ(Story(), Lines{"0 hit"});
    List().selectionModel()->select(List().model()->index(3, 0), QItemSelectionModel::Deselect);
    EXPECT_EQ(widgets.SelectedRow(), 3);
    EXPECT_EQ(List().selectedItems().size(), 1);
    EXPECT_EQ(Story(), Lines{"0 hit"});
}

TEST_F(Controls, ListHasTheFocusWhenTheWindowOpens) {
    EXPECT_TRUE(List().hasFocus());
}

// --- little arrows ---

TEST_F(Controls, WheelOverArrowsWithoutFocusDoesNothing) {
    person.TurnWheel(kTargetPortArrows, 1);
    EXPECT_TRUE(handlers.calls.empty());
}

TEST_F(Controls, EachNotchOfTheWheelIsOneStep) {
    person.TabTo(kTargetPortArrows);
    handlers.calls.clear();
    person.TurnWheel(kTargetPortArrows, 3);
    EXPECT_EQ(Story(), (Lines{"18 action", "18 hit", "18 action", "18 hit", "18 action", "18 hit"}));
    EXPECT_EQ(widgets.Value(kTargetPortArrows), 3);
}

TEST_F(Controls, ArrowsPauseWhileThePointerIsElsewhere) {
    const QPoint up = person.Place(kTargetPortArrows, QPoint(8, 4));
    QTest::mousePress(Window(), Qt::LeftButton, {}, up);
    QTest::mouseMove(Window(), QPoint(300, 420));
    QTest::qWait(600);
    EXPECT_EQ(widgets.Value(kTargetPortArrows), 1);
    QTest::mouseRelease(Window(), Qt::LeftButton, {}, QPoint(300, 420));
}

TEST_F(Controls, HeldArrowsStopWhenTheyAreDisabled) {
    handlers.during = [&](const PanelEvent&) { widgets.SetEnabled(kMidiOut, false); };
    QTest::mousePress(Window(), Qt::LeftButton, {}, person.Place(kTargetPortArrows, QPoint(8, 4)));
    QTest::qWait(600);
    EXPECT_EQ(widgets.Value(kTargetPortArrows), 1);
    handlers.during = {};
    QTest::mouseRelease(Window(), Qt::LeftButton, {}, person.Place(kTargetPortArrows, QPoint(8, 4)));
}

TEST_F(Controls, HeldArrowsStopWhenAQuestionOpens) {
    QTest::mousePress(Window(), Qt::LeftButton, {}, person.Place(kTargetPortArrows, QPoint(8, 4)));
    const UnseenQuestion question(*person.Window());
    QTest::qWait(600);
    EXPECT_EQ(widgets.Value(kTargetPortArrows), 1);
    QTest::mouseRelease(Window(), Qt::LeftButton, {}, person.Place(kTargetPortArrows, QPoint(8, 4)));
}

TEST_F(Controls, HeldKeyStepsArrowsWithEachRepeat) {
    person.TabTo(kTargetPortArrows);
    for (const bool repeat : {false, true, true}) {
        QTest::simulateEvent(Window(), true, Qt::Key_Up, {}, {}, repeat, -1);
    }
    EXPECT_EQ(widgets.Value(kTargetPortArrows), 3);
}

TEST_F(Controls, AssistiveTechnologySetsArrowsInSteps) {
    QAccessibleInterface* interface = QAccessible::queryAccessibleInterface(person.Find(kTargetPortArrows));
    ASSERT_NE(interface, nullptr);
    ASSERT_NE(interface->valueInterface(), nullptr);
    interface->valueInterface()->setCurrentValue(15);
    EXPECT_EQ(widgets.Value(kTargetPortArrows), 4);
    int actions = 0;
    for (const HandlerCall& call : handlers.calls) {
        actions += call.handler == "arrows" ? 1 : 0;
    }
    EXPECT_EQ(actions, 4);
}

TEST_F(Controls, AssistiveTechnologyHasTheNumbersOfPortsAsTheyAreShown) {
    for (const int arrows : {kSourcePortArrows, kTargetPortArrows}) {
        QAccessibleValueInterface& number = NumberOf(arrows);
        EXPECT_EQ(number.minimumValue().toInt(), 11) << arrows;
        EXPECT_EQ(number.maximumValue().toInt(), 88) << arrows;
        widgets.SetValue(arrows, 8);
        EXPECT_EQ(number.currentValue().toInt(), 21) << arrows;
        number.setCurrentValue(37);
        EXPECT_EQ(number.currentValue().toInt(), 37) << arrows;
        EXPECT_EQ(widgets.Value(arrows), 22) << arrows;
    }
}

TEST_F(Controls, AssistiveTechnologyStepsOverNumbersThatNoPortHas) {
    QAccessibleValueInterface& number = NumberOf(kTargetPortArrows);
    number.setCurrentValue(18);
    number.setCurrentValue(19);
    EXPECT_EQ(number.currentValue().toInt(), 21);
    number.setCurrentValue(20);
    EXPECT_EQ(number.currentValue().toInt(), 18);
    number.setCurrentValue(100);
    EXPECT_EQ(number.currentValue().toInt(), 88);
    number.setCurrentValue(0);
    EXPECT_EQ(number.currentValue().toInt(), 11);
}

TEST_F(Controls, AssistiveTechnologyHasTheChannelAsItIsShown) {
    QAccessibleValueInterface& number = NumberOf(kTestChannelArrows);
    EXPECT_EQ(number.minimumValue().toInt(), 1);
    EXPECT_EQ(number.maximumValue().toInt(), 16);
    number.setCurrentValue(10);
    EXPECT_EQ(number.currentValue().toInt(), 10);
    EXPECT_EQ(widgets.Value(kTestChannelArrows), 10);
}

TEST_F(Controls, AssistiveTechnologyHasTheMillisecondsOfTheSlider) {
    QAccessibleValueInterface& number = NumberOf(kQuantizationSlider);
    EXPECT_DOUBLE_EQ(number.minimumValue().toDouble(), 0.0);
    EXPECT_DOUBLE_EQ(number.maximumValue().toDouble(), 10.0);
    EXPECT_DOUBLE_EQ(number.minimumStepSize().toDouble(), 0.1);
    number.setCurrentValue(3.7);
    EXPECT_EQ(widgets.Value(kQuantizationSlider), 37);
    EXPECT_DOUBLE_EQ(number.currentValue().toDouble(), 3.7);
    EXPECT_EQ(Story(), Lines{"32 action"});
    number.setCurrentValue(1000.0);
    EXPECT_EQ(widgets.Value(kQuantizationSlider), 100);
}

// --- check boxes and groups ---

TEST_F(Controls, AssistiveTechnologyTogglesAreHits) {
    for (const int control : {kLocalPipe, kMidiIn}) {
        handlers.calls.clear();
        QAccessibleInterface* interface = QAccessible::queryAccessibleInterface(person.Find(control));
        ASSERT_NE(interface, nullptr);
        ASSERT_NE(interface->actionInterface(), nullptr);
        interface->actionInterface()->doAction(QAccessibleActionInterface::toggleAction());
        EXPECT_EQ(widgets.Value(control), 1);
        EXPECT_EQ(Story(), Lines{std::to_string(control) + " hit"});
    }
}

TEST_F(Controls, AssistiveTechnologyTogglesNoDisabledGroup) {
    widgets.SetEnabled(kMidiOut, false);
    QAccessible::queryAccessibleInterface(person.Find(kMidiOut))
        ->actionInterface()
        ->doAction(QAccessibleActionInterface::toggleAction());
    EXPECT_EQ(Story(), Lines());
    EXPECT_EQ(widgets.Value(kMidiOut), 0);
}

TEST_F(Controls, AssistiveTechnologySetsNoDisabledArrows) {
    widgets.SetEnabled(kTargetPortArrows, false);
    QAccessible::queryAccessibleInterface(person.Find(kTargetPortArrows))
        ->valueInterface()
        ->setCurrentValue(13);
    EXPECT_EQ(Story(), Lines());
    EXPECT_EQ(widgets.Value(kTargetPortArrows), 0);
}

TEST_F(Controls, AssistiveTechnologySetsNoDisabledText) {
    for (const int control : {kOutputName, kTargetComputer}) {
        widgets.SetText(control, "kept");
        widgets.SetEnabled(control, false);
        QAccessible::queryAccessibleInterface(person.Find(control))->setText(QAccessible::Value, "lost");
        person.Settle();
        EXPECT_EQ(Story(), Lines()) << control;
        EXPECT_EQ(Text(control), "kept") << control;
        widgets.SetText(control, "new");
        EXPECT_EQ(Text(control), "new") << control;
    }
}

TEST_F(Controls, ControlsOnAGroupsEdgeAreAboveIt) {
    for (const int control : {kLocalPipe, kAbout}) {
        const QWidget* widget = person.Find(control);
        const QPoint lowest = person.Place(control, QPoint(20, widget->height() - 1));
        EXPECT_EQ(person.Window()->childAt(lowest), widget) << control;
    }
}

// --- buttons ---

TEST_F(Controls, HeldKeyOfAButtonPressesItOnce) {
    const auto press = [&](bool repeat) {
        QTest::simulateEvent(Window(), true, Qt::Key_S, Qt::AltModifier, "s", repeat, -1);
        // The button is drawn pressed for a tenth of a second before it is hit.
        QTest::qWait(200);
    };
    for (const bool repeat : {false, true, true}) {
        press(repeat);
    }
    EXPECT_EQ(Story(), Lines{"34 hit"});
    EXPECT_EQ(Count(EventKind::ControlHit), 1);
    press(false);
    EXPECT_EQ(Count(EventKind::ControlHit), 2);
}

// --- slider ---

TEST_F(Controls, SliderFollowsTheKeyboard) {
    person.TabTo(kQuantizationSlider);
    handlers.calls.clear();
    QTest::keyClick(Window(), Qt::Key_Right);
    QTest::keyClick(Window(), Qt::Key_PageUp);
    EXPECT_EQ(widgets.Value(kQuantizationSlider), 11);
    EXPECT_EQ(Story(), (Lines{"32 action", "32 action"}));
}

TEST_F(Controls, WheelOverTheSliderNeedsItsFocus) {
    person.TurnWheel(kQuantizationSlider, 1);
    EXPECT_EQ(widgets.Value(kQuantizationSlider), 0);
    person.TabTo(kQuantizationSlider);
    person.TurnWheel(kQuantizationSlider, 1);
    EXPECT_GT(widgets.Value(kQuantizationSlider), 0);
}

TEST_F(Controls, SliderDraggedReportsEveryValueOnTheWay) {
    person.MoveSlider(100);
    EXPECT_EQ(widgets.Value(kQuantizationSlider), 100);
    person.MoveSlider(0);
    EXPECT_EQ(widgets.Value(kQuantizationSlider), 0);
    EXPECT_EQ(Story(), (Lines{"32 action", "32 action"}));
}

}  // namespace
}  // namespace vexil
