// The panel's side of the widgets for tests: notes every call and answers what the test says.
#pragma once

#include <string>
#include <vector>

#include "panel/ControlTable.h"
#include "panel/PanelEvent.h"

namespace vexil {

struct HandlerCall {
    std::string handler;  // "window", "list", "field", "combo", "arrows", "slider"
    PanelEvent event{.kind = EventKind::ControlHit};
    int control = -1;  // of an action
    int part = 0;      // of an arrows action
};

class RecordingHandlers : public PanelHandlers {
  public:
    std::vector<HandlerCall> calls;

    // What the handlers of controls and of the window do with an event.
    enum class Answer { NotHandled, NextThenNotHandled, Swallow };
    Answer answer = Answer::NotHandled;
    // Called in every handler, behind `next` if the answer calls it.
    std::function<void(const PanelEvent&)> during;

    // The calls for events of this kind.
    std::vector<HandlerCall> Of(EventKind kind) const {
        std::vector<HandlerCall> found;
        for (const HandlerCall& call : calls) {
            if (call.handler != "arrows" && call.handler != "slider" && call.event.kind == kind) {
                found.push_back(call);
            }
        }
        return found;
    }
    // The names of the handlers called, in order, mouse events left out.
    std::vector<std::string> Order() const {
        std::vector<std::string> names;
        for (const HandlerCall& call : calls) {
            if (call.handler == "arrows" || call.handler == "slider" ||
                (call.event.kind != EventKind::MouseDown && call.event.kind != EventKind::MouseUp)) {
                names.push_back(call.handler);
            }
        }
        return names;
    }

    std::int32_t WindowEventHandler(const PanelEvent& event, const NextHandler& next) override {
        return Take("window", event, next);
    }
    std::int32_t PortListKeyHandler(const PanelEvent& event, const NextHandler& next) override {
        return Take("list", event, next);
    }
    std::int32_t EditTextHandler(const PanelEvent& event, const NextHandler& next) override {
        return Take("field", event, next);
    }
    std::int32_t ComboBoxHandler(const PanelEvent& event, const NextHandler& next) override {
        return Take("combo", event, next);
    }
    void ArrowsAction(int control, int part) override {
        HandlerCall call{.handler = "arrows"};
        call.control = control;
        call.part = part;
        calls.push_back(call);
    }
    void SliderAction(int control) override {
        HandlerCall call{.handler = "slider"};
        call.control = control;
        calls.push_back(call);
    }

  private:
    std::int32_t Take(const char* handler, const PanelEvent& event, const NextHandler& next) {
        HandlerCall call{.handler = handler};
        call.event = event;
        call.control = event.control;
        calls.push_back(call);
        if (answer == Answer::NextThenNotHandled) {
            next();
        }
        if (during) {
            during(event);
        }
        return answer == Answer::Swallow ? kNoErr : kEventNotHandledErr;
    }
};

}  // namespace vexil
