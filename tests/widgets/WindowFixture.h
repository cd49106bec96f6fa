// The window with all its controls, without a panel behind it: what a person does is recorded.
#pragma once

#include <QApplication>
#include <QDialog>

#include <string>

#include <gtest/gtest.h>

#include "platform/qt/QtDesktop.h"
#include "platform/qt/QtWidgets.h"
#include "tests/doubles/RecordingHandlers.h"
#include "tests/widgets/QtPerson.h"

namespace vexil {

// Steps arrows as the panel does.
class SteppingHandlers : public RecordingHandlers {
  public:
    QtWidgets* widgets = nullptr;

    void ArrowsAction(int control, int part) override {
        RecordingHandlers::ArrowsAction(control, part);
        widgets->SetValue(control, widgets->Value(control) + (part == kUpPart ? 1 : -1));
    }
};

// A question that blocks the window without taking the keyboard from it, as the desktop's own file chooser
// does: that is another program's window.
class UnseenQuestion : public QDialog {
  public:
    explicit UnseenQuestion(QWidget& window) : QDialog(&window) {
        setAttribute(Qt::WA_DontShowOnScreen);
        setWindowModality(Qt::WindowModal);
        open();
    }
};

class WindowFixture : public testing::Test {
  protected:
    WindowFixture() {
        handlers.widgets = &widgets;
        widgets.CreateWindow({100, 100, 100 + kWindowHeight, 100 + kWindowWidth});
        widgets.SetWindowTitle(kWindowTitle);
        for (const ControlSpec& spec : kControlTable) {
            widgets.CreateControl(spec, handlers);
        }
        for (const Embedding& embedding : kEmbeddings) {
            widgets.Embed(embedding.container, embedding.control);
        }
        for (int row = 0; row < 64; ++row) {
            widgets.SetRowText(row, ("Port " + std::to_string(row)).c_str());
        }
        widgets.InstallWindowHandler(handlers);
        desktop.ShowWindow();
        person.Activate();
        person.Settle();
        handlers.calls.clear();
    }

    template <class Widget>
    Widget& Find(int control) {
        auto* found = qobject_cast<Widget*>(person.Find(control));
        EXPECT_NE(found, nullptr) << control;
        return *found;
    }
    std::string Text(int control) {
        svString text;
        EXPECT_TRUE(widgets.GetText(control, text));
        return text.c_str();
    }
    int Count(EventKind kind) const { return static_cast<int>(handlers.Of(kind).size()); }
    // Names of the handlers and controls of all calls, as "field 5 key".
    std::vector<std::string> Story() const {
        std::vector<std::string> story;
        for (const HandlerCall& call : handlers.calls) {
            const bool isAction = call.handler == "arrows" || call.handler == "slider";
            std::string what = "event";
            if (isAction) {
                what = "action";
            } else if (call.event.kind == EventKind::ControlHit) {
                what = "hit";
            } else if (call.event.kind == EventKind::RawKeyDown ||
                       call.event.kind == EventKind::RawKeyRepeat) {
                what = "key";
            } else if (call.event.kind == EventKind::ListItemSelected) {
                what = "pick";
            } else if (call.event.kind == EventKind::MouseDown) {
                what = "press";
            }
            // A hit that the control's handler leaves to the window comes twice.
            const std::string line = std::to_string(call.control) + " " + what;
            if (what != "hit" || story.empty() || story.back() != line) {
                story.push_back(line);
            }
        }
        return story;
    }

    SteppingHandlers handlers;
    QtWidgets widgets;
    QtDesktop desktop{widgets};
    QtPerson person{widgets};
};

using Lines = std::vector<std::string>;

}  // namespace vexil
