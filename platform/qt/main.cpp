// The panel's program: puts the panel together with the platform it runs on.
#include <QApplication>

#include <clocale>
#include <string>

#include "panel/StartUp.h"
#include "platform/linux/ControlSocket.h"
#include "platform/linux/LinuxHostClock.h"
#include "platform/linux/LogindRestarter.h"
#include "platform/linux/Paths.h"
#include "platform/linux/PlistPreferenceDomains.h"
#include "platform/qt/QtDesktop.h"
#include "platform/qt/QtDialogs.h"
#include "platform/qt/QtWidgets.h"
#include "platform/qt/TerminationSignals.h"

int main(int argc, char** argv) {
    // The panel has no command-line options: the toolkit gets none to take as its own either, and only its
    // copy of the vector is changed.
    const std::string executablePath = argc > 0 ? argv[0] : "";
    std::string toolkitName = executablePath;
    char* toolkitArguments[] = {toolkitName.data(), nullptr};
    int toolkitArgumentCount = 1;

    // The places of the controls were measured with this style. The colours are the desktop's.
    QApplication::setStyle("fusion");
    QApplication application(toolkitArgumentCount, toolkitArguments);
    // The toolkit sets the user's locale; numbers are formatted and read in the one that files are written
    // in.
    std::setlocale(LC_NUMERIC, "C");
    QApplication::setApplicationName("vexil3");
    QGuiApplication::setDesktopFileName("com.sonavert.vexil3");
    // The panel decides when its run is over.
    QApplication::setQuitOnLastWindowClosed(false);

    const vexil::Paths paths = vexil::FindPaths(vexil::CurrentSurroundings());
    vexil::PlistPreferenceDomains preferences(paths);
    vexil::ControlSocket driver(paths.control, paths.controlIsSystemWide);
    vexil::LogindRestarter restarter;
    vexil::LinuxHostClock clock;
    vexil::QtWidgets widgets;
    vexil::QtDialogs dialogs(widgets);
    vexil::QtDesktop desktop(widgets);
    const vexil::TerminationSignals terminationSignals([&desktop] { desktop.RequestClose(); });

    return vexil::RunPanel(executablePath.c_str(),
                           {widgets, dialogs, desktop, restarter, clock, driver, preferences});
}
