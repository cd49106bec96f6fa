#include "platform/qt/AccessibleRoles.h"

#include <QAccessible>
#include <QAccessibleWidget>

#include "platform/qt/LittleArrows.h"
#include "platform/qt/PanelWindow.h"

namespace vexil {

namespace {

// A number with two arrows, which the toolkit would call a slider.
class AccessibleArrows : public QAccessibleWidget, public QAccessibleValueInterface {
  public:
    explicit AccessibleArrows(LittleArrows& littleArrows)
        : QAccessibleWidget(&littleArrows, QAccessible::SpinBox), arrows(littleArrows) {}

    void* interface_cast(QAccessible::InterfaceType type) override {
        if (type == QAccessible::ValueInterface)
            return static_cast<QAccessibleValueInterface*>(this);
        return QAccessibleWidget::interface_cast(type);
    }

    QVariant currentValue() const override { return arrows.value(); }
    void setCurrentValue(const QVariant& value) override { arrows.setValue(value.toInt()); }
    QVariant maximumValue() const override { return arrows.maximum(); }
    QVariant minimumValue() const override { return arrows.minimum(); }
    QVariant minimumStepSize() const override { return arrows.singleStep(); }

  private:
    LittleArrows& arrows;
};

QAccessibleInterface* MakeAccessible(const QString& /*className*/, QObject* object) {
    if (auto* arrows = dynamic_cast<LittleArrows*>(object))
        return new AccessibleArrows(*arrows);
    if (auto* window = dynamic_cast<PanelWindow*>(object))
        return new QAccessibleWidget(window, QAccessible::Window);
    return nullptr;
}

}  // namespace

void InstallAccessibleRoles() {
    QAccessible::installFactory(MakeAccessible);
}

}  // namespace vexil
