#include "platform/qt/GroupPane.h"

#include <QSignalBlocker>

#include "platform/qt/FieldText.h"

namespace vexil {

GroupPane::GroupPane(const Reporter& reporter, const QString& title, bool checkable, QWidget* parent)
    : QWidget(parent), box(new QGroupBox(DrawnTitle(title), this)) {
    // Controls of the window stand on the upper edge of a group: they stay above it.
    lower();
    if (!checkable) {
        return;
    }
    box->setCheckable(true);
    box->setChecked(false);
    connect(box, &QGroupBox::toggled, this, [this, reporter](bool on) {
        if (isEnabled()) {
            reporter.Hit();
        } else {
            SetValue(on ? 0 : 1);  // assistive technology toggles disabled groups too
        }
    });
}

int GroupPane::Value() const {
    return box->isCheckable() && box->isChecked() ? 1 : 0;
}

void GroupPane::SetValue(int value) {
    const QSignalBlocker blocker(box);  // `toggled` would report a hit
    box->setChecked(value != 0);
}

void GroupPane::resizeEvent(QResizeEvent* /*event*/) {
    box->setGeometry(rect());
}

}  // namespace vexil
