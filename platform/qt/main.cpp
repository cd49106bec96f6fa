// The panel's program: puts the panel together with the platform it runs on.
#include <QApplication>
#include <QDialog>
#include <QIcon>
#include <QSocketNotifier>

#include <chrono>
#include <clocale>
#include <memory>
#include <string>

#include "panel/StartUp.h"
#include "platform/linux/LinuxHostClock.h"
#include "platform/linux/Paths.h"
#include "platform/linux/control/ControlSocket.h"
#include "platform/linux/control/NotedKernelControl.h"
#include "platform/linux/desktop/LogindRestarter.h"
#include "platform/linux/desktop/SessionInstance.h"
#include "platform/linux/preferences/SummedPreferenceDomains.h"
#include "platform/qt/DriverStatus.h"
#include "platform/qt/NotedDialogs.h"
#include "platform/qt/PanelStatus.h"
#include "platform/qt/PanelStyle.h"
#include "platform/qt/QtDesktop.h"
#include "platform/qt/QtDialogs.h"
#include "platform/qt/QtWidgets.h"
#include "platform/qt/TerminationSignals.h"
#include "platform/qt/ToolkitTranslations.h"
#include "platform/qt/WaitInEventLoop.h"
#include "shared/System/StandardStreams.h"

namespace {

// How long a start waits for a panel that has hung, or a session bus that has. A panel that is itself just
// starting, from a slow disk or on a busy computer, has answered by then.
constexpr std::chrono::milliseconds kPatience{3000};

// Lets a panel that is started later bring this one to the front, from the event loop.
class LaterStarts {
  public:
    LaterStarts(vexil::SessionInstance& instance, vexil::QtDesktop& qtDesktop)
        : session(instance), desktop(qtDesktop) {
        if (session.Descriptor() < 0) {
            return;
        }
        notifier = std::make_unique<QSocketNotifier>(session.Descriptor(), QSocketNotifier::Read);
        QObject::connect(notifier.get(), &QSocketNotifier::activated, notifier.get(), [this] { Dispatch(); });
        // What came with the answers to this start has been read from the socket already.
        QMetaObject::invokeMethod(
            notifier.get(), [this] { Dispatch(); }, Qt::QueuedConnection);
    }

  private:
    void Dispatch() const {
        const bool more = session.Dispatch([this](const vexil::LaunchTokens& tokens) {
            return desktop.BringToFront(tokens.startupId, tokens.activation);
        });
        notifier->setEnabled(more);
    }

    vexil::SessionInstance& session;
    vexil::QtDesktop& desktop;
    std::unique_ptr<QSocketNotifier> notifier;
};

// Lets the driver's link go on between the panel's calls, also while a question is open.
class DriverEvents {
  public:
    explicit DriverEvents(vexil::ControlSocket& driver) {
        if (driver.EventDescriptor() < 0) {
            return;
        }
        notifier = std::make_unique<QSocketNotifier>(driver.EventDescriptor(), QSocketNotifier::Read);
        QObject::connect(notifier.get(), &QSocketNotifier::activated, notifier.get(),
                         [&driver] { driver.Serve(); });
    }

  private:
    std::unique_ptr<QSocketNotifier> notifier;
};

// Tells the person once that settings could not be stored: at the next turn of the event loop, when the rest
// of them has failed as well, or before it ends, which it then does not.
class StoreFailures {
  public:
    StoreFailures(vexil::SummedPreferenceDomains& store, vexil::QtDesktop& qtDesktop,
                  vexil::QtDialogs& qtDialogs, vexil::PanelStatus& panelStatus)
        : preferences(store), desktop(qtDesktop), dialogs(qtDialogs), status(panelStatus) {
        preferences.SetFailureCame([this] { Came(); });
        preferences.SetStoredAgain([this] { NoteReason(""); });
        desktop.SetMayEnd([this] { return !Tell(); });
    }

  private:
    void Came() {
        // Nobody has asked for what is stored as the panel starts and ends; the log has it.
        if (!desktop.RunsEventLoop()) {
            preferences.EndSum();
        } else {
            QMetaObject::invokeMethod(
                &turn, [this] { TellLater(); }, Qt::QueuedConnection);
        }
    }

