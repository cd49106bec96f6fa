#include "platform/qt/AccessibleRoles.h"

#include <algorithm>
#include <vector>

#include <QAccessible>
#include <QAccessibleWidget>

#include "panel/ControlTable.h"
#include "platform/qt/LittleArrows.h"
#include "platform/qt/PanelWindow.h"
#include "platform/qt/QtControl.h"
#include "platform/qt/TickedSlider.h"

namespace vexil {

namespace {

// A number with two arrows, which the toolkit would call a slider.
class AccessibleArrows : public QAccessibleWidget, public QAccessibleValueInterface {
  public:
    explicit AccessibleArrows(LittleArrows& littleArrows)
        : QAccessibleWidget(&littleArrows, QAccessible::SpinBox), arrows(littleArrows) {}

    void* interface_cast(QAccessible::InterfaceType type) override {
        if (type == QAccessible::ValueInterface) {
            return static_cast<QAccessibleValueInterface*>(this);
        }
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
            while (value < arrows.maximum() && arrows.ShownNumber(value) < number) {
                ++value;
            }
        } else {
            while (value > arrows.minimum() && arrows.ShownNumber(value) > number) {
                --value;
            }
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
        if (type == QAccessible::ValueInterface) {
            return static_cast<QAccessibleValueInterface*>(this);
        }
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

// The number of a control, or of the first one in a pane; what is no control comes last.
int PlaceInOrder(const QObject* object) {
    int place = kControlCount;
    for (int number = 0; number < kControlCount && place == kControlCount; ++number) {
        const QString name = ControlName(number);
        if (object != nullptr &&
            (object->objectName() == name || object->findChild<QWidget*>(name) != nullptr)) {
            place = number;
        }
    }
    return place;
}

// Its parts in the order of their numbers, which is the one on the screen. The toolkit would give the order
// in which they are drawn.
class AccessibleWindow : public QAccessibleWidget {
  public:
    explicit AccessibleWindow(PanelWindow& window) : QAccessibleWidget(&window, QAccessible::Window) {}

    QAccessibleInterface* child(int index) const override {
        const std::vector<QAccessibleInterface*> parts = Parts();
        const bool isThere = index >= 0 && index < static_cast<int>(parts.size());
        return isThere ? parts[static_cast<std::size_t>(index)] : nullptr;
    }
    int indexOfChild(const QAccessibleInterface* part) const override {
        const std::vector<QAccessibleInterface*> parts = Parts();
        const auto found = std::find_if(parts.begin(), parts.end(), [part](QAccessibleInterface* one) {
            return part != nullptr && one->object() == part->object();
        });
        return found == parts.end() ? -1 : static_cast<int>(found - parts.begin());
    }

  private:
    std::vector<QAccessibleInterface*> Parts() const {
        std::vector<QAccessibleInterface*> parts;
        for (int index = 0; index < childCount(); ++index) {
            if (QAccessibleInterface* part = QAccessibleWidget::child(index)) {
                parts.push_back(part);
            }
        }
        std::stable_sort(parts.begin(), parts.end(),
                         [](QAccessibleInterface* one, QAccessibleInterface* other) {
                             return PlaceInOrder(one->object()) < PlaceInOrder(other->object());
                         });
        return parts;
    }
};

QAccessibleInterface* MakeAccessible(const QString& /*className*/, QObject* object) {
    if (auto* arrows = dynamic_cast<LittleArrows*>(object)) {
        return new AccessibleArrows(*arrows);
    }
    if (auto* slider = dynamic_cast<TickedSlider*>(object)) {
        return new AccessibleTickedSlider(*slider);
    }
    if (auto* window = dynamic_cast<PanelWindow*>(object)) {
        return new AccessibleWindow(*window);
    }
    return nullptr;
}

}  // namespace

void InstallAccessibleRoles() {
    QAccessible::installFactory(MakeAccessible);
}

}  // namespace vexil
