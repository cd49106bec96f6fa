// The test button: every press ends.
#include <QAccessible>
#include <QTest>
#include <QTimer>

#include "tests/widgets/WindowFixture.h"

namespace vexil {
namespace {

class TestButton : public WindowFixture {
  protected:
    TestButton() {
        handlers.answer = RecordingHandlers::Answer::NextThenNotHandled;
        handlers.during = [this](const PanelEvent& event) {
            if (event.kind == EventKind::MouseDown) {
                ++ended;
            }
        };
    }
    ~TestButton() override { handlers.during = {}; }

    QWindow* Window() { return person.Window()->windowHandle(); }
    QPoint Centre() { return person.Place(kTestButton, QPoint(7, 9)); }
    // Presses the mouse button, does `meanwhile` while it is held, and says whether that ended the press.
    bool EndedBy(const Script& meanwhile) {
        bool endedByIt = false;
        bool released = false;
        QTimer::singleShot(0, person.Window(), [&] {
            EXPECT_EQ(ended, 0) << "the press has ended too early";
            meanwhile();
            QTimer::singleShot(50, person.Window(), [&] {
                endedByIt = ended == 1;
                QTest::mouseRelease(Window(), Qt::LeftButton, {}, Centre());
                released = true;
            });
        });
        QTest::mousePress(Window(), Qt::LeftButton, {}, Centre());
        EXPECT_TRUE(QTest::qWaitFor([&] { return released && ended == 1; }));
        return endedByIt;
    }

    int ended = 0;
};

TEST_F(TestButton, PressIsHeldUntilTheRelease) {
    EXPECT_FALSE(EndedBy([] {}));
}

TEST_F(TestButton, DisablingTheButtonOrItsGroupEndsThePress) {
    EXPECT_TRUE(EndedBy([&] { widgets.SetEnabled(kTestButton, false); }));
    widgets.SetEnabled(kTestButton, true);
    ended = 0;
    EXPECT_TRUE(EndedBy([&] { widgets.SetEnabled(kMidiOut, false); }));
}

TEST_F(TestButton, HidingTheWindowEndsThePress) {
    EXPECT_TRUE(EndedBy([&] { desktop.HideWindow(); }));
}

TEST_F(TestButton, CloseRequestEndsThePressAndIsDelivered) {
    EXPECT_TRUE(EndedBy([&] { person.CloseWindow(); }));
    EXPECT_EQ(Count(EventKind::WindowClose), 1);
}

TEST_F(TestButton, EndOfTheEventLoopEndsThePress) {
    EXPECT_TRUE(EndedBy([&] { desktop.EndEventLoop(); }));
}

TEST_F(TestButton, LossOfTheGrabEndsThePress) {
    EXPECT_TRUE(EndedBy([&] {
        QEvent lost(QEvent::UngrabMouse);
        QApplication::sendEvent(person.Find(kTestButton), &lost);
    }));
}

TEST_F(TestButton, MoveWithoutTheButtonEndsThePress) {
    EXPECT_TRUE(EndedBy([&] {
        QMouseEvent moved(QEvent::MouseMove, QPointF(3, 3), QPointF(3, 3), Qt::NoButton, Qt::NoButton, {});
        QApplication::sendEvent(person.Find(kTestButton), &moved);
    }));
}

TEST_F(TestButton, SecondButtonOfTheMouseNeitherPressesNorEndsAPress) {
    EXPECT_FALSE(EndedBy([&] { QTest::mouseClick(Window(), Qt::RightButton, {}, Centre()); }));
    EXPECT_EQ(Count(EventKind::MouseDown), 1);
}

TEST_F(TestButton, ReleaseOutsideEndsThePressWithoutAHit) {
    person.PressTestButton(kButtonCentre, PressEnd::ReleaseOutside, {});
    EXPECT_EQ(ended, 1);
    EXPECT_EQ(Count(EventKind::ControlHit), 0);
}

TEST_F(TestButton, TakenPressIsNotHeld) {
    handlers.answer = RecordingHandlers::Answer::Swallow;
    QTest::mousePress(Window(), Qt::LeftButton, {}, Centre());
    EXPECT_EQ(ended, 1);
    QTest::mouseRelease(Window(), Qt::LeftButton, {}, Centre());
}

TEST_F(TestButton, PressThatEndsWhileTheHandlerIsBusyIsNotHeld) {
    handlers.answer = RecordingHandlers::Answer::NotHandled;
    handlers.during = [&](const PanelEvent& event) {
        if (event.kind == EventKind::MouseDown) {
            QTest::mouseRelease(Window(), Qt::LeftButton, {}, Centre());
        }
    };
    QTest::mousePress(Window(), Qt::LeftButton, {}, Centre());  // hangs if the release was missed
    EXPECT_EQ(Count(EventKind::MouseDown), 1);
}

TEST_F(TestButton, SpaceHoldsTheButtonAtItsCentre) {
    person.TabTo(kTestButton);
    QTimer::singleShot(0, person.Window(), [&] {
        QTest::simulateEvent(Window(), true, Qt::Key_Space, {}, " ", true, -1);
        QTest::simulateEvent(Window(), false, Qt::Key_Space, {}, " ", true, -1);
        QTest::simulateEvent(Window(), true, Qt::Key_Space, {}, " ", true, -1);
        EXPECT_EQ(ended, 0);
        QTest::keyRelease(Window(), Qt::Key_Space);
    });
    QTest::keyPress(Window(), Qt::Key_Space);
    EXPECT_TRUE(QTest::qWaitFor([&] { return ended == 1; }));
    const auto presses = handlers.Of(EventKind::MouseDown);
    ASSERT_EQ(presses.size(), 1U);
    const ControlRect& rect = kControlTable[kTestButton].rect;
    EXPECT_DOUBLE_EQ(presses[0].event.x, (rect.left + rect.right) / 2.0);
    EXPECT_DOUBLE_EQ(presses[0].event.y, (rect.top + rect.bottom) / 2.0);
}

TEST_F(TestButton, LossOfTheFocusEndsAPressByKey) {
    person.TabTo(kTestButton);
    QTimer::singleShot(0, person.Window(), [&] { person.Find(kPortList)->setFocus(); });
    QTest::keyPress(Window(), Qt::Key_Space);
    EXPECT_TRUE(QTest::qWaitFor([&] { return ended == 1; }));
    QTest::keyRelease(Window(), Qt::Key_Space);
}

TEST_F(TestButton, PressByAssistiveTechnologyLastsAMomentAndEnds) {
    QAccessibleInterface* interface = QAccessible::queryAccessibleInterface(person.Find(kTestButton));
    ASSERT_NE(interface, nullptr);
    ASSERT_NE(interface->actionInterface(), nullptr);
    interface->actionInterface()->doAction(QAccessibleActionInterface::pressAction());
    EXPECT_TRUE(QTest::qWaitFor([&] { return ended == 1; }));
    QTest::qWait(200);
    EXPECT_EQ(Count(EventKind::MouseDown), 1);
}

}  // namespace
}  // namespace vexil
