#include "platform/qt/AccessibleRoles.h"

#include <algorithm>

#include <QAccessible>
#include <QAccessibleWidget>

#include "platform/qt/LittleArrows.h"
#include "platform/qt/PanelWindow.h"
#include "platform/qt/TickedSlider.h"

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

    QVariant currentValue() const override { return arrows.ShownNumber(arrows.value()); }
    void setCurrentValue(const QVariant& number) override { arrows.setValue(ValueTowards(number.toInt())); }
    QVariant maximumValue() const override { return arrows.ShownNumber(arrows.maximum()); }
    QVariant minimumValue() const override { return arrows.ShownNumber(arrows.minimum()); }
    QVariant minimumStepSize() const override { return arrows.singleStep(); }

  private:
    // The value of a number that is shown; of one that is not, the next on the way, so that a step of one
    // leads from 18 to 21 and back.
    int ValueTowards(int number) const {
        int value = arrows.value();
        if (number > arrows.ShownNumber(value)) {
            while (value < arrows.maximum() && arrows.ShownNumber(value) < number)
                ++value;
        } else {
            while (value > arrows.minimum() && arrows.ShownNumber(value) > number)
                --value;
        }
        return value;
    }

    LittleArrows& arrows;
};

// The toolkit's own would tell the value and not the number that is shown.
class AccessibleTickedSlider : public QAccessibleWidget, public QAccessibleValueInterface {
  public:
    explicit AccessibleTickedSlider(TickedSlider& tickedSlider)
        : QAccessibleWidget(&tickedSlider, QAccessible::Slider), slider(tickedSlider) {}

    void* interface_cast(QAccessible::InterfaceType type) override {
        if (type == QAccessible::ValueInterface)
            return static_cast<QAccessibleValueInterface*>(this);
        return QAccessibleWidget::interface_cast(type);
    }

    QVariant currentValue() const override { return Number(slider.value()); }
    void setCurrentValue(const QVariant& number) override {
        const double wanted =
            std::clamp(number.toDouble(), Number(slider.minimum()), Number(slider.maximum()));
        slider.setValue(qRound(wanted * slider.ValuesPerUnit()));
    }
    QVariant maximumValue() const override { return Number(slider.maximum()); }
    QVariant minimumValue() const override { return Number(slider.minimum()); }
    QVariant minimumStepSize() const override { return Number(slider.singleStep()); }

  private:
    double Number(int value) const { return static_cast<double>(value) / slider.ValuesPerUnit(); }

    TickedSlider& slider;
};

QAccessibleInterface* MakeAccessible(const QString& /*className*/, QObject* object) {
    if (auto* arrows = dynamic_cast<LittleArrows*>(object))
        return new AccessibleArrows(*arrows);
    if (auto* slider = dynamic_cast<TickedSlider*>(object))
        return new AccessibleTickedSlider(*slider);
    if (auto* window = dynamic_cast<PanelWindow*>(object))
        return new QAccessibleWidget(window, QAccessible::Window);
    return nullptr;
}

}  // namespace

void InstallAccessibleRoles() {
    QAccessible::installFactory(MakeAccessible);
}

}  // namespace vexil
