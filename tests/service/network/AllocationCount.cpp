#include "tests/service/network/AllocationCount.h"

#include <cstdlib>
#include <new>

namespace {
long allocations = 0;
}  // namespace

long vexil::test::AllocationCount() {
    return allocations;
}

void* operator new(std::size_t size) {
    ++allocations;
    void* const memory = std::malloc(size == 0 ? 1 : size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}
