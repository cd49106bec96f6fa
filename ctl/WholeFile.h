// Files that a person names, and in words why they cannot be used.
#pragma once

#include <string>

namespace vexil {

// Why a file cannot be opened as a settings file, or "" where there is no reason that shows; `flags` as for
// open. Makes none.
std::string FileObstacle(const std::string& path, int flags);

// Reads a file to its end. Why that fails, or "".
std::string ReadWholeFile(const std::string& path, std::string& text);

}  // namespace vexil
