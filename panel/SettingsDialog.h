// The file dialogs of Load and Save.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "panel/Dialogs.h"

namespace vexil {

inline constexpr const char* kDefaultSettingsName = "default.vexil3";
// What the open dialog shows.
inline constexpr const char* kSettingsTypeIdentifier = "com.sonavert.vexil3.vexp3";
// Bytes of a settings file's path, the terminating zero included. A longer path is treated as one that cannot
// be opened, and never cut: a cut path would be another file.
inline constexpr std::size_t kSettingsPathSize = 260;

inline bool FitsPathBuffer(const std::string& path) {
    return path.size() < kSettingsPathSize;
}

// Runs the save dialog, with what is in `path` as the proposed name, or the open dialog. 0 with the chosen
// path in `path`, kUserCanceled, or the platform's error code with `path` as it was.
std::int32_t RunFileDialog(Dialogs& dialogs, bool save, std::string& path);

}  // namespace vexil
