// Once an association is made, it allocates nothing. A program of its own, for every allocation in it is
// counted.
#include <gtest/gtest.h>

#include <array>
#include <memory>

#include "service/network/LinkAssociation.h"
#include "tests/service/network/AllocationCount.h"

namespace vexil {
namespace {

// Moves what both have to send, every third body lost, and takes the events.
long Step(std::uint64_t now, std::array<std::unique_ptr<LinkAssociation>, 2>& ends) {
    static int count = 0;
    long heard = 0;
    for (std::size_t from = 0; from < 2; ++from) {
        std::array<std::uint8_t, kLongestBody> body{};
        while (const auto transmit = ends[from]->PollTransmit(now, body)) {
            if (++count % 3 != 0) {
                ends[1 - from]->HandleBody(now, transmit->session, ByteView(body).first(transmit->size));
            }
        }
        ends[from]->HandleTimeout(now);
        for (auto& end : ends) {
            while (const auto event = end->PollEvent(now)) {
                const bool isMusic =
                    event->kind == LinkEvent::Kind::Message || event->kind == LinkEvent::Kind::Piece;
                heard += isMusic ? 1 : 0;
                if (event->kind == LinkEvent::Kind::Piece) {
                    end->PiecesPassedOn(event->source, event->input, event->bytes.size());
                }
                if (event->kind == LinkEvent::Kind::WayOpened) {
                    end->AnswerWay(event->source, event->input, WayProblem::None);
                }
            }
        }
    }
    return heard;
}

TEST(LinkAllocation, AnAssociationThatIsUpAllocatesNothing) {
    std::array<std::unique_ptr<LinkAssociation>, 2> ends = {std::make_unique<LinkAssociation>("laptop"),
                                                            std::make_unique<LinkAssociation>("studio")};
    std::uint64_t now = 1'000'000;
    SessionStart start;
    start.session = 1;
    start.association = 77;
    ends[0]->BeginSession(now, start);
    start.role = SessionRole::Called;
    ends[1]->BeginSession(now, start);
    for (; now < 2'000'000; now += 10'000) {
        Step(now, ends);
    }
    ASSERT_TRUE(ends[0]->IsUp() && ends[1]->IsUp());

    const long before = test::AllocationCount();
    long heard = 0;
    std::array<std::uint8_t, 700> exclusive{};
    exclusive.front() = 0xF0;
    exclusive.back() = 0xF7;
    const std::array<std::uint8_t, 3> note = {0x90, 60, 100};
    ends[0]->OpenWay(now, 1, 2);
    for (int count = 0; count < 20'000; ++count, now += 500) {
        MidiPiece piece;
        piece.bytes = note;
        ends[0]->Send(now, 1, 2, piece);
        piece.bytes = exclusive;
        piece.systemExclusive = true;
        if (count % 20 == 0) {
            ends[0]->Send(now, 1, 2, piece);
        }
        heard += Step(now, ends);
    }
    EXPECT_EQ(test::AllocationCount(), before);
    EXPECT_GE(heard, 20'000);
}

}  // namespace
}  // namespace vexil
