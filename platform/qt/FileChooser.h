// The questions for a settings file.
#pragma once

#include <optional>

#include <QString>

class QWidget;

namespace vexil {

// Let the person choose a settings file, in the folder of the last one: a question modal to `window`, the
// desktop's own chooser where it offers one. Empty when nothing was chosen.
std::optional<QString> ChooseFileToLoad(QWidget* window);

// `proposed` is a file name. The path ends in ".vexil3" unless the person gave it another ending, and a file
// of that path is replaced only after the person was asked about that very file, by the chooser or here.
std::optional<QString> ChooseFileToSave(QWidget* window, const QString& proposed);

}  // namespace vexil
