// A control's way to the panel: what a person did with the control goes out through here.
#pragma once

#include <Qt>

#include "panel/PanelEvent.h"

namespace vexil {

class Reporter {
  public:
    // `panelHandlers` must outlive the control.
    Reporter(int controlNumber, PanelHandlers& panelHandlers);

    int Control() const { return control; }
    PanelHandlers& Handlers() const { return *handlers; }

    // An event of this control. Returns the last status.
    std::int32_t Deliver(PanelEvent event, const NextHandler& next) const;
    // The control was hit; the toolkit has nothing left to do for it. Carries the modifiers held now.
    void Hit() const;

  private:
    int control;
    PanelHandlers* handlers;
};

// Nothing is left for the toolkit to do.
std::int32_t NothingNext();

// The Command key as the panel knows it: Control, and Meta.
std::uint32_t PanelModifiers(Qt::KeyboardModifiers modifiers);

}  // namespace vexil
