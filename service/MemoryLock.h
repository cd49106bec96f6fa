// Keeps the whole process in memory, so that no message waits for a disk.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace vexil {

// Whether a process of this size may lock its memory, present and future, without a later allocation failing
// at the limit. `limit` is in bytes; null: unlimited.
bool FitsMemoryLimit(std::uint64_t processBytes, std::optional<std::uint64_t> limit);

// "locked", or why it is not, as one sentence for the user. Raises the limit as far as this process may.
std::string LockMemory();

}  // namespace vexil
