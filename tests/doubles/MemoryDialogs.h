// Questions that a script answers. Every question is noted; a question that the script has no answer for
// fails, and is counted.
#pragma once

#include <deque>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "panel/Dialogs.h"

namespace vexil {

// What a person does to an alert.
enum class AlertHit { Default, Cancel, Other, Return, Escape };

struct AlertAnswer {
    AlertHit hit = AlertHit::Default;
    std::function<void()> meanwhile{};  // done while the alert is open
};

struct FileAnswer {
    std::int32_t status = 0;
    std::string path{};                 // of status 0
    std::function<void()> meanwhile{};  // done while the file chooser is open
};

// A file chooser's request, as it came in.
struct FileRequest {
    bool save = false;
    std::string proposedName{};
    std::string typeIdentifier{};
};

// The number of the button that a person's doing hits.
inline int ButtonHit(const AlertRequest& request, AlertHit hit) {
    const auto has = [](const AlertButton& button) { return button.kind != AlertButton::Kind::None; };
    switch (hit) {
        case AlertHit::Cancel:
            return kAlertCancelButton;
        case AlertHit::Other:
            return kAlertOtherButton;
        case AlertHit::Return:
            return request.defaultButtonNumber;
        case AlertHit::Escape:
            if (has(request.cancelButton)) {
                return kAlertCancelButton;
            }
            return has(request.otherButton) ? kAlertOtherButton : kAlertDefaultButton;
        case AlertHit::Default:
            break;
    }
    return kAlertDefaultButton;
}

class MemoryDialogs : public Dialogs {
  public:
    // --- the script ---
    std::deque<AlertAnswer> alertAnswers;
    std::deque<FileAnswer> fileAnswers;

    // --- the record ---
    std::vector<AlertRequest> alerts;
    std::vector<FileRequest> choosers;
    int unanswered = 0;
    int mostOpenAtOnce = 0;

    bool IsOpen() const { return open > 0; }

    int RunAlert(const AlertRequest& request) override {
        alerts.push_back(request);
        AlertAnswer answer;
        if (!Take(alertAnswers, answer)) {
            return kAlertFailed;
        }
        Stay(answer.meanwhile);
        return ButtonHit(request, answer.hit);
    }

    std::int32_t RunFileChooser(bool save, const std::string& proposedName, const std::string& typeIdentifier,
                                std::string& path) override {
        choosers.push_back({save, proposedName, typeIdentifier});
        FileAnswer answer;
        if (!Take(fileAnswers, answer)) {
            return kUserCanceled;
        }
        Stay(answer.meanwhile);
        if (answer.status == 0) {
            path = answer.path;
        }
        return answer.status;
    }

  private:
    template <class Answer>
    bool Take(std::deque<Answer>& answers, Answer& answer) {
        if (answers.empty()) {
            ++unanswered;
            return false;
        }
        answer = std::move(answers.front());
        answers.pop_front();
        return true;
    }
    void Stay(const std::function<void()>& meanwhile) {
        ++open;
        if (open > mostOpenAtOnce) {
            mostOpenAtOnce = open;
        }
        if (meanwhile) {
            meanwhile();
        }
        --open;
    }

    int open = 0;
};

}  // namespace vexil
