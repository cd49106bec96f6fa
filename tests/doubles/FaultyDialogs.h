// Wraps the questions and fails them on demand. A failing question is never shown.
#pragma once

#include "panel/Dialogs.h"

namespace vexil {

class FaultyDialogs : public Dialogs {
  public:
    // `wrapped` must outlive this object.
    explicit FaultyDialogs(Dialogs& wrapped) : inner(wrapped) {}

    bool alertsFail = false;
    std::int32_t chooserError = 0;  // not 0: the platform's error code

    int RunAlert(const AlertRequest& request) override {
        return alertsFail ? kAlertFailed : inner.RunAlert(request);
    }
    std::int32_t RunFileChooser(bool save, const std::string& proposedName, const std::string& typeIdentifier,
                                std::string& path) override {
        return chooserError != 0 ? chooserError
                                 : inner.RunFileChooser(save, proposedName, typeIdentifier, path);
    }

  private:
    Dialogs& inner;
};

}  // namespace vexil
