// Lists of sources, each source on one of them at most, in the order in which they were put there. Nothing is
// allocated. One thread.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "service/engine/SourceNumbers.h"

namespace vexil {

template <std::size_t kLists>
class SourceLists {
  public:
    static constexpr int kEnd = -1;

    SourceLists() {
        firsts.fill(kEnd);
        lasts.fill(kEnd);
    }

    // A source that is on no list goes to the end of one.
    void Append(int list, int source) {
        Link& link = links[static_cast<std::size_t>(source)];
        std::int16_t& last = lasts[static_cast<std::size_t>(list)];
        link.previous = last;
        link.next = kEnd;
        NextAfter(list, last) = static_cast<std::int16_t>(source);
        last = static_cast<std::int16_t>(source);
    }
    // Takes a source off the list that it is on.
    void Remove(int list, int source) {
        const Link link = links[static_cast<std::size_t>(source)];
        NextAfter(list, link.previous) = link.next;
        if (link.next == kEnd) {
            lasts[static_cast<std::size_t>(list)] = link.previous;
        } else {
            links[static_cast<std::size_t>(link.next)].previous = link.previous;
        }
    }
    bool IsEmpty(int list) const { return First(list) == kEnd; }
    // The first of a list, and the one behind a source; kEnd behind the last.
    int First(int list) const { return firsts[static_cast<std::size_t>(list)]; }
    int Next(int source) const { return links[static_cast<std::size_t>(source)].next; }

  private:
    struct Link {
        std::int16_t next = kEnd;
        std::int16_t previous = kEnd;
    };
    static_assert(kSourceCount <= INT16_MAX);

    std::int16_t& NextAfter(int list, int source) {
        if (source == kEnd) {
            return firsts[static_cast<std::size_t>(list)];
        }
        return links[static_cast<std::size_t>(source)].next;
    }

    std::array<std::int16_t, kLists> firsts;
    std::array<std::int16_t, kLists> lasts;
    std::array<Link, kSourceCount> links;
};

}  // namespace vexil
