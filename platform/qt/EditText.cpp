#include "platform/qt/EditText.h"

#include <QEvent>

#include "platform/qt/KeyEvents.h"
#include "platform/qt/SettingsFileDrop.h"

namespace vexil {

EditText::EditText(const Reporter& reporter, LastField& lastField, QWidget* parent)
    : QLineEdit(parent), fieldEvents(reporter, lastField, *this) {}

bool EditText::ReadText(QString& read) const {
    read = text();
    return true;
}

void EditText::WriteText(const QString& newText) {
    fieldEvents.Quietly([&] { setText(newText); });
}

bool EditText::event(QEvent* event) {
    switch (event->type()) {
        case QEvent::KeyPress: {
            auto& key = static_cast<QKeyEvent&>(*event);
            if (IsCommandKey(key)) {
                event->ignore();  // the line would take it for text
                return true;
            }
            if (!IsPanelKey(key)) {
                break;
            }
            return fieldEvents.Key(key, [&] { return QLineEdit::event(event); });
        }
        case QEvent::FocusIn:
            fieldEvents.FocusGained();
            break;
        case QEvent::DragEnter:
            // Left to the window.
            if (IsSettingsFileDrag(*event)) {
                event->ignore();
                return true;
            }
            break;
        default:
            break;
    }
    return QLineEdit::event(event);
}

}  // namespace vexil
