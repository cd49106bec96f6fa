// One network command to the service, asked from an event loop: a connection of its own that ends with the
// answer. As ServiceClient, which waits.
//
// One thread. Nothing here waits.
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "client/ServiceClient.h"
#include "platform/linux/Paths.h"
#include "platform/linux/control/ControlConnection.h"
#include "shared/System/Descriptor.h"

namespace vexil {

class ServiceQuestion {
  public:
    // Asks at once.
    ServiceQuestion(const Paths& paths, const std::vector<std::string>& words,
                    std::chrono::milliseconds patience = ServiceClient::kPatience);

    // Readable when Serve is to be called; at once where the question could not be asked.
    int EventDescriptor() const { return events.Number(); }
    // True when there is an answer, or none will come.
    bool Serve();
    const ServiceAnswer& Answer() const { return answer; }

  private:
    void Fail(ServiceAnswer::Outcome outcome, std::string problem);

    const Descriptor events;  // epoll
    const Descriptor timer;
    ControlConnection connection;
    bool isOver = false;
    ServiceAnswer answer;
};

}  // namespace vexil
