#include "tests/driver/FailingAllocation.h"

#include <cstddef>
#include <cstring>
#include <new>

namespace {

bool failing = false;

}  // namespace

// Takes the place of the library's. The memory comes from the throwing form, so that the usual operator
// delete[] frees it and a sanitizer sees a matching pair. It is never zero by chance.
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    if (failing) {
        return nullptr;
    }
    try {
        return std::memset(::operator new[](size), 0xEE, size);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

namespace vexil {

FailingAllocation::FailingAllocation() {
    failing = true;
}
FailingAllocation::~FailingAllocation() {
    failing = false;
}

}  // namespace vexil
