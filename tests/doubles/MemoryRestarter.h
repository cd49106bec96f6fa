// A system that can be asked to restart and only notes it. Keeps the order of the three steps.
#pragma once

#include <string>
#include <vector>

#include "panel/Restarter.h"

namespace vexil {

class MemoryRestarter : public Restarter {
  public:
    static constexpr std::int32_t kOutOfOrder = -1701;  // a step without the one before it

    std::vector<std::string> steps;
    std::vector<std::uint32_t> requests;  // the event ids that were sent

    std::int32_t MakeAddress() override {
        steps.push_back("address");
        hasAddress = true;
        return 0;
    }
    std::int32_t MakeEvent(std::uint32_t eventId) override {
        steps.push_back("event");
        if (!hasAddress) {
            return kOutOfOrder;
        }
        hasAddress = false;
        hasEvent = true;
        event = eventId;
        return 0;
    }
    std::int32_t SendEvent() override {
        steps.push_back("send");
        if (!hasEvent) {
            return kOutOfOrder;
        }
        hasEvent = false;
        requests.push_back(event);
        return 0;
    }

  private:
    bool hasAddress = false;
    bool hasEvent = false;
    std::uint32_t event = 0;
};

}  // namespace vexil
