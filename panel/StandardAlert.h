// Every question and warning of the panel.
#pragma once

#include "panel/Dialogs.h"

namespace vexil {

// As a button's text: the toolkit's own text for that button.
extern const char* const kToolkitButtonText;

// Shows an alert and returns the number of the button that was hit, or kAlertFailed when there is no message
// or the alert could not be made or run. `explanation` may be null. A null other or cancel text: no such
// button; a null default text: the toolkit's OK. `alertType`: kAlertStop and so on; `defaultButton`: the
// number of the button that Return activates.
int ShowStandardAlert(Dialogs& dialogs, const char* message, const char* explanation, const char* otherText,
                      const char* cancelText, const char* defaultText, int alertType, int defaultButton);

}  // namespace vexil
