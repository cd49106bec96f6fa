// The programs of this folder: GoogleTest inside a QApplication, with folders of its own, on no display
// unless one is asked for.
#include <QApplication>
#include <QTemporaryDir>

#include <clocale>

#include <gtest/gtest.h>

#include "platform/qt/PanelStyle.h"

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    // File dialogs keep their history in the user's folders.
    const QTemporaryDir home;
    for (const char* name : {"HOME", "XDG_CONFIG_HOME", "XDG_DATA_HOME", "XDG_CACHE_HOME", "XDG_STATE_HOME",
                             "XDG_RUNTIME_DIR"}) {
        qputenv(name, home.path().toUtf8());
    }
    // Here and not in the tests' properties alone: the list of the tests is asked for without those.
    if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM")) {
        qputenv("QT_QPA_PLATFORM", "offscreen");
    }
    QApplication::setStyle(new vexil::PanelStyle);
    QApplication application(argc, argv);
    std::setlocale(LC_NUMERIC, "C");
    QApplication::setQuitOnLastWindowClosed(false);
    // The list of a combo box takes no click within this time after it was opened, milliseconds.
    QApplication::setDoubleClickInterval(1);
    return RUN_ALL_TESTS();
}
