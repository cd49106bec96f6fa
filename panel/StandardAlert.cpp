#include "panel/StandardAlert.h"

#include <cstdint>

namespace vexil {

const char* const kToolkitButtonText = reinterpret_cast<const char*>(std::intptr_t{-1});

namespace {

AlertButton MakeButton(const char* text) {
    if (text == nullptr) {
        return {};
    }
    if (text == kToolkitButtonText) {
        return {AlertButton::Kind::ToolkitDefault, {}};
    }
    return {AlertButton::Kind::Titled, text};
}

}  // namespace

int ShowStandardAlert(Dialogs& dialogs, const char* message, const char* explanation, const char* otherText,
                      const char* cancelText, const char* defaultText, int alertType, int defaultButton) {
    if (message == nullptr) {
        return kAlertFailed;
    }
    AlertRequest request;
    request.message = message;
    request.hasExplanation = explanation != nullptr;
    if (explanation != nullptr) {
        request.explanation = explanation;
    }
    request.otherButton = MakeButton(otherText);
    request.cancelButton = MakeButton(cancelText);
    request.defaultButton = MakeButton(defaultText);
    request.kind = alertType;
    request.defaultButtonNumber = defaultButton;
    return dialogs.RunAlert(request);
}

}  // namespace vexil
