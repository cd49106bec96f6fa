#include "platform/qt/ComboBox.h"

#include <algorithm>

#include <QAbstractItemView>
#include <QAccessible>
#include <QCompleter>
#include <QLineEdit>
#include <QScrollBar>
#include <QWheelEvent>

#include "platform/qt/FieldText.h"
#include "platform/qt/KeyEvents.h"
#include "platform/qt/SettingsFileDrop.h"

namespace vexil {

namespace {

QLineEdit& MakeEditable(QComboBox& box) {
    box.setEditable(true);
    return *box.lineEdit();
}

// What changes while an object of this class lives, assistive technology is not told of.
class UntoldToAssistance {
  public:
    UntoldToAssistance() : before(QAccessible::installUpdateHandler([](QAccessibleEvent*) {})) {}
    ~UntoldToAssistance() { QAccessible::installUpdateHandler(before); }
    UntoldToAssistance(const UntoldToAssistance&) = delete;
    UntoldToAssistance& operator=(const UntoldToAssistance&) = delete;

  private:
    QAccessible::UpdateHandler before;
};

bool MovesThroughList(const QKeyEvent& key) {
    return key.key() == Qt::Key_Up || key.key() == Qt::Key_Down || key.key() == Qt::Key_PageUp ||
           key.key() == Qt::Key_PageDown;
}

}  // namespace

ComboBox::ComboBox(const Reporter& reporter, LastField& lastField, QWidget* parent)
    : QComboBox(parent), fieldEvents(reporter, lastField, MakeEditable(*this)) {
    setInsertPolicy(QComboBox::NoInsert);
    // A completer that ignores case would rewrite the case of a typed name when Return is pressed in it.
    completer()->setCaseSensitivity(Qt::CaseSensitive);
    // When the field is left the toolkit would pick the item that the text names. Only a person picks.
    disconnect(lineEdit(), &QLineEdit::editingFinished, this, nullptr);
    // The wheel gives no focus: see wheelEvent.
    setFocusPolicy(Qt::StrongFocus);
    lineEdit()->installEventFilter(this);
    // Also emitted for keys (Return, the arrows): those are reported as keys.
    connect(this, &QComboBox::activated, this, [this](int index) {
        if (!fieldEvents.IsTakingKey()) {
            fieldEvents.ItemPicked(index);
        }
    });
}

bool ComboBox::ReadText(QString& text) const {
    text = currentText();
    return true;
}

void ComboBox::WriteText(const QString& text) {
    fieldEvents.Quietly([&] { setEditText(text); });
}

void ComboBox::AppendItem(const QString& text) {
    // The first item of an empty list would become the text.
    KeepingText([&] { addItem(PickedText(text)); });
}

void ComboBox::RemoveItem(int index) {
    // Removing the current item would replace the text by a neighbour's, the last one empty it.
    KeepingText([&] { removeItem(index); });
}

void ComboBox::showPopup() {
    MakeTextCurrent();
    // The list is as wide as its longest item needs.
    const int scrollBar = count() > maxVisibleItems() ? view()->verticalScrollBar()->sizeHint().width() : 0;
    view()->setMinimumWidth(std::max(width(), view()->sizeHintForColumn(0) + scrollBar));
    QComboBox::showPopup();
}

bool ComboBox::event(QEvent* event) {
    switch (event->type()) {
        case QEvent::KeyPress: {
            auto& key = static_cast<QKeyEvent&>(*event);
            if (IsCommandKey(key)) {
                event->ignore();  // the line would take it for text
                return true;
            }
            if (!IsPanelKey(key) || fieldEvents.IsTakingKey()) {
                break;
            }
            return fieldEvents.Key(key, [&] {
                if (MovesThroughList(key)) {
                    MakeTextCurrent();
                }
                return QComboBox::event(event);
            });
        }
        case QEvent::FocusIn:
            fieldEvents.FocusGained();
            break;
        default:
            break;
    }
    return QComboBox::event(event);
}

// The box has the keyboard focus and hands keys on to its line edit; a key that comes to the line edit by
// itself is reported nevertheless.
bool ComboBox::eventFilter(QObject* watched, QEvent* event) {
    if (watched == lineEdit()) {
        if (event->type() == QEvent::KeyPress && !fieldEvents.IsTakingKey()) {
            auto& key = static_cast<QKeyEvent&>(*event);
            if (IsCommandKey(key)) {
                event->ignore();
                return true;
            }
            if (IsPanelKey(key)) {
                fieldEvents.Key(key, [&] { return lineEdit()->event(event); });
                return true;
            }
        }
        if (event->type() == QEvent::DragEnter && IsSettingsFileDrag(*event)) {
            event->ignore();
            return true;
        }
    }
    return QComboBox::eventFilter(watched, event);
}

// A turn of the wheel while the pointer happens to be here must not change a name.
void ComboBox::wheelEvent(QWheelEvent* event) {
    event->ignore();
}

void ComboBox::KeepingText(const std::function<void()>& change) {
    const UntoldToAssistance untold;  // the text is the same after it
    fieldEvents.Quietly([&] {
        QLineEdit& line = *lineEdit();
        const QString text = line.text();
        const int cursor = line.cursorPosition();
        const int selectionStart = line.selectionStart();
        const int selectionLength = static_cast<int>(line.selectedText().size());
        change();
        if (line.text() == text) {
            return;
        }
        line.setText(text);
        line.setCursorPosition(cursor);
        if (selectionStart >= 0) {
            line.setSelection(selectionStart, selectionLength);
        }
    });
}

// The current item follows picks only; before the list is shown or moved through it is made the one whose
// text the field shows, or null.
void ComboBox::MakeTextCurrent() {
    const int index = findText(currentText(), Qt::MatchExactly | Qt::MatchCaseSensitive);
    if (index != currentIndex()) {
        KeepingText([&] { setCurrentIndex(index); });
    }
}

}  // namespace vexil
