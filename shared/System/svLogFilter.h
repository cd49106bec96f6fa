// A log that others read on a terminal may not carry what its lines name just as it is.
#pragma once

#include <string>
#include <string_view>

namespace vexil {

// Every line that is written to the log from now on is what `filter` makes of it; null: as it is.
using LogFilter = std::string (*)(std::string_view line);
void SetLogFilter(LogFilter filter);

}  // namespace vexil
