// The control on a socket against the contract of the kernel control, over a service in this process.
#include "tests/doubles/KernelControlContract.h"
#include "tests/platform_linux/ControlSocketFixture.h"

namespace vexil {
namespace {

class ControlSocketSubject {
  public:
    ControlSocketSubject() { service.Start(); }

    KernelControl& Control() { return control; }
    void SetHostInfos(std::vector<std::uint8_t> bytes) { service.SetHostInfos(std::move(bytes)); }
    void RemoveDriver() {
        service.Stop();
        service.RemoveFile();
    }
    std::vector<AcceptedOption> Accepted() { return service.Accepted(); }

  private:
    ControlFolder folder;
    ControlSocketService service{folder.SocketPath()};
    ControlSocket control{folder.path, false};
};

INSTANTIATE_TYPED_TEST_SUITE_P(Socket, KernelControlContract, ::testing::Types<ControlSocketSubject>);

}  // namespace
}  // namespace vexil
