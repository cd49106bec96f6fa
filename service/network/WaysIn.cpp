#include "service/network/WaysIn.h"

#include "service/network/WaysOut.h"

namespace vexil {

namespace {

// So many bytes more may come before the peer is told: a quarter of what it may have under way.
constexpr std::uint32_t kCreditStep = kPieceCredit / 4;

}  // namespace

WaysIn::WaysIn() : ways({0, kPieceCredit, 0, WayProblem::None}) {
    Begin();
}

void WaysIn::Begin() {
    window.Reset();
    order.Reset();
    ways.Clear();
    untold.Clear();
}

WaysIn::Taken WaysIn::Take(std::uint32_t number, const LinkRecord& record, std::uint32_t due) {
    const ReceiveWindow::Place place = window.PlaceOf(number);
    if (place == ReceiveWindow::Place::Duplicate) {
        return Taken::Duplicate;
    }
    if (place == ReceiveWindow::Place::TooFarAhead) {
        ++tooFarAhead;
        return Taken::NotTaken;
    }
    if (!order.Take(record, due)) {
        return Taken::NotTaken;
    }
    window.Take(number);
    return Taken::New;
}

void WaysIn::Answer(std::uint8_t source, std::uint8_t input, WayProblem problem) {
    const std::size_t way = WayIndex(source, input);
    ways[way].problem = problem;
    untold.Add(way);
}

void WaysIn::PiecesPassedOn(std::uint8_t source, std::uint8_t input, std::size_t bytes) {
    const std::size_t index = WayIndex(source, input);
    Way& way = ways[index];
    way.passedOn += static_cast<std::uint32_t>(bytes);
    if (way.passedOn + kPieceCredit - way.limit >= kCreditStep) {
        way.limit = way.passedOn + kPieceCredit;
        untold.Add(index);
    }
}

std::optional<LinkRecord> WaysIn::StateToTell(std::array<std::uint8_t, kWayStateSize>& content) {
    if (untold.IsEmpty()) {
        return std::nullopt;
    }
    const std::size_t index = untold.NextFrom(0);
    const Way& way = ways[index];
    content = PackWayState({way.problem, way.limit});
    LinkRecord state;
    state.type = RecordType::WayState;
    state.source = static_cast<std::uint8_t>(index / kLinkInputs);
    state.input = static_cast<std::uint8_t>(index % kLinkInputs);
    state.number = static_cast<std::uint16_t>(way.number + 1);
    state.bytes = content;
    return state;
}

void WaysIn::Told(const LinkRecord& state) {
    const std::size_t way = WayIndex(state.source, state.input);
    ways[way].number = state.number;
    untold.Remove(way);
}

}  // namespace vexil
