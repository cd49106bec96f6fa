#include "tests/widgets/QtPerson.h"

#include <QApplication>
#include <QClipboard>
#include <QComboBox>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QGroupBox>
#include <QInputMethodEvent>
#include <QLineEdit>
#include <QListWidget>
#include <QMimeData>
#include <QSlider>
#include <QStyle>
#include <QStyleOptionGroupBox>
#include <QStyleOptionSlider>
#include <QTest>
#include <QTimer>
#include <QUrl>
#include <QWheelEvent>
#include <QWindow>

#include <gtest/gtest.h>

namespace vexil {

namespace {

constexpr int kWheelNotch = 120;
// In the window, on no control.
constexpr QPoint kNowhere{300, 420};

Qt::KeyboardModifiers CommandModifier(bool command) {
    return command ? Qt::ControlModifier : Qt::NoModifier;
}

// Counts the steps that held arrows make by themselves.
class TimerCount : public QObject {
  public:
    explicit TimerCount(QObject* watched) : QObject(watched) { watched->installEventFilter(this); }
    int count = 0;

  protected:
    bool eventFilter(QObject* /*watched*/, QEvent* event) override {
        if (event->type() == QEvent::Timer) {
            ++count;
        }
        return false;
    }
};

QRect HandleOf(const QSlider& slider, int value) {
    QStyleOptionSlider option;
    option.initFrom(&slider);
    option.orientation = Qt::Horizontal;
    option.minimum = slider.minimum();
    option.maximum = slider.maximum();
    option.sliderPosition = option.sliderValue = value;
    return slider.style()->subControlRect(QStyle::CC_Slider, &option, QStyle::SC_SliderHandle, &slider);
}

}  // namespace

QWidget* QtPerson::Find(int control) const {
    return Window() == nullptr ? nullptr
                               : Window()->findChild<QWidget*>(QString::asprintf("control-%02d", control));
}

QPoint QtPerson::Place(int control, const QPoint& point) const {
    return Find(control)->mapTo(Window(), point);
}

bool QtPerson::CanReach(int control) const {
    const QWidget* widget = Find(control);
    return widget != nullptr && widget->isVisible() && widget->isEnabled();
}

void QtPerson::Settle() {
    QApplication::sendPostedEvents();
    QApplication::processEvents();
}

void QtPerson::Activate() {
    Window()->activateWindow();
    Window()->windowHandle()->requestActivate();
    EXPECT_TRUE(QTest::qWaitForWindowActive(Window())) << "the window does not become active";
}

void QtPerson::ClickRow(int row, bool command) {
    auto* list = qobject_cast<QListWidget*>(Find(kPortList));
    if (list == nullptr || !list->isVisible()) {
        return;
    }
    list->scrollToItem(list->item(row));
    const QPoint centre = list->visualItemRect(list->item(row)).center();
    QTest::mouseClick(Window()->windowHandle(), Qt::LeftButton, CommandModifier(command),
                      list->viewport()->mapTo(Window(), centre));
    Settle();
}

// Where a person clicks a control.
QPoint QtPerson::Target(int control) const {
    QWidget* widget = Find(control);
    if (auto* group = qobject_cast<QGroupBox*>(widget)) {
        QStyleOptionGroupBox option;
        option.initFrom(group);
        option.text = group->title();
        option.subControls = QStyle::SC_GroupBoxCheckBox | QStyle::SC_GroupBoxLabel;
        return group->style()
            ->subControlRect(QStyle::CC_GroupBox, &option, QStyle::SC_GroupBoxCheckBox, group)
            .center();
    }
    // Towards the left: the box of a check box, the text of a field.
    return {std::min(10, widget->width() / 2), widget->height() / 2};
}

void QtPerson::Click(int control, bool command) {
    if (Find(control) == nullptr || !Window()->isVisible()) {
        return;
    }
    QTest::mouseClick(Window()->windowHandle(), Qt::LeftButton, CommandModifier(command),
                      Place(control, Target(control)));
    Settle();
}

void QtPerson::PickItem(int combo, int index) {
    auto* box = qobject_cast<QComboBox*>(Find(combo));
    if (!CanReach(combo) || index < 0 || index >= box->count()) {
        return;
    }
    QTest::mouseClick(Window()->windowHandle(), Qt::LeftButton, {},
                      Place(combo, QPoint(box->width() - 8, box->height() / 2)));
    QTest::qWait(5);
    QAbstractItemView* view = box->view();
    if (!view->isVisible()) {
        return;
    }
    const QModelIndex item = box->model()->index(index, 0);
    view->scrollTo(item);
    const QPoint centre = view->visualRect(item).center();
    QTest::mouseMove(view->viewport(), centre);
    QTest::mouseClick(view->viewport(), Qt::LeftButton, {}, centre);
    Settle();
}

void QtPerson::StepArrows(int arrows, bool up, StepBy by) {
    if (by == StepBy::Mouse) {
        HoldArrows(arrows, up, 1);
        return;
    }
    if (!CanReach(arrows)) {
        return;
    }
    TabTo(arrows);
    if (by == StepBy::Key) {
        KeyOnWindow(up ? Qt::Key_Up : Qt::Key_Down, {});
    } else {
        TurnWheel(arrows, up ? 1 : -1);
    }
    Settle();
}

void QtPerson::TurnWheel(int control, int notches) {
    const QPoint centre = Find(control)->rect().center();
    const QPoint place = Place(control, centre);
    QWheelEvent wheel(centre, Window()->mapToGlobal(place), {}, QPoint(0, notches * kWheelNotch),
                      Qt::NoButton, {}, Qt::NoScrollPhase, false);
    QApplication::sendEvent(Window()->childAt(place), &wheel);
    Settle();
}

void QtPerson::HoldArrows(int arrows, bool up, int steps) {
    if (Find(arrows) == nullptr || !Window()->isVisible()) {
        return;
    }
    QWidget* widget = Find(arrows);
    const QPoint point = Place(arrows, QPoint(widget->width() / 2, up ? 4 : widget->height() - 5));
    auto* timers = new TimerCount(widget);
    QTest::mousePress(Window()->windowHandle(), Qt::LeftButton, {}, point);
    if (steps > 1 && widget->isEnabled()) {
        EXPECT_TRUE(QTest::qWaitFor([&] { return timers->count >= steps - 1; }))
            << "the arrows do not repeat";
    }
    QTest::mouseRelease(Window()->windowHandle(), Qt::LeftButton, {}, point);
    delete timers;
    Settle();
}

void QtPerson::MoveSlider(int value) {
    auto* slider = qobject_cast<QSlider*>(Find(kQuantizationSlider));
    if (slider == nullptr || !slider->isVisible()) {
        return;
    }
    QWindow* window = Window()->windowHandle();
    const QPoint from = Place(kQuantizationSlider, HandleOf(*slider, slider->value()).center());
    const QPoint to = Place(kQuantizationSlider, HandleOf(*slider, value).center());
    QTest::mousePress(window, Qt::LeftButton, {}, from);
    QTest::mouseMove(window, to);
    QTest::mouseRelease(window, Qt::LeftButton, {}, to);
    Settle();
}

void QtPerson::EndPress(PressEnd end, const QPoint& inside) {
    QWindow* window = Window()->windowHandle();
    QPoint last = inside;
    switch (end) {
        case PressEnd::ReleaseInside:
            break;
        case PressEnd::ReleaseOutside:
            QTest::mouseMove(window, kNowhere);
            last = kNowhere;
            break;
        case PressEnd::WindowDeactivated: {
            QWidget other;
            other.show();
            other.activateWindow();
            EXPECT_TRUE(QTest::qWaitForWindowActive(&other));
            break;
        }
        case PressEnd::GrabLost: {
            QEvent lost(QEvent::UngrabMouse);
            QApplication::sendEvent(Find(kTestButton), &lost);
            break;
        }
    }
    QTest::mouseRelease(window, Qt::LeftButton, {}, last);
}

void QtPerson::PressTestButton(ButtonPoint point, PressEnd end, const Script& meanwhile) {
    if (!CanReach(kTestButton)) {
        return;
    }
    const QPoint inside = Place(kTestButton, QPoint(static_cast<int>(point.x), static_cast<int>(point.y)));
    bool ended = false;
    // A press that is held runs the event loop until it ends; one that is not returns at once.
    QTimer::singleShot(0, Window(), [&] {
        if (meanwhile) {
            meanwhile();
        }
        EndPress(end, inside);
        ended = true;
    });
    QTest::mousePress(Window()->windowHandle(), Qt::LeftButton, {}, inside);
    EXPECT_TRUE(QTest::qWaitFor([&] { return ended; }));
    Settle();
    if (end == PressEnd::WindowDeactivated) {
        Activate();
    }
}

void QtPerson::DropFile(const char* path) {
    if (!Window()->isVisible()) {
        return;
    }
    QMimeData data;
    data.setUrls({QUrl::fromLocalFile(QString::fromUtf8(path))});
    QDragEnterEvent enter(QPoint(200, 200), Qt::CopyAction, &data, Qt::LeftButton, {});
    enter.ignore();
    QApplication::sendEvent(Window(), &enter);
    if (enter.isAccepted()) {
        QDropEvent drop(QPointF(200, 200), Qt::CopyAction, &data, Qt::LeftButton, {});
        QApplication::sendEvent(Window(), &drop);
    }
    Settle();
}

void QtPerson::CloseWindow() {
    if (!Window()->isVisible()) {
        return;
    }
    Window()->close();
    Settle();
}

void QtPerson::KeyOnWindow(int key, Qt::KeyboardModifiers modifiers) {
    if (!Window()->isVisible()) {
        return;
    }
    QTest::keyClick(Window()->windowHandle(), static_cast<Qt::Key>(key), modifiers);
    Settle();
}

void QtPerson::TabTo(int control) {
    if (!CanReach(control)) {
        return;
    }
    for (int presses = 0; presses < 2 * kControlCount && !Find(control)->hasFocus(); ++presses) {
        KeyOnWindow(Qt::Key_Tab, {});
    }
}

void QtPerson::Press(Key key) {
    switch (key) {
        case Key::Up:
            return KeyOnWindow(Qt::Key_Up, {});
        case Key::Down:
            return KeyOnWindow(Qt::Key_Down, {});
        case Key::Return:
            return KeyOnWindow(Qt::Key_Return, {});
        case Key::Tab:
            return KeyOnWindow(Qt::Key_Tab, {});
        case Key::BackTab:
            return KeyOnWindow(Qt::Key_Backtab, Qt::ShiftModifier);
        case Key::Backspace:
            return KeyOnWindow(Qt::Key_Backspace, {});
        case Key::Space:
            return KeyOnWindow(Qt::Key_Space, {});
        case Key::Escape:
            return KeyOnWindow(Qt::Key_Escape, {});
    }
}

void QtPerson::Type(const char* text) {
    if (!Window()->isVisible()) {
        return;
    }
    QWindow* window = Window()->windowHandle();
    for (const char32_t character : QString::fromUtf8(text).toUcs4()) {
        const QString typed = QString::fromUcs4(&character, 1);
        const int key = character < 0x80 ? int{typed[0].toUpper().unicode()} : int{Qt::Key_unknown};
        QTest::simulateEvent(window, true, key, Qt::NoModifier, typed, false, -1);
        QTest::simulateEvent(window, false, key, Qt::NoModifier, typed, false, -1);
    }
    Settle();
}

void QtPerson::HoldLetter(char letter, int count) {
    QWindow* window = Window()->windowHandle();
    const QString typed{QLatin1Char(letter)};
    const int key = typed[0].toUpper().unicode();
    QTest::simulateEvent(window, true, key, Qt::NoModifier, typed, false, -1);
    for (int repeat = 0; repeat < count; ++repeat) {
        QTest::simulateEvent(window, true, key, Qt::NoModifier, typed, true, -1);
    }
    QTest::simulateEvent(window, false, key, Qt::NoModifier, typed, false, -1);
    Settle();
}

void QtPerson::CommitText(const char* text) {
    QInputMethodEvent commit;
    commit.setCommitString(QString::fromUtf8(text));
    if (QObject* focus = QGuiApplication::focusObject()) {
        QApplication::sendEvent(focus, &commit);
    }
    Settle();
}

void QtPerson::Paste(const char* text) {
    QGuiApplication::clipboard()->setText(QString::fromUtf8(text));
    KeyOnWindow(Qt::Key_V, Qt::ControlModifier);
}

QLineEdit* QtPerson::FocusedLine() const {
    QWidget* focus = Window()->focusWidget();
    if (auto* box = qobject_cast<QComboBox*>(focus)) {
        return box->lineEdit();
    }
    return qobject_cast<QLineEdit*>(focus);
}

void QtPerson::SelectAll() {
    if (QLineEdit* line = FocusedLine()) {
        line->selectAll();
    }
}

void QtPerson::Undo() {
    KeyOnWindow(Qt::Key_Z, Qt::ControlModifier);
}

}  // namespace vexil
