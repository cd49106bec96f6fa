// The clock of Linux against the contract of the panel's clock.
#include "platform/linux/LinuxHostClock.h"
#include "tests/doubles/HostClockContract.h"

namespace vexil {
namespace {

class LinuxClock {
  public:
    HostClock& Seam() { return clock; }

  private:
    LinuxHostClock clock;
};

INSTANTIATE_TYPED_TEST_SUITE_P(Linux, HostClockContract, ::testing::Types<LinuxClock>);

}  // namespace
}  // namespace vexil
