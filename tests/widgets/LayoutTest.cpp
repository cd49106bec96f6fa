// The window as it is seen and read out: places, names, order, texts that fit.
#include <QAccessible>
#include <QCheckBox>
#include <QComboBox>
#include <QGroupBox>
#include <QHelpEvent>
#include <QImage>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSet>
#include <QStyle>
#include <QStyleOptionButton>
#include <QStyleOptionGroupBox>
#include <QTest>
#include <QToolTip>

#include <algorithm>

#include "tests/widgets/WindowFixture.h"

namespace vexil {
namespace {

class Layout : public WindowFixture {};

QRect TableRect(const ControlSpec& spec) {
    const ControlRect& rect = spec.rect;
    const QRect place(rect.left, rect.top, rect.right - rect.left, rect.bottom - rect.top);
    const bool isField = spec.kind == ControlKind::EditText || spec.kind == ControlKind::ComboBox;
    return isField ? place.adjusted(-3, -3, 3, 3) : place;
}

TEST_F(Layout, WindowHasItsFixedContentAndTitle) {
    EXPECT_EQ(person.Window()->size(), QSize(580, 430));
    EXPECT_EQ(person.Window()->minimumSize(), person.Window()->maximumSize());
    EXPECT_EQ(person.Window()->windowTitle(), "Vexil III Control Panel");
}

// Whatever the frame around it.
TEST_F(Layout, ContentOpensAtItsPlace) {
    EXPECT_EQ(person.Window()->geometry(), QRect(100, 100, 580, 430));
}

TEST_F(Layout, EveryControlStandsAtItsPlaceInTheTable) {
    for (const ControlSpec& spec : kControlTable) {
        const QWidget* widget = person.Find(spec.number);
        ASSERT_NE(widget, nullptr) << spec.number;
        EXPECT_EQ(QRect(person.Place(spec.number, {0, 0}), widget->size()), TableRect(spec)) << spec.number;
        EXPECT_TRUE(widget->isVisible()) << spec.number;
    }
}

TEST_F(Layout, TextIs13PixelsHigh) {
    for (const ControlSpec& spec : kControlTable) {
        EXPECT_EQ(person.Find(spec.number)->font().pixelSize(), 13) << spec.number;
    }
}

TEST_F(Layout, ControlsOutsideGroupFramesDoNotOverlap) {
    for (const ControlSpec& one : kControlTable) {
        for (const ControlSpec& other : kControlTable) {
            const bool isGroup =
                one.kind == ControlKind::CheckGroupBox || one.kind == ControlKind::GroupBox ||
                other.kind == ControlKind::CheckGroupBox || other.kind == ControlKind::GroupBox;
            if (one.number < other.number && !isGroup) {
                EXPECT_FALSE(TableRect(one).intersects(TableRect(other)))
                    << one.number << " " << other.number;
            }
        }
    }
}

// Where a group's title stands in the window.
QRect TitleOf(const QGroupBox& group) {
    QStyleOptionGroupBox option;
    option.initFrom(&group);
    option.text = group.title();
    option.subControls = QStyle::SC_GroupBoxLabel;
    if (group.isCheckable()) {
        option.subControls |= QStyle::SC_GroupBoxCheckBox;
    }
    const QRect title =
        group.style()->subControlRect(QStyle::CC_GroupBox, &option, QStyle::SC_GroupBoxLabel, &group);
    return title.translated(group.mapTo(group.window(), QPoint(0, 0)));
}

// Letters that stand closer than this run into each other, pixels.
constexpr double kClosestLetters = -0.3;

TEST_F(Layout, EveryTitleFitsItsPlace) {
    for (const ControlSpec& spec : kControlTable) {
        QWidget* widget = person.Find(spec.number);
        const QFontMetrics metrics(widget->font());
        EXPECT_GE(widget->font().letterSpacing(), kClosestLetters) << spec.number;
        if (auto* label = qobject_cast<QLabel*>(widget)) {
            EXPECT_LE(metrics.horizontalAdvance(label->text()), label->width()) << spec.number;
        } else if (auto* box = qobject_cast<QCheckBox*>(widget)) {
            QStyleOptionButton option;
            option.initFrom(box);
            const int width = box->style()->subElementRect(QStyle::SE_CheckBoxContents, &option, box).width();
            EXPECT_LE(metrics.horizontalAdvance(box->text()), width) << spec.number;
        } else if (auto* button = qobject_cast<QPushButton*>(widget)) {
            EXPECT_LE(metrics.horizontalAdvance(button->text()), button->width() - 8) << spec.number;
        } else if (auto* group = qobject_cast<QGroupBox*>(widget)) {
            EXPECT_GE(TitleOf(*group).width(), metrics.horizontalAdvance(group->title())) << spec.number;
        }
    }
}

TEST_F(Layout, TitlesOfGroupsAreClearOfWhatStandsBesideThem) {
    for (const int number : {kMidiIn, kMidiOut, kSettingsGroup, kRealtimeGroup}) {
        const auto& group = Find<QGroupBox>(number);
        const QRect title = TitleOf(group);
        EXPECT_TRUE(TableRect(kControlTable[static_cast<std::size_t>(number)]).contains(title)) << number;
        for (const ControlSpec& other : kControlTable) {
            const bool isGroup =
                other.kind == ControlKind::CheckGroupBox || other.kind == ControlKind::GroupBox;
            EXPECT_FALSE(!isGroup && TableRect(other).intersects(title)) << number << " " << other.number;
        }
    }
}

// The lightest point of an empty control's picture, 0 to 255.
int LightestPoint(QWidget& widget) {
    const QImage picture = widget.grab().toImage();
    int lightest = 0;
    for (int y = 0; y < picture.height(); ++y) {
        for (int x = 0; x < picture.width(); ++x) {
            lightest = std::max(lightest, picture.pixelColor(x, y).lightness());
        }
    }
    return lightest;
}

TEST_F(Layout, EdgesOfEmptyBoxesAndFieldsCanBeSeenOnDarkColours) {
    const QColor ground(35, 38, 41);
    QPalette dark(ground);
    person.Window()->setPalette(dark);
    auto& box = Find<QCheckBox>(kLocalPipe);
    box.setText("");
    EXPECT_GT(LightestPoint(box), ground.lightness() + 40);
    EXPECT_GT(LightestPoint(Find<QLineEdit>(kOutputName)), ground.lightness() + 40);
}

TEST_F(Layout, EdgeOfAComboBoxGoesAroundItsArrowOnDarkColours) {
    const QColor ground(35, 38, 41);
    person.Window()->setPalette(QPalette(ground));
    const QImage picture = Find<QComboBox>(kTargetComputer).grab().toImage();
    const int right = picture.width() - 1;
    const int bottom = picture.height() - 1;
    const auto lightness = [&](int x, int y) { return picture.pixelColor(x, y).lightness(); };
    const int edge = lightness(right / 2, 0);
    EXPECT_GT(edge, ground.lightness() + 40);
    for (const QPoint& point : {QPoint(right - 8, 0), QPoint(right, bottom / 2), QPoint(right - 8, bottom)}) {
        EXPECT_NEAR(lightness(point.x(), point.y()), edge, 10) << point.x() << " " << point.y();
    }
}

TEST_F(Layout, LargestNumbersFitTheirPlaces) {
    for (const auto& [control, text] :
         {std::pair{kSourcePortNumber, "88"}, std::pair{kTargetPortNumber, "88"},
          std::pair{kTestChannelNumber, "16"}, std::pair{kQuantizationNumber, "10.0"}}) {
        const QWidget* widget = person.Find(control);
        EXPECT_LE(QFontMetrics(widget->font()).horizontalAdvance(text), widget->width()) << control;
    }
}

TEST_F(Layout, EveryControlHasItsAccessibleName) {
    for (const ControlSpec& spec : kControlTable) {
        QWidget* widget = person.Find(spec.number);
        QAccessibleInterface* interface = QAccessible::queryAccessibleInterface(widget);
        ASSERT_NE(interface, nullptr) << spec.number;
        // A combo box's text hides its name.
        const auto what = spec.kind == ControlKind::ComboBox ? QAccessible::Description : QAccessible::Name;
        EXPECT_EQ(interface->text(what).toStdString(), spec.accessibleName) << spec.number;
    }
}

TEST_F(Layout, LineOfAComboBoxHasItsNameToo) {
    widgets.SetText(kTargetComputer, "studio");
    QLineEdit* line = Find<QComboBox>(kTargetComputer).lineEdit();
    EXPECT_EQ(QAccessible::queryAccessibleInterface(line)->text(QAccessible::Name).toStdString(),
              kControlTable[kTargetComputer].accessibleName);
}

TEST_F(Layout, PointerThatRestsOnAControlShowsItsTip) {
    for (const ControlSpec& spec : kControlTable) {
        QToolTip::hideText();
        // On the title of a group; anywhere else on the others.
        const QWidget* widget = person.Find(spec.number);
        const bool isGroup = spec.kind == ControlKind::CheckGroupBox || spec.kind == ControlKind::GroupBox;
        const QPoint point = person.Place(spec.number, isGroup ? QPoint(40, 8) : widget->rect().center());
        QWidget* under = person.Window()->childAt(point);
        ASSERT_NE(under, nullptr) << spec.number;
        QHelpEvent resting(QEvent::ToolTip, under->mapFrom(person.Window(), point),
                           person.Window()->mapToGlobal(point));
        QApplication::sendEvent(under, &resting);
        EXPECT_EQ(QToolTip::text().replace('\n', ' ').toStdString(), spec.tip);
    }
}

TEST_F(Layout, TipsAreReadOutToo) {
    for (const ControlSpec& spec : kControlTable) {
        QWidget* widget = person.Find(spec.number);
        if (auto* combo = qobject_cast<QComboBox*>(widget)) {
            widget = combo->lineEdit();  // the description of a combo box is its name
        }
        // A number comes before what it is for.
        const std::string number = spec.number == kTestChannelNumber ? "1. " : "";
        EXPECT_EQ(QAccessible::queryAccessibleInterface(widget)->text(QAccessible::Description).toStdString(),
                  number + spec.tip);
    }
}

TEST_F(Layout, PartsOfTheWindowAreReadOutInTheOrderOfTheScreen) {
    QAccessibleInterface* window = QAccessible::queryAccessibleInterface(person.Window());
    ASSERT_NE(window, nullptr);
    std::vector<std::string> order;
    for (int index = 0; index < window->childCount(); ++index) {
        QAccessibleInterface* part = window->child(index);
        ASSERT_NE(part, nullptr);
        EXPECT_EQ(window->indexOfChild(part), index);
        // What holds a group has no name: the group is the first in it.
        const bool isPane = part->object()->objectName().isEmpty();
        order.push_back((isPane ? part->child(0) : part)->text(QAccessible::Name).toStdString());
    }
    EXPECT_EQ(order,
              (std::vector<std::string>{"Ports", "Local pipe (loopback) mode", "About", "MIDI IN", "MIDI OUT",
                                        "Settings", "Realtime Options", "Load", "Save", "Apply"}));
}

TEST_F(Layout, StaysFromLeftToRightInEveryLanguageOfTheToolkit) {
    QApplication::setLayoutDirection(Qt::RightToLeft);
    person.Settle();
    for (const ControlSpec& spec : kControlTable) {
        EXPECT_EQ(person.Find(spec.number)->layoutDirection(), Qt::LeftToRight) << spec.number;
    }
    QApplication::setLayoutDirection(Qt::LayoutDirectionAuto);
}

TEST_F(Layout, TestChannelIsReadOutFromTheStart) {
    QAccessibleInterface* channel = QAccessible::queryAccessibleInterface(person.Find(kTestChannelNumber));
    EXPECT_EQ(channel->text(QAccessible::Description).toStdString(),
              std::string("1. ") + kControlTable[kTestChannelNumber].tip);
}

TEST_F(Layout, NumbersAreReadOutAsTheyAreShown) {
    for (const int number : {kSourcePortNumber, kTargetPortNumber, kTestChannelNumber, kQuantizationNumber}) {
        widgets.SetText(number, "42");
        QAccessibleInterface* interface = QAccessible::queryAccessibleInterface(person.Find(number));
        EXPECT_EQ(interface->text(QAccessible::Description).toStdString(),
                  std::string("42. ") + kControlTable[static_cast<std::size_t>(number)].tip);
    }
}

TEST_F(Layout, LabelsNameTheirFields) {
    for (const auto& [label, field] :
         {std::pair{kInputNameLabel, kInputName}, std::pair{kOutputNameLabel, kOutputName},
          std::pair{kTargetComputerLabel, kTargetComputer}, std::pair{kTargetPortLabel, kTargetPortArrows},
          std::pair{kTestLabel, kTestChannelArrows}, std::pair{kQuantizationLabel, kQuantizationSlider}}) {
        EXPECT_EQ(Find<QLabel>(label).buddy(), person.Find(field));
    }
}

TEST_F(Layout, TabGoesThroughTheControlsInTheirOrder) {
    std::vector<int> order;
    for (int presses = 0; presses < kControlCount; ++presses) {
        const QString name = QApplication::focusWidget()->objectName();
        ASSERT_TRUE(name.startsWith("control-")) << name.toStdString();
        order.push_back(name.mid(8).toInt());
        person.Press(Key::Tab);
        if (person.Find(kPortList)->hasFocus()) {
            break;
        }
    }
    EXPECT_EQ(order, (std::vector<int>{0,  1,  2,  3,  5,  6,  7,  8,  10, 11, 13, 15,
                                       18, 19, 22, 23, 25, 26, 27, 28, 32, 33, 34, 35}));
}

TEST_F(Layout, QuitKeyIsACloseRequest) {
    for (const int focused : {kPortList, kInputName, kTargetComputer}) {
        person.TabTo(focused);
        handlers.calls.clear();
        QTest::keyClick(person.Window()->windowHandle(), Qt::Key_Q, Qt::ControlModifier);
        EXPECT_EQ(Count(EventKind::WindowClose), 1) << focused;
        EXPECT_EQ(Count(EventKind::RawKeyDown), 0) << focused;
    }
    EXPECT_TRUE(person.Window()->isVisible());
}

}  // namespace
}  // namespace vexil
