#include "platform/qt/CheckControls.h"

#include <QGuiApplication>
#include <QInputMethod>
#include <QShortcutEvent>
#include <QSignalBlocker>
#include <QStyle>
#include <QStyleOptionButton>

#include "platform/qt/FieldText.h"
#include "platform/qt/TitleFit.h"

namespace vexil {

CheckBox::CheckBox(const Reporter& reporter, const QString& title, QWidget* parent)
    : QCheckBox(DrawnTitle(title), parent) {
    // Not `clicked`, which assistive technology does not raise.
    connect(this, &QCheckBox::toggled, this, [reporter] { reporter.Hit(); });
}

void CheckBox::resizeEvent(QResizeEvent* event) {
    QStyleOptionButton option;
    initStyleOption(&option);
    const QRect contents = style()->subElementRect(QStyle::SE_CheckBoxContents, &option, this);
    FitTitle(*this, option.text, contents.width());
    QCheckBox::resizeEvent(event);
}

void CheckBox::SetValue(int value) {
    const QSignalBlocker blocker(this);  // `toggled` would report a hit
    setChecked(value != 0);
}

PushButton::PushButton(const Reporter& reporter, const QString& title, QWidget* parent)
    : QPushButton(DrawnTitle(title), parent) {
    // A click leaves the keyboard focus where a person types.
    setFocusPolicy(Qt::TabFocus);
    connect(this, &QPushButton::clicked, this, [reporter] {
        // What an input method is still composing belongs to the field.
        QGuiApplication::inputMethod()->commit();
        reporter.Hit();
    });
}

bool PushButton::event(QEvent* event) {
    // A key that is held presses the button once. The base class keeps the shortcut's number to itself until
    // its first use, which no repeat precedes.
    if (event->type() == QEvent::Shortcut) {
        setShortcutAutoRepeat(static_cast<QShortcutEvent&>(*event).shortcutId(), false);
    }
    return QPushButton::event(event);
}

}  // namespace vexil
