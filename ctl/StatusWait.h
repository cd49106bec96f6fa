// "vexil3ctl status --wait [SECONDS]": waits until every route gets through.
#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "client/ServiceClient.h"
#include "ctl/Console.h"
#include "ctl/CtlResult.h"

namespace vexil {

inline constexpr std::chrono::seconds kUsualPatience{30};
inline constexpr std::chrono::seconds kLongestPatience{86'400};

// Of the digits behind the option, or the usual one behind which nothing stands. Null above the longest.
std::optional<std::chrono::seconds> ReadPatience(const std::string& digits);

// Done as soon as what is written to every output and every open test output is heard. Failed after that
// time, with each route that does not get through and the reason. A service that is not running yet is waited
// for as well; without one at the end that is the failure.
CtlResult WaitForRoutes(const ServiceClient& client, std::chrono::seconds patience, Console& console);

}  // namespace vexil
