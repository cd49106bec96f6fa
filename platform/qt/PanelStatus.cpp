#include "platform/qt/PanelStatus.h"

#include <utility>

#include <QDropEvent>
#include <QFile>
#include <QShortcut>
#include <QTimer>

#include "panel/ControlTable.h"
#include "platform/qt/FieldText.h"
#include "platform/qt/QtControl.h"
#include "platform/qt/QtWidgets.h"
#include "platform/qt/SettingsFileDrop.h"

namespace vexil {

PanelStatus::PanelStatus(QtWidgets& qtWidgets, StatusList::Ask askDriver)
    : widgets(qtWidgets), ask(std::move(askDriver)) {}

void PanelStatus::WindowShown(std::function<void()> beginCall) {
    QWidget* window = widgets.Window();
    if (window == nullptr || hasBegun) {
        return;
    }
    begin = std::move(beginCall);
    window->installEventFilter(this);
    if (auto* apply = window->findChild<QWidget*>(ControlName(kApply))) {
        apply->installEventFilter(this);
    }
}

bool PanelStatus::eventFilter(QObject* watched, QEvent* event) {
    if (watched != widgets.Window()) {
        if (event->type() == QEvent::EnabledChange) {
            NoteChanges();
        }
    } else if (event->type() == QEvent::Paint && !std::exchange(hasBegun, true)) {
        QTimer::singleShot(0, this, [this] { Begin(); });
    } else if (event->type() == QEvent::Drop && fileDropped) {
        const QString path = DraggedSettingsFile(*static_cast<QDropEvent*>(event)->mimeData());
        if (!path.isEmpty()) {
            fileDropped(QFile::encodeName(path).toStdString());
        }
    }
    return false;
}

void PanelStatus::Begin() {
    if (QWidget* window = widgets.Window()) {
        line = new StatusLine(window);
        connect(line, &StatusLine::clicked, this, [this] { OpenList(); });
        auto* key = new QShortcut(QKeySequence(Qt::Key_F1), window);
        connect(key, &QShortcut::activated, this, [this] { OpenList(); });
        NoteChanges();
        begin();
    }
}

void PanelStatus::NoteChanges() {
    Change([this](PanelSituation& known) { known.hasChanges = widgets.IsEnabled(kApply); });
}

void PanelStatus::Change(const std::function<void(PanelSituation& situation)>& change) {
    change(situation);
    Show();
}

void PanelStatus::ChangeReport(const std::function<void(PanelSituation& situation)>& change) {
    change(situation);
    if (situation.report) {
        marks.Take(*situation.report);
    } else {
        marks.Clear();
    }
    widgets.SetMarks(marks.All());
    Show();
}

void PanelStatus::Show() {
    if (line) {
        line->Show(LineOf(situation));
    }
    if (list) {
        list->Show(SentencesOf(situation));
    }
}

void PanelStatus::OpenList() {
    if (!list) {
        list = new StatusList(widgets.Window(), ask);
        list->Show(SentencesOf(situation));
    }
    list->show();
    list->raise();
    list->activateWindow();
}

void PanelStatus::ShowResult(const std::string& result) {
    if (list) {
        list->ShowResult(DecodeText(result.c_str()));
    }
}

}  // namespace vexil
