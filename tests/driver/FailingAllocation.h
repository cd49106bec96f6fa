// Makes the allocations that report their failure by a null pointer fail, in the program that links
// FailingAllocation.cpp.
#pragma once

namespace vexil {

// While one lives, `new (std::nothrow) T[n]` gives null; otherwise bytes of 0xEE.
class FailingAllocation {
  public:
    FailingAllocation();
    ~FailingAllocation();
    FailingAllocation(const FailingAllocation&) = delete;
    FailingAllocation& operator=(const FailingAllocation&) = delete;
};

}  // namespace vexil
