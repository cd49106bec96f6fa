// An allocator that fails on demand, for a test program of its own: it replaces the program's operator new.
#pragma once

namespace vexil {

// While it lives, the allocation after `successes` more of them fails, once.
class FailingAllocation {
  public:
    explicit FailingAllocation(long successes);
    ~FailingAllocation();
    FailingAllocation(const FailingAllocation&) = delete;
    FailingAllocation& operator=(const FailingAllocation&) = delete;

    // Whether the planned failure has come to pass.
    bool Happened() const;
};

}  // namespace vexil
