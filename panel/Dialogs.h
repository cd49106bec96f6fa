// Seam: the modal questions. Both run the event loop inside and keep the person's input from the panel's
// window meanwhile. A close request of the window may still reach the panel from there (a session that ends
// sends one); no second question is asked while one is open.
#pragma once

#include <cstdint>
#include <string>

namespace vexil {

// Kinds of alert.
inline constexpr int kAlertStop = 0;
inline constexpr int kAlertNote = 1;
inline constexpr int kAlertCaution = 2;
inline constexpr int kAlertPlain = 3;

// Buttons of an alert, as numbers to give and to get.
inline constexpr int kAlertDefaultButton = 1;
inline constexpr int kAlertCancelButton = 2;
inline constexpr int kAlertOtherButton = 3;
inline constexpr int kAlertFailed = -1;

struct AlertButton {
    enum class Kind { None, ToolkitDefault, Titled };
    Kind kind = Kind::None;
    std::string title;  // of a titled button
};

// All texts are plain text, shown as they stand; control characters are kept and not drawn.
struct AlertRequest {
    std::string message;
    bool hasExplanation = false;
    std::string explanation;
    AlertButton defaultButton;  // None: the toolkit's OK
    AlertButton cancelButton;
    AlertButton otherButton;
    int kind = kAlertPlain;
    int defaultButtonNumber = kAlertDefaultButton;  // the one that Return activates
};

inline constexpr std::int32_t kUserCanceled = -1;

class Dialogs {
  public:
    virtual ~Dialogs() = default;

    // Shows one alert and returns the number of the button that was hit, or kAlertFailed when it could not be
    // made or run. Escape and the close box hit the button that changes nothing: the cancel button where
    // there is one, else the other button, and only in an alert of a single button that one.
    virtual int RunAlert(const AlertRequest& request) = 0;

    // Lets the person choose one file. `save`: a new or existing file, `proposedName` given; otherwise an
    // existing one, filtered to `typeIdentifier`. 0 with the chosen absolute path in `path`, kUserCanceled,
    // or the platform's error code.
    virtual std::int32_t RunFileChooser(bool save, const std::string& proposedName,
                                        const std::string& typeIdentifier, std::string& path) = 0;
};

}  // namespace vexil
