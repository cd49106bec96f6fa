// What SafeRewrite asks of single files. Failures are results, with errno set.
#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "shared/System/Descriptor.h"

namespace vexil {

// Between two looks at a file that another program works on.
inline constexpr std::chrono::milliseconds kRewritePause{5};

// The content of a plain file; null when it cannot be read, is no plain file or is longer than `limit`.
std::optional<std::string> ReadWhole(int descriptor, std::size_t limit);
bool WriteWhole(int descriptor, std::string_view text);

// Locks a copy, waiting for whoever works on it. Where files cannot be locked it counts as locked.
bool LockCopy(const Descriptor& file, std::chrono::steady_clock::time_point deadline);

// Whether the open file is still the one of that name.
bool IsStillNamed(const Descriptor& file, int folder, const std::string& name);

// Only a plain file of this user, of the file's owner or of the administrator is taken for a copy: others
// could plant a text here that their rights do not let them write into the file.
bool IsTrusted(const Descriptor& copy, int folder, const std::string& fileName);

// The path with all links resolved; null when it leads nowhere.
std::optional<std::string> RealPath(const std::string& path);

}  // namespace vexil
