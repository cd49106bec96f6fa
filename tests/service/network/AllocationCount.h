// Counts the allocations of the program that it is linked to.
#pragma once

namespace vexil::test {

// By operator new, since the program began.
long AllocationCount();

}  // namespace vexil::test
