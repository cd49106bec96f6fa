#include "tests/config/FailingAllocator.h"

#include <cstddef>
#include <cstdlib>
#include <new>

namespace {

constexpr long kNone = -1;
long successesLeft = kNone;  // before the planned failure

}  // namespace

// In a source of their own: seen beside the code that calls them, the compiler takes the pair for a mismatch.
void* operator new(std::size_t size) {
    const bool mustFail = successesLeft != kNone && successesLeft-- == 0;
    if (!mustFail) {
        if (void* const block = std::malloc(size == 0 ? 1 : size)) {
            return block;
        }
    }
    throw std::bad_alloc();
}

void operator delete(void* block) noexcept {
    std::free(block);
}

void operator delete(void* block, std::size_t) noexcept {
    std::free(block);
}

namespace vexil {

FailingAllocation::FailingAllocation(long successes) {
    successesLeft = successes;
}

FailingAllocation::~FailingAllocation() {
    successesLeft = kNone;
}

bool FailingAllocation::Happened() const {
    return successesLeft == kNone;
}

}  // namespace vexil
