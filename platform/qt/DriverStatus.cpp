#include "platform/qt/DriverStatus.h"

#include <QSocketNotifier>

#include <cerrno>
#include <cstring>
#include <ctime>
#include <optional>

#include "client/NetworkReport.h"
#include "platform/qt/QtDesktop.h"
#include "shared/System/PrintableText.h"

namespace vexil {

namespace {

PanelSituation::Driver DriverOf(StatusNews::Service service) {
    switch (service) {
        case StatusNews::Service::Absent:
            return PanelSituation::Driver::Absent;
        case StatusNews::Service::Silent:
            return PanelSituation::Driver::Silent;
        case StatusNews::Service::Unusable:
            return PanelSituation::Driver::Unusable;
        case StatusNews::Service::Running:
            break;
    }
    return PanelSituation::Driver::Running;
}

void Take(const StatusNews& news, PanelSituation& situation) {
    situation.driver = DriverOf(news.service);
    situation.driverProblem = news.problem;
    situation.report.reset();
    if (situation.driver == PanelSituation::Driver::Running) {
        std::string ignored;  // that it makes no sense is said
        situation.report = ReadStatusReport(news.status, ignored);
        situation.reportTime = static_cast<std::uint64_t>(std::time(nullptr));
        // A driver that answers reads what has changed in the store.
        situation.notTakenUp.clear();
    }
}

std::string ResultOf(const ServiceAnswer& answer) {
    if (answer.outcome != ServiceAnswer::Outcome::Answered) {
        return Printable("That was not done: " + answer.problem + ".");
    }
    std::string problem;
    const std::optional<NetworkChange> change = ReadNetworkChange(answer.data, problem);
    if (!change) {
        return "The driver's answer makes no sense.";
    }
    return Printable(change->refused.empty() ? change->done : change->refused);
}

}  // namespace

DriverStatus::DriverStatus(const Paths& folders, QtWidgets& widgets, QtDesktop& desktop)
    : paths(folders), shown(widgets, [this](const std::vector<std::string>& words) { Ask(words); }) {
    desktop.SetWindowShown([this] { shown.WindowShown([this] { Begin(); }); });
}

DriverStatus::~DriverStatus() = default;

void DriverStatus::NoteReload(int error) {
    shown.Change([error](PanelSituation& situation) {
        situation.notTakenUp = error == 0           ? ""
                               : error == ETIMEDOUT ? "it does not answer"
                                                    : std::strerror(error);
    });
    if (error != 0 && subscription) {
        subscription->Refresh();
        Serve();
    }
}

void DriverStatus::Begin() {
    subscription = std::make_unique<StatusSubscription>(paths);
    notifier = std::make_unique<QSocketNotifier>(subscription->EventDescriptor(), QSocketNotifier::Read);
    QObject::connect(notifier.get(), &QSocketNotifier::activated, notifier.get(), [this] { Serve(); });
    Serve();
}

void DriverStatus::Serve() {
    if (subscription->Serve()) {
        const StatusNews& news = subscription->News();
        shown.ChangeReport([&news](PanelSituation& situation) { Take(news, situation); });
    }
}

// What was asked before is no longer waited for.
void DriverStatus::Ask(const std::vector<std::string>& words) {
    answered.reset();
    question = std::make_unique<ServiceQuestion>(paths, words);
    answered = std::make_unique<QSocketNotifier>(question->EventDescriptor(), QSocketNotifier::Read);
    QObject::connect(answered.get(), &QSocketNotifier::activated, answered.get(), [this] {
        if (question->Serve()) {
            answered->setEnabled(false);
            shown.ShowResult(ResultOf(question->Answer()));
        }
    });
}

}  // namespace vexil