    void TellLater() {
        auto* question = qobject_cast<QDialog*>(QApplication::activeModalWidget());
        if (question == nullptr) {
            Tell();
        } else {
            QObject::connect(
                question, &QDialog::finished, &turn, [this] { TellLater(); }, Qt::QueuedConnection);
        }
    }

    // True when there was something to tell.
    bool Tell() {
        const std::string reason = preferences.EndSum();
        if (reason.empty()) {
            return false;
        }
        NoteReason(reason);
        vexil::AlertRequest request;
        request.message = "The settings could not be stored: " + reason;
        request.hasExplanation = true;
        request.explanation =
            "The window still shows them. Save keeps them in a file; Apply tries again after the next "
            "change.";
        request.defaultButton = {vexil::AlertButton::Kind::Titled, "Ok"};
        request.kind = vexil::kAlertCaution;
        dialogs.RunAlert(request);
        return true;
    }

    void NoteReason(const std::string& reason) {
        status.Change([&reason](vexil::PanelSituation& situation) { situation.notStored = reason; });
    }

    vexil::SummedPreferenceDomains& preferences;
    vexil::QtDesktop& desktop;
    vexil::QtDialogs& dialogs;
    vexil::PanelStatus& status;
    QObject turn;  // for whose life turns of the event loop are waited for
};

}  // namespace

int main(int argc, char** argv) {
    vexil::HoldStandardStreams();
    vexil::SessionInstance session;
    if (session.Enter(vexil::CurrentLaunchTokens(), kPatience) == vexil::SessionInstance::Start::Second) {
        return 0;
    }

    // The toolkit would wait for such a bus without end before it shows a window.
    if (session.BusIsSilent()) {
        qputenv("DBUS_SESSION_BUS_ADDRESS", "disabled:");
    }

    // The panel has no command-line options: the toolkit gets no arguments to take as its own either, and
    // only its copy of the vector is changed.
    const std::string executablePath = argc > 0 ? argv[0] : "";
    std::string toolkitName = executablePath;
    char* toolkitArguments[] = {toolkitName.data(), nullptr};
    int toolkitArgumentCount = 1;

    QApplication::setStyle(new vexil::PanelStyle);
    QApplication application(toolkitArgumentCount, toolkitArguments);
    // The toolkit sets the user's locale; numbers are formatted and read in the one that files are written
    // in.
    std::setlocale(LC_NUMERIC, "C");
    vexil::LoadToolkitTranslations(application);
    QApplication::setApplicationName("vexil3");
    QGuiApplication::setDesktopFileName("com.sonavert.vexil3");
    QGuiApplication::setWindowIcon(QIcon(":/vexil3.png"));
    // The panel decides when its run is over.
    QApplication::setQuitOnLastWindowClosed(false);

    const vexil::Paths paths = vexil::FindPaths(vexil::CurrentSurroundings());
    vexil::SummedPreferenceDomains preferences(paths);
    vexil::ControlSocket driver(paths.control, paths.controlIsSystemWide);
    const DriverEvents driverEvents(driver);
    vexil::LogindRestarter restarter(vexil::WaitInEventLoop);
    vexil::LinuxHostClock clock;
    vexil::QtWidgets widgets;
    vexil::QtDialogs dialogs(widgets);
    vexil::QtDesktop desktop(widgets);
    const vexil::TerminationSignals terminationSignals([&desktop] { desktop.RequestClose(); });
    const LaterStarts laterStarts(session, desktop);
    vexil::DriverStatus status(paths, widgets, desktop);
    const StoreFailures storeFailures(preferences, desktop, dialogs, status.Shown());
    vexil::NotedKernelControl notedDriver(driver, [&status](int error) { status.NoteReload(error); });
    vexil::NotedDialogs notedDialogs(dialogs, [&status](const vexil::NotedDialogs::File& file) {
        using FileUse = vexil::PanelSituation::FileUse;
        status.Shown().Change([&file](vexil::PanelSituation& situation) {
            situation.file = file.path;
            situation.fileUse = file.isSaved ? FileUse::Saved : FileUse::Loaded;
        });
    });
    status.Shown().SetFileDropped(
        [&notedDialogs](const std::string& path) { notedDialogs.ExpectLoad(path); });

    return vexil::RunPanel(executablePath.c_str(),
                           {widgets, notedDialogs, desktop, restarter, clock, notedDriver, preferences});
}
