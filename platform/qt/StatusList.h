// All that there is to say of how things stand, each with what to do about it and, where the driver can be
// asked to do it, a button. It stays open and up to date until it is closed.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include <QDialog>

#include "client/PanelSentences.h"

class QLabel;
class QVBoxLayout;

namespace vexil {

class StatusList : public QDialog {
  public:
    // Asks the driver for the words of a remedy.
    using Ask = std::function<void(const std::vector<std::string>& words)>;

    StatusList(QWidget* window, Ask askDriver);

    void Show(const std::vector<Sentence>& sentences);
    // What has become of the last remedy.
    void ShowResult(const QString& result);

  private:
    void AddRow(const Sentence& sentence);
    void Act(const Remedy& remedy);

    const Ask ask;
    QWidget* rows = nullptr;
    QVBoxLayout* layoutOfAll = nullptr;
    QLabel* resultLabel = nullptr;
    std::vector<Sentence> shown;
};

}  // namespace vexil
