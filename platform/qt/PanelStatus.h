// What the window shows of how things stand, around the panel's controls: the line below them, the list that
// it opens, and the marks of the ports. It comes behind the window's first frame, which waits for nothing of
// it.
#pragma once

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include <QObject>
#include <QPointer>

#include "client/PanelSentences.h"
#include "client/PortMarks.h"
#include "platform/qt/StatusLine.h"
#include "platform/qt/StatusList.h"

namespace vexil {

class QtWidgets;

class PanelStatus : private QObject {
  public:
    // Asks the driver for a network command, as StatusList does. `widgets` hold the window.
    PanelStatus(QtWidgets& qtWidgets, StatusList::Ask askDriver);

    // The window has come to be shown: behind its first frame the line is there, and `begin` is called.
    void WindowShown(std::function<void()> begin);

    // Changes what is known, and shows it.
    void Change(const std::function<void(PanelSituation& situation)>& change);
    // The same for a status of the driver that has come, or none any more: the ports are marked by it.
    void ChangeReport(const std::function<void(PanelSituation& situation)>& change);
    // Shows what has become of a command.
    void ShowResult(const std::string& result);

    // A settings file was dropped on the window.
    void SetFileDropped(std::function<void(const std::string& path)> call) { fileDropped = std::move(call); }

  private:
    bool eventFilter(QObject* watched, QEvent* event) override;
    void Begin();
    void Show();
    void OpenList();
    void NoteChanges();

    QtWidgets& widgets;
    const StatusList::Ask ask;
    std::function<void()> begin;
    std::function<void(const std::string& path)> fileDropped;
    bool hasBegun = false;
    PanelSituation situation;
    PortMarks marks;
    QPointer<StatusLine> line;
    QPointer<StatusList> list;
};

}  // namespace vexil
