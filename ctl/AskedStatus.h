// The service's status as it was asked for and read, or why it is absent.
#pragma once

#include <optional>
#include <string>

#include "client/ServiceClient.h"
#include "client/StatusReport.h"
#include "ctl/CtlResult.h"

namespace vexil {

struct AskedStatus {
    std::string json;                    // as the service told it
    std::optional<StatusReport> report;  // null: there is no status
    std::string problem;                 // then: why, without an end
    bool absent = false;                 // then: no service is running

    // Exit status of a command that needs the status, when the status is absent.
    int Failure() const { return absent ? kCtlNoService : kCtlFailed; }
};

AskedStatus AskForStatus(const ServiceClient& client);

// A status that has come, JSON text, or what is wrong with it.
AskedStatus ReadAskedStatus(const std::string& json);

}  // namespace vexil
