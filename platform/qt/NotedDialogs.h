// The panel's questions, with a note of the settings files that the panel has used.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <utility>

#include <QObject>

#include "panel/Dialogs.h"

namespace vexil {

class NotedDialogs : public Dialogs {
  public:
    struct File {
        std::string path;
        bool isSaved = false;  // else loaded
    };

    // `dialogs` asks, and must outlive this object. `noteUsed` hears of each file that was chosen, from the
    // event loop, unless an alert followed at once: then it could not be used.
    NotedDialogs(Dialogs& dialogs, std::function<void(const File& file)> noteUsed)
        : questions(dialogs), note(std::move(noteUsed)) {}

    // The panel is about to load a file without having asked for it, in the next turn of the event loop.
    void ExpectLoad(const std::string& path);

    int RunAlert(const AlertRequest& request) override;
    std::int32_t RunFileChooser(bool save, const std::string& proposedName, const std::string& typeIdentifier,
                                std::string& path) override;

  private:
    void TellInNextTurn();

    Dialogs& questions;
    const std::function<void(const File& file)> note;
    std::optional<File> chosen;
    QObject turn;  // for whose life turns of the event loop are waited for
};

}  // namespace vexil
