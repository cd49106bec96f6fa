// The window on a computer with two displays, of which the main one stands to the right of the other.
#include <QApplication>
#include <QFile>
#include <QScreen>
#include <QTemporaryDir>
#include <QWidget>

#include <gtest/gtest.h>

#include "panel/CenterRect.h"
#include "panel/ControlTable.h"
#include "platform/qt/QtDesktop.h"
#include "platform/qt/QtWidgets.h"

namespace vexil {
namespace {

constexpr const char* kTwoDisplays = R"({"screens": [
    {"name": "main", "x": 1920, "y": 100, "width": 1024, "height": 768},
    {"name": "other", "x": 0, "y": 0, "width": 1920, "height": 1080}
]})";

TEST(TwoDisplays, WindowOpensInTheMiddleOfTheMainOne) {
    ASSERT_EQ(QGuiApplication::primaryScreen()->geometry(), QRect(1920, 100, 1024, 768));
    ASSERT_EQ(QGuiApplication::screens().size(), 2);
    QtWidgets widgets;
    QtDesktop desktop(widgets);
    ControlRect content{};
    CenterRectOnMainDisplay(desktop, content, kWindowWidth, kWindowHeight);
    widgets.CreateWindow(content);
    desktop.ShowWindow();
    EXPECT_EQ(widgets.Window()->geometry(), QRect(1920 + 222, 100 + 169, 580, 430));
}

}  // namespace
}  // namespace vexil

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    const QTemporaryDir folder;
    for (const char* name :
         {"HOME", "XDG_CONFIG_HOME", "XDG_DATA_HOME", "XDG_CACHE_HOME", "XDG_RUNTIME_DIR"}) {
        qputenv(name, folder.path().toUtf8());
    }
    QFile displays(folder.filePath("displays.json"));
    if (!displays.open(QIODevice::WriteOnly) || displays.write(vexil::kTwoDisplays) < 0) {
        return 1;
    }
    displays.close();
    qputenv("QT_QPA_PLATFORM", "offscreen:configfile=" + displays.fileName().toUtf8());
    const QApplication application(argc, argv);
    return RUN_ALL_TESTS();
}
