// Wraps a restarter and fails its steps on demand. A failing step never reaches the wrapped one.
#pragma once

#include "panel/Restarter.h"

namespace vexil {

class FaultyRestarter : public Restarter {
  public:
    // `wrapped` must outlive this object.
    explicit FaultyRestarter(Restarter& wrapped) : inner(wrapped) {}

    // Not 0: the step fails with this status.
    std::int32_t addressError = 0;
    std::int32_t eventError = 0;
    std::int32_t sendError = 0;

    std::int32_t MakeAddress() override { return addressError != 0 ? addressError : inner.MakeAddress(); }
    std::int32_t MakeEvent(std::uint32_t eventId) override {
        return eventError != 0 ? eventError : inner.MakeEvent(eventId);
    }
    std::int32_t SendEvent() override { return sendError != 0 ? sendError : inner.SendEvent(); }

  private:
    Restarter& inner;
};

}  // namespace vexil
