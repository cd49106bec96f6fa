// Edit texts and combo boxes: the ways to change a text that only a real window has.
#include <QAccessible>
#include <QClipboard>
#include <QComboBox>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QLineEdit>
#include <QListView>
#include <QMenu>
#include <QMimeData>
#include <QTest>
#include <QUrl>

#include "tests/widgets/WindowFixture.h"

namespace vexil {
namespace {

class Fields : public WindowFixture {
  protected:
    QLineEdit& Line(int control) {
        if (auto* box = qobject_cast<QComboBox*>(person.Find(control))) {
            return *box->lineEdit();
        }
        return Find<QLineEdit>(control);
    }
    void FillList() {
        for (const char* host : {"alpha", "beta", "gamma"}) {
            widgets.AppendItem(kTargetComputer, host);
        }
    }
    // Drops a text on a field, as from another program.
    void DropText(int control, const char* text) {
        QMimeData data;
        data.setText(text);
        QLineEdit& line = Line(control);
        QDragEnterEvent enter(QPoint(5, 5), Qt::CopyAction, &data, Qt::LeftButton, {});
        QApplication::sendEvent(&line, &enter);
        ASSERT_TRUE(enter.isAccepted());
        QDropEvent drop(QPointF(5, 5), Qt::CopyAction, &data, Qt::LeftButton, {});
        QApplication::sendEvent(&line, &drop);
        person.Settle();
    }
    void SetThroughAssistance(QWidget& widget, const char* text) {
        QAccessibleInterface* interface = QAccessible::queryAccessibleInterface(&widget);
        ASSERT_NE(interface, nullptr);
        ASSERT_NE(interface->editableTextInterface(), nullptr);
        interface->setText(QAccessible::Value, QString::fromUtf8(text));
        person.Settle();
    }
};

TEST_F(Fields, PasteByTheContextMenuIsOneKeyWithoutACharacter) {
    for (const int field : {kInputName, kTargetComputer}) {
        person.Click(field, false);
        handlers.calls.clear();
        QGuiApplication::clipboard()->setText("pasted");
        Line(field).paste();
        ASSERT_EQ(Story(), Lines{std::to_string(field) + " key"});
        EXPECT_TRUE(handlers.calls[0].event.hasCharacter);
        EXPECT_EQ(handlers.calls[0].event.character, 0);
    }
}

TEST_F(Fields, UndoAndRedoByTheContextMenuAreReported) {
    for (const int field : {kInputName, kTargetComputer}) {
        person.Click(field, false);
        person.Type("a");
        handlers.calls.clear();
        Line(field).undo();
        Line(field).redo();
        person.Settle();
        EXPECT_EQ(Count(EventKind::RawKeyDown), 2) << field;
        EXPECT_EQ(Text(field), "a");
    }
}

TEST_F(Fields, TextDroppedOnAFieldWithoutFocusIsReportedAsThatFields) {
    person.Click(kInputName, false);
    handlers.calls.clear();
    DropText(kOutputName, "dropped");
    EXPECT_EQ(Story(), (Lines{"13 hit", "13 key"}));
    EXPECT_EQ(Text(kOutputName), "dropped");
}

TEST_F(Fields, TypingGoesOnInTheFocusedFieldAfterADropElsewhere) {
    person.Click(kInputName, false);
    DropText(kOutputName, "dropped");
    handlers.calls.clear();
    person.Type("x");
    EXPECT_EQ(Story(), (Lines{"5 hit", "5 key"}));
}

TEST_F(Fields, AssistiveTechnologySetsATextAndItIsReported) {
    for (const int field : {kInputName, kTargetComputer}) {
        handlers.calls.clear();
        SetThroughAssistance(Line(field), "assisted");
        EXPECT_EQ(Story(), (Lines{std::to_string(field) + " hit", std::to_string(field) + " key"}));
        EXPECT_EQ(Text(field), "assisted");
    }
}

TEST_F(Fields, PickedNameIsTheOneThatTheListShows) {
    for (const char* name : {"stage\nleft\n", "stage\tleft", "\x01stage\x7f left"}) {
        widgets.AppendItem(kTargetComputer, name);
    }
    svString item;
    for (const auto& [index, shown] : {std::pair{0, "stage left"}, {1, "stageleft"}, {2, "stage left"}}) {
        EXPECT_EQ(Find<QComboBox>(kTargetComputer).itemText(index).toStdString(), shown);
        ASSERT_TRUE(widgets.ItemText(kTargetComputer, index, item));
        EXPECT_STREQ(item.c_str(), shown);
    }
}

TEST_F(Fields, LineBreaksAtTheEndsOfAPasteAreDroppedAndThoseWithinBecomeBlanks) {
    for (const int field : {kInputName, kTargetComputer}) {
        person.Click(field, false);
        person.Paste(
            "\r\none\ntwo\r\nthree\xE2\x80\xA9"
            "four\n\n");
        EXPECT_EQ(Text(field), "one two three four") << field;
    }
}

TEST_F(Fields, ZeroCharacterDoesNotCutAName) {
    person.Click(kInputName, false);
    QGuiApplication::clipboard()->setText(QString("ab") + QChar(0) + "cd");
    Line(kInputName).paste();
    EXPECT_EQ(Text(kInputName), "abcd");
}

TEST_F(Fields, BytesThatAreNoTextSurviveAnEdit) {
    for (const int field : {kInputName, kTargetComputer}) {
        widgets.SetText(field, "caf\xe9 \xf0\x9f\x8e\xb9 \xff\xed\xa0\x80");
        person.Click(field, false);
        QTest::keyClick(person.Window()->windowHandle(), Qt::Key_End);
        person.Type("!");
        EXPECT_EQ(Text(field), "caf\xe9 \xf0\x9f\x8e\xb9 \xff\xed\xa0\x80!") << field;
    }
}

TEST_F(Fields, LongTextIsNotCutByAnEdit) {
    const std::string text(100'000, 'n');
    widgets.SetText(kInputName, text.c_str());
    person.Click(kInputName, false);
    QTest::keyClick(person.Window()->windowHandle(), Qt::Key_End);
    person.Type("!");
    EXPECT_EQ(Text(kInputName), text + "!");
}

TEST_F(Fields, SettingTheTextWhileThePersonTypesIsSilent) {
    person.Click(kInputName, false);
    handlers.calls.clear();
    handlers.during = [&](const PanelEvent&) { widgets.SetText(kInputName, "set"); };
    person.Type("x");
    handlers.during = {};
    person.Settle();
    EXPECT_EQ(Story(), Lines{"5 key"});
}

TEST_F(Fields, ModifierAloneIsNoEvent) {
    person.Click(kInputName, false);
    handlers.calls.clear();
    QTest::keyClick(person.Window()->windowHandle(), Qt::Key_Shift);
    EXPECT_TRUE(handlers.calls.empty());
}

// The key of a command that cannot be used now, such as Apply when all is applied, must not type its letter.
TEST_F(Fields, LetterWithAltOrMetaIsNoText) {
    widgets.SetEnabled(kApply, false);
    for (const int field : {kOutputName, kTargetComputer}) {
        widgets.SetText(field, "studio");
        person.Click(field, false);
        handlers.calls.clear();
        for (const auto modifiers :
             {Qt::KeyboardModifiers(Qt::AltModifier), Qt::AltModifier | Qt::ShiftModifier,
              Qt::KeyboardModifiers(Qt::MetaModifier)}) {
            for (QObject* receiver :
                 {static_cast<QObject*>(person.Find(field)), static_cast<QObject*>(&Line(field))}) {
                QKeyEvent key(QEvent::KeyPress, Qt::Key_A, modifiers, "a");
                QApplication::sendEvent(receiver, &key);
            }
        }
        EXPECT_EQ(Text(field), "studio");
        EXPECT_EQ(Story(), Lines()) << field;
    }
}

TEST_F(Fields, KeyOfAppliedTwiceTypesNothing) {
    handlers.during = [&](const PanelEvent& event) {
        if (event.kind == EventKind::ControlHit && event.control == kApply) {
            widgets.SetEnabled(kApply, false);
        }
    };
    for (const int field : {kOutputName, kTargetComputer}) {
        widgets.SetText(field, "studio");
        person.Click(field, false);
        widgets.SetEnabled(kApply, true);
        QWindow* window = person.Window()->windowHandle();
        QTest::simulateEvent(window, true, Qt::Key_A, Qt::AltModifier, "a", false, -1);
        EXPECT_TRUE(QTest::qWaitFor([&] { return !widgets.IsEnabled(kApply); }));
        QTest::simulateEvent(window, true, Qt::Key_A, Qt::AltModifier, "a", false, -1);
        person.Settle();
        EXPECT_EQ(Text(field), "studio");
    }
    handlers.during = {};
}

// The third level of a keyboard, by which many type @ or the euro sign.
TEST_F(Fields, LetterWithAltGrIsText) {
    for (const int field : {kOutputName, kTargetComputer}) {
        person.Click(field, false);
        for (const auto modifiers :
             {Qt::KeyboardModifiers(Qt::GroupSwitchModifier), Qt::AltModifier | Qt::GroupSwitchModifier,
              Qt::AltModifier | Qt::ControlModifier}) {
            QTest::simulateEvent(person.Window()->windowHandle(), true, Qt::Key_At, modifiers, "@", false,
                                 -1);
        }
        EXPECT_EQ(Text(field), "@@@") << field;
    }
}

TEST_F(Fields, EnterOfTheKeypadIsAReturn) {
    person.Click(kInputName, false);
    handlers.calls.clear();
    QTest::keyClick(person.Window()->windowHandle(), Qt::Key_Enter, Qt::KeypadModifier);
    ASSERT_EQ(handlers.calls.size(), 1U);
    EXPECT_EQ(handlers.calls[0].event.character, kCharReturn);
}

TEST_F(Fields, FocusThatComesBackWithTheWindowIsAHit) {
    person.Click(kInputName, false);
    {
        QWidget other;
        other.show();
        other.activateWindow();
        ASSERT_TRUE(QTest::qWaitForWindowActive(&other));
        handlers.calls.clear();
    }
    person.Activate();
    EXPECT_EQ(Story(), Lines{"5 hit"});
}

TEST_F(Fields, SettingsFileDraggedOverAFieldIsTheWindows) {
    for (const int field : {kInputName, kTargetComputer}) {
        QMimeData data;
        data.setUrls({QUrl::fromLocalFile("/tmp/a.vexil3")});
        data.setText("file:///tmp/a.vexil3");
        QDragEnterEvent enter(QPoint(5, 5), Qt::CopyAction, &data, Qt::LeftButton, {});
        enter.ignore();
        QApplication::sendEvent(&Line(field), &enter);
        // Passed on to the window, which takes it.
        EXPECT_TRUE(enter.isAccepted());
        EXPECT_EQ(Text(field), "");
    }
}

TEST_F(Fields, OnlyOneLocalSettingsFileIsTakenFromADrag) {
    for (const char* path : {"/tmp/a.txt", "/tmp/vexil3"}) {
        person.DropFile(path);
        EXPECT_EQ(Count(EventKind::SettingsDropped), 0) << path;
    }
    QMimeData data;
    data.setUrls({QUrl("https://example.org/a.vexil3")});
    QDragEnterEvent remote(QPoint(5, 5), Qt::CopyAction, &data, Qt::LeftButton, {});
    remote.ignore();
    QApplication::sendEvent(person.Window(), &remote);
    EXPECT_FALSE(remote.isAccepted());
}

// --- combo boxes ---

TEST_F(Fields, WheelOverAComboBoxChangesNothing) {
    FillList();
    widgets.SetText(kTargetComputer, "beta");
    for (const bool focused : {false, true}) {
        if (focused) {
            person.Click(kTargetComputer, false);
        }
        handlers.calls.clear();
        person.TurnWheel(kTargetComputer, -1);
        EXPECT_EQ(Text(kTargetComputer), "beta");
        EXPECT_TRUE(handlers.calls.empty());
    }
}

TEST_F(Fields, ReturnInAComboBoxNeitherAddsNorPicksAnItem) {
    FillList();
    person.Click(kTargetComputer, false);
    person.Type("delta");
    handlers.calls.clear();
    person.Press(Key::Return);
    EXPECT_EQ(Story(), Lines{"15 key"});
    EXPECT_EQ(Text(kTargetComputer), "delta");
    EXPECT_EQ(widgets.ItemCount(kTargetComputer), 3);
}

TEST_F(Fields, ReturnOnAnItemsTextIsNoPick) {
    FillList();
    person.Click(kTargetComputer, false);
    person.Type("beta");
    handlers.calls.clear();
    person.Press(Key::Return);
    EXPECT_EQ(Story(), Lines{"15 key"});
    EXPECT_EQ(Text(kTargetComputer), "beta");
}

TEST_F(Fields, LeavingAComboBoxLeavesTheTypedCase) {
    FillList();
    person.Click(kTargetComputer, false);
    person.Type("BETA");
    handlers.calls.clear();
    person.Press(Key::Tab);
    EXPECT_EQ(Text(kTargetComputer), "BETA");
    EXPECT_TRUE(Story().empty());
}

// The toolkit picks the item that a typed text names when the field is left: a person did no such thing, and
// every pick closes and reopens the test.
TEST_F(Fields, LeavingAComboBoxWhoseTextNamesAnItemIsNoPick) {
    FillList();
    handlers.answer = RecordingHandlers::Answer::NextThenNotHandled;
    person.Click(kTargetComputer, false);
    person.Type("beta");
    handlers.calls.clear();
    person.Click(kOutputName, false);
    EXPECT_EQ(Story(), Lines{"13 hit"});
    EXPECT_EQ(Text(kTargetComputer), "beta");
}

TEST_F(Fields, DisablingAComboBoxThatHasTheFocusIsNoPick) {
    FillList();
    person.Click(kTargetComputer, false);
    widgets.SetText(kTargetComputer, "beta");
    handlers.calls.clear();
    widgets.SetEnabled(kTargetComputer, false);
    EXPECT_EQ(Count(EventKind::ListItemSelected), 0);
}

TEST_F(Fields, DownKeyGoesOnFromTheItemThatTheTextNames) {
    FillList();
    widgets.SetText(kTargetComputer, "beta");
    person.Click(kTargetComputer, false);
    handlers.calls.clear();
    person.Press(Key::Down);
    EXPECT_EQ(Text(kTargetComputer), "gamma");
    EXPECT_EQ(Story(), Lines{"15 key"});
}

TEST_F(Fields, CompletedTextIsWhatIsReported) {
    FillList();
    person.Click(kTargetComputer, false);
    handlers.calls.clear();
    std::string seen;
    handlers.answer = RecordingHandlers::Answer::NextThenNotHandled;
    handlers.during = [&](const PanelEvent&) { seen = Text(kTargetComputer); };
    person.Type("g");
    handlers.during = {};
    EXPECT_EQ(seen, "gamma");
    EXPECT_EQ(Story(), Lines{"15 key"});
}

TEST_F(Fields, PickOfTheItemThatIsShownAlreadyIsStillAPick) {
    FillList();
    person.PickItem(kTargetComputer, 1);
    handlers.calls.clear();
    person.PickItem(kTargetComputer, 1);
    EXPECT_EQ(Count(EventKind::ListItemSelected), 1);
}

TEST_F(Fields, PickAfterTypingAnotherNameIsReportedOnce) {
    FillList();
    person.PickItem(kTargetComputer, 1);
    person.SelectAll();
    person.Type("typed");
    handlers.calls.clear();
    person.PickItem(kTargetComputer, 1);
    EXPECT_EQ(Text(kTargetComputer), "beta");
    EXPECT_EQ(Count(EventKind::ListItemSelected), 1);
    EXPECT_EQ(Count(EventKind::RawKeyDown), 0);
}

TEST_F(Fields, ItemIsPickedByKeyboardFromTheOpenList) {
    FillList();
    auto& box = Find<QComboBox>(kTargetComputer);
    person.Click(kTargetComputer, false);
    QTest::keyClick(person.Window()->windowHandle(), Qt::Key_Down, Qt::AltModifier);
    ASSERT_TRUE(box.view()->isVisible());
    handlers.calls.clear();
    QTest::keyClick(box.view(), Qt::Key_Down);
    QTest::keyClick(box.view(), Qt::Key_Return);
    person.Settle();
    ASSERT_EQ(Count(EventKind::ListItemSelected), 1);
    EXPECT_EQ(Count(EventKind::RawKeyDown), 0);
}

TEST_F(Fields, ListClosedByEscapeChangesNothing) {
    FillList();
    widgets.SetText(kTargetComputer, "typed");
    auto& box = Find<QComboBox>(kTargetComputer);
    person.Click(kTargetComputer, false);
    QTest::keyClick(person.Window()->windowHandle(), Qt::Key_Down, Qt::AltModifier);
    ASSERT_TRUE(box.view()->isVisible());
    handlers.calls.clear();
    QTest::keyClick(box.view(), Qt::Key_Escape);
    person.Settle();
    EXPECT_EQ(Text(kTargetComputer), "typed");
    EXPECT_EQ(Count(EventKind::ListItemSelected) + Count(EventKind::RawKeyDown), 0);
}

TEST_F(Fields, FillingTheListKeepsCursorAndSelection) {
    widgets.SetText(kTargetComputer, "typed");
    QLineEdit& line = Line(kTargetComputer);
    line.setSelection(1, 2);
    FillList();
    EXPECT_EQ(line.selectedText(), "yp");
    line.deselect();
    line.setCursorPosition(3);
    for (int index = 2; index >= 0; --index) {
        widgets.RemoveItem(kTargetComputer, index);
    }
    EXPECT_EQ(line.cursorPosition(), 3);
    EXPECT_EQ(Text(kTargetComputer), "typed");
}

}  // namespace
}  // namespace vexil
