// The sink of the inputs while somebody watches: shows what is delivered, and delivers it. So it costs
// nothing while nobody does.
#pragma once

#include "service/engine/EngineSink.h"
#include "service/engine/MessageTap.h"

namespace vexil {

class TappedSink : public EngineSink {
  public:
    // Both must outlive this object; the tap is open.
    TappedSink(MessageTap& messageTap, EngineSink& inputSink) : tap(messageTap), inputs(inputSink) {}

    std::size_t Room(const Destination& to) const override { return inputs.Room(to); }
    void Deliver(const Destination& to, std::uint64_t time, std::span<const std::uint8_t> bytes) override {
        tap.Put({time, TapSide::Input, to.port, 0, bytes});
        inputs.Deliver(to, time, bytes);
    }

  private:
    MessageTap& tap;
    EngineSink& inputs;
};

}  // namespace vexil
