// The contracts of the panel's seams, on the doubles in memory and on the failing ones while nothing fails.
#include <utility>

#include "tests/doubles/DesktopContract.h"
#include "tests/doubles/DialogsContract.h"
#include "tests/doubles/FaultyDesktop.h"
#include "tests/doubles/FaultyDialogs.h"
#include "tests/doubles/FaultyHostClock.h"
#include "tests/doubles/FaultyRestarter.h"
#include "tests/doubles/FaultyWidgets.h"
#include "tests/doubles/HostClockContract.h"
#include "tests/doubles/MemoryDesktop.h"
#include "tests/doubles/MemoryDialogs.h"
#include "tests/doubles/MemoryHostClock.h"
#include "tests/doubles/MemoryPerson.h"
#include "tests/doubles/MemoryRestarter.h"
#include "tests/doubles/MemoryWidgets.h"
#include "tests/doubles/RestarterContract.h"
#include "tests/doubles/WidgetsContract.h"

namespace vexil {
namespace {

class MemoryWindow {
  public:
    Widgets& Seam() { return widgets; }
    Person& Hands() { return person; }
    void Use(const Script& script) {
        desktop.ShowWindow();
        desktop.Post([this, script] {
            script();
            desktop.EndEventLoop();
        });
        desktop.RunEventLoop();
    }

  protected:
    MemoryWidgets widgets;

  private:
    MemoryDesktop desktop;
    MemoryDialogs dialogs;
    MemoryPerson person{widgets, desktop, dialogs};
};

class FaultyWindow : public MemoryWindow {
  public:
    Widgets& Seam() { return faulty; }

  private:
    FaultyWidgets faulty{widgets};
};

class MemoryQuestions {
  public:
    using Script = std::function<void()>;

    Dialogs& Seam() { return dialogs; }
    void Use(const Script& script) { script(); }
    void NextAlert(AlertHit hit, Script meanwhile) {
        dialogs.alertAnswers.push_back({hit, std::move(meanwhile)});
    }
    void NextChooser(const std::optional<std::string>& path) {
        dialogs.fileAnswers.push_back({path ? 0 : kUserCanceled, path.value_or("")});
    }

  protected:
    MemoryDialogs dialogs;
};

class FaultyQuestions : public MemoryQuestions {
  public:
    Dialogs& Seam() { return faulty; }

  private:
    FaultyDialogs faulty{dialogs};
};

class MemoryDesk {
  public:
    Desktop& Seam() { return desktop; }
    void Post(std::function<void()> script) { desktop.Post(std::move(script)); }
    bool IsWindowVisible() const { return desktop.visible; }

  protected:
    MemoryDesktop desktop;
};

class FaultyDesk : public MemoryDesk {
  public:
    Desktop& Seam() { return faulty; }

  private:
    FaultyDesktop faulty{desktop};
};

class MemoryRestart {
  public:
    Restarter& Seam() { return restarter; }
    int Requests() const { return static_cast<int>(restarter.requests.size()); }

  protected:
    MemoryRestarter restarter;
};

class FaultyRestart : public MemoryRestart {
  public:
    Restarter& Seam() { return faulty; }

  private:
    FaultyRestarter faulty{restarter};
};

class MemoryClock {
  public:
    HostClock& Seam() { return clock; }

  protected:
    MemoryHostClock clock;
};

class FaultyClock : public MemoryClock {
  public:
    HostClock& Seam() { return faulty; }

  private:
    FaultyHostClock faulty{clock};
};

INSTANTIATE_TYPED_TEST_SUITE_P(Memory, WidgetsContract, MemoryWindow);
INSTANTIATE_TYPED_TEST_SUITE_P(Faulty, WidgetsContract, FaultyWindow);
INSTANTIATE_TYPED_TEST_SUITE_P(Memory, DialogsContract, MemoryQuestions);
INSTANTIATE_TYPED_TEST_SUITE_P(Faulty, DialogsContract, FaultyQuestions);
INSTANTIATE_TYPED_TEST_SUITE_P(Memory, DesktopContract, MemoryDesk);
INSTANTIATE_TYPED_TEST_SUITE_P(Faulty, DesktopContract, FaultyDesk);
INSTANTIATE_TYPED_TEST_SUITE_P(Memory, RestarterContract, MemoryRestart);
INSTANTIATE_TYPED_TEST_SUITE_P(Faulty, RestarterContract, FaultyRestart);
INSTANTIATE_TYPED_TEST_SUITE_P(Memory, HostClockContract, MemoryClock);
INSTANTIATE_TYPED_TEST_SUITE_P(Faulty, HostClockContract, FaultyClock);

}  // namespace
}  // namespace vexil
