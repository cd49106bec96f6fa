// Which registered or non-registered parameter the data entry of a channel is for (RFC 6295, appendix A.3.4).
#pragma once

#include <cstdint>

#include "service/network/rtp/ChannelMessages.h"

namespace vexil::rtp {

struct ParameterNumber {
    bool isUnregistered = false;
    std::uint8_t high = 0;
    std::uint8_t low = 0;

    bool operator==(const ParameterNumber&) const = default;
    bool IsNull() const { return high == 0x7F && low == 0x7F; }
};

class ParameterSelection {
  public:
    enum class State : std::uint8_t {
        None,      // nothing, or the null parameter: data entry is a controller like any other
        Pending,   // the high byte alone has come
        Selected,  // a parameter
    };

    State Now() const { return state; }
    // Of Selected; of Pending without the low byte.
    const ParameterNumber& Number() const { return number; }
    bool operator==(const ParameterSelection& other) const {
        return state == other.state &&
               (state == State::None ||
                (number.isUnregistered == other.number.isUnregistered && number.high == other.number.high &&
                 (state == State::Pending || number.low == other.number.low)));
    }

    // One of the four controllers that select.
    void Select(std::uint8_t controller, std::uint8_t value) {
        const bool isUnregistered = controller <= kUnregisteredHigh;
        if (controller == kUnregisteredHigh || controller == kRegisteredHigh) {
            number = {isUnregistered, value, 0};
            highs[isUnregistered ? 1 : 0] = value;
            state = State::Pending;
            return;
        }
        // The low byte may come alone: then the high byte is the newest one of its kind.
        number = {isUnregistered, highs[isUnregistered ? 1 : 0], value};
        state = number.IsNull() ? State::None : State::Selected;
    }
    // Data entry comes. Whether it is for a parameter: behind a high byte alone the low one counts as 0.
    bool TakesEntry() {
        if (state == State::Pending) {
            number.low = 0;
            state = State::Selected;
        }
        return state == State::Selected;
    }
    // As after Reset All Controllers.
    void Clear() { *this = ParameterSelection(); }

  private:
    ParameterNumber number;
    std::uint8_t highs[2] = {0, 0};  // registered, non-registered
    State state = State::None;
};

}  // namespace vexil::rtp
