// The restart request against the contract of the panel's restarter, on a bus of the test's own. Skipped
// where there can be none.
#include "platform/linux/desktop/LogindRestarter.h"
#include "tests/doubles/RestarterContract.h"
#include "tests/platform_linux/PrivateSystemBus.h"

namespace vexil {
namespace {

constexpr int kSkipped = 77;

class LogindRestart {
  public:
    Restarter& Seam() { return restarter; }
    int Requests() { return bus.Reboots(); }

  private:
    PrivateSystemBus bus;
    LogindRestarter restarter;
};

INSTANTIATE_TYPED_TEST_SUITE_P(Logind, RestarterContract, ::testing::Types<LogindRestart>);

}  // namespace
}  // namespace vexil

int main(int argc, char** argv) {
    ::testing::InitGoogleTest(&argc, argv);
    // The list of the tests is asked for on every machine.
    if (!vexil::PrivateSystemBus::IsPossible() && !GTEST_FLAG_GET(list_tests)) {
        return vexil::kSkipped;
    }
    return RUN_ALL_TESTS();
}
