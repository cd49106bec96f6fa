#include "platform/qt/NotedDialogs.h"

namespace vexil {

void NotedDialogs::ExpectLoad(const std::string& path) {
    QMetaObject::invokeMethod(
        &turn,
        [this, path] {
            chosen = File{path, false};
            TellInNextTurn();
        },
        Qt::QueuedConnection);
}

int NotedDialogs::RunAlert(const AlertRequest& request) {
    chosen.reset();
    return questions.RunAlert(request);
}

std::int32_t NotedDialogs::RunFileChooser(bool save, const std::string& proposedName,
                                          const std::string& typeIdentifier, std::string& path) {
    const std::int32_t result = questions.RunFileChooser(save, proposedName, typeIdentifier, path);
    if (result == 0) {
        chosen = File{path, save};
        TellInNextTurn();
    }
    return result;
}

void NotedDialogs::TellInNextTurn() {
    QMetaObject::invokeMethod(
        &turn,
        [this] {
            if (const std::optional<File> used = std::exchange(chosen, std::nullopt)) {
                note(*used);
            }
        },
        Qt::QueuedConnection);
}

}  // namespace vexil
