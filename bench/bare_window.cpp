// The measure of the panel's start and memory: a bare Qt window with the toolkit's own 36 controls, of the
// same kinds and at the same places, with a list of 64 rows. It keeps no configuration, knows no driver and
// handles no event.
#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QGroupBox>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QSlider>
#include <QSpinBox>
#include <QWidget>

#include "panel/ControlTable.h"

namespace {

QWidget* MakeControl(const vexil::ControlSpec& spec, QWidget* parent) {
    const QString title = QString::fromUtf8(spec.title == nullptr ? "" : spec.title);
    switch (spec.kind) {
        case vexil::ControlKind::ListBox: {
            auto* list = new QListWidget(parent);
            for (int row = 0; row < 64; ++row) {
                list->addItem(QString::asprintf("Port %d", (row / 8 + 1) * 10 + row % 8 + 1));
            }
            return list;
        }
        case vexil::ControlKind::CheckBox:
            return new QCheckBox(title, parent);
        case vexil::ControlKind::PushButton:
        case vexil::ControlKind::RoundButton:
            return new QPushButton(title, parent);
        case vexil::ControlKind::CheckGroupBox:
        case vexil::ControlKind::GroupBox: {
            auto* group = new QGroupBox(title, parent);
            group->setCheckable(spec.kind == vexil::ControlKind::CheckGroupBox);
            return group;
        }
        case vexil::ControlKind::StaticText:
            return new QLabel(title, parent);
        case vexil::ControlKind::EditText:
            return new QLineEdit(parent);
        case vexil::ControlKind::ComboBox: {
            auto* box = new QComboBox(parent);
            box->setEditable(true);
            return box;
        }
        case vexil::ControlKind::LittleArrows:
            return new QSpinBox(parent);
        case vexil::ControlKind::Slider:
            return new QSlider(Qt::Horizontal, parent);
    }
    return nullptr;
}

}  // namespace

int main(int argc, char** argv) {
    QApplication application(argc, argv);
    QWidget window;
    window.setWindowTitle("Bare window");
    window.setFixedSize(vexil::kWindowWidth, vexil::kWindowHeight);
    for (const vexil::ControlSpec& spec : vexil::kControlTable) {
        const vexil::ControlRect& rect = spec.rect;
        MakeControl(spec, &window)
            ->setGeometry(rect.left, rect.top, rect.right - rect.left, rect.bottom - rect.top);
    }
    window.show();
    return QApplication::exec();
}
