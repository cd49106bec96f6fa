// What the service answers to a network command, for a person's eyes.
#pragma once

#include <string>

#include "client/NetworkReport.h"

namespace vexil {

// How this computer speaks, then one line for each computer: at most 80 columns, printable characters only.
// Days are those of the local time.
std::string NetworkListText(const NetworkList& list);

}  // namespace vexil
