// The network's secret as its user gives it: typed twice without being shown, or the first line of a file or
// of standard input. Never an argument, which other users of the computer could read.
#pragma once

#include <optional>
#include <string>

#include "ctl/Console.h"

namespace vexil {

// Null, with a phrase why in `problem`, for one that cannot be read or cannot be a secret: fewer than 8
// characters, more than 1,024 bytes, a zero byte inside. `file`: its path; null: the console. A carriage
// return at the end of the line is no part of the secret.
std::optional<std::string> ReadSecret(const std::optional<std::string>& file, Console& console,
                                      std::string& problem);

}  // namespace vexil
