// A person in front of a real alert.
#pragma once

#include <functional>

#include "panel/Dialogs.h"
#include "tests/doubles/MemoryDialogs.h"

class QMessageBox;

namespace vexil {

// The next alert that opens is given to `answer`, from the event loop that runs inside it.
void WhenAlertOpens(const std::function<void(QMessageBox&)>& answer);

// Answers an open alert of this request by a key or a click on the button's place.
void HitAlert(QMessageBox& box, const AlertRequest& request, AlertHit hit);

}  // namespace vexil
