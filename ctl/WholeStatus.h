// The whole status of a service, which may take several answers.
#pragma once

#include <cstdint>
#include <functional>

#include "ctl/ServiceClient.h"

namespace vexil {

// Asks until nothing is left, and joins the lists of the answers into the first. `ask` is
// ServiceClient::AskStatus. The first answer that fails is returned as it is; so is one that is no JSON,
// which is for the caller to find. What a service says again and again is not asked for without end.
ServiceAnswer AskWholeStatus(const std::function<ServiceAnswer(std::uint32_t first)>& ask);

}  // namespace vexil
