// The panel's questions on Qt: message boxes and file dialogs, modal to the window.
#pragma once

#include "panel/Dialogs.h"

namespace vexil {

class QtWidgets;

class QtDialogs : public Dialogs {
  public:
    // `qtWidgets` holds the window and must outlive this object.
    explicit QtDialogs(QtWidgets& qtWidgets);

    // The titles as given, control characters included, stay readable as the property `title` of the buttons.
    int RunAlert(const AlertRequest& request) override;
    // The desktop's own chooser where it offers one. Paths come as the bytes the system knows them by.
    std::int32_t RunFileChooser(bool save, const std::string& proposedName, const std::string& typeIdentifier,
                                std::string& path) override;

  private:
    QtWidgets& widgets;
};

}  // namespace vexil
