// Keeps what the window says of the driver up to date, and asks the driver for what the person wants of it
// there.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "client/ServiceQuestion.h"
#include "client/StatusSubscription.h"
#include "platform/qt/PanelStatus.h"

class QSocketNotifier;

namespace vexil {

class QtDesktop;
class QtWidgets;

// Connects behind the window's first frame, and from then on does something only when the driver says so. All
// that is passed must outlive this object.
class DriverStatus {
  public:
    DriverStatus(const Paths& folders, QtWidgets& widgets, QtDesktop& desktop);
    ~DriverStatus();
    DriverStatus(const DriverStatus&) = delete;
    DriverStatus& operator=(const DriverStatus&) = delete;

    PanelStatus& Shown() { return shown; }

    // The driver was told to read the configuration again: 0, or the errno value of why it was not.
    void NoteReload(int error);

  private:
    void Begin();
    void Serve();
    void Ask(const std::vector<std::string>& words);

    const Paths& paths;
    PanelStatus shown;
    std::unique_ptr<StatusSubscription> subscription;
    std::unique_ptr<QSocketNotifier> notifier;
    std::unique_ptr<ServiceQuestion> question;
    std::unique_ptr<QSocketNotifier> answered;
};

}  // namespace vexil
