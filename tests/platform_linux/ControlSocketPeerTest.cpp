// Who may serve the control. The other user's service is a process of that user, which takes root to start:
// without it these tests are skipped.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>

#include "driver/ControlChannel.h"
#include "tests/platform_linux/ControlSocketFixture.h"

namespace vexil {
namespace {

constexpr uid_t kOtherUser = 65534;  // nobody
constexpr int kSkipped = 77;

// A process of another user that attaches everybody.
class OtherUsersService {
  public:
    explicit OtherUsersService(const std::string& path) {
        const int listening = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
        sockaddr_un place{};
        place.sun_family = AF_UNIX;
        std::strcpy(place.sun_path, path.c_str());
        EXPECT_EQ(0, bind(listening, reinterpret_cast<const sockaddr*>(&place), sizeof place));
        int ready[2];
        EXPECT_EQ(0, pipe(ready));
        child = fork();
        if (child == 0) {
            // The kernel takes the credentials of whoever listens.
            if (setuid(kOtherUser) != 0 || listen(listening, 1) != 0 || write(ready[1], "r", 1) != 1) {
                _exit(1);
            }
            Serve(listening);
        }
        char byte = 0;
        EXPECT_EQ(1, read(ready[0], &byte, 1));
        close(ready[0]);
        close(ready[1]);
        close(listening);
    }
    ~OtherUsersService() {
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
    }
    OtherUsersService(const OtherUsersService&) = delete;
    OtherUsersService& operator=(const OtherUsersService&) = delete;

  private:
    [[noreturn]] static void Serve(int listening) {
        for (;;) {
            const int client = accept(listening, nullptr, nullptr);
            std::uint8_t packet[64];
            if (recv(client, packet, sizeof packet, 0) >= 4) {
                std::uint8_t reply[kControlReplyHeaderSize] = {};
                std::memcpy(reply, packet, 4);
                if (send(client, reply, sizeof reply, MSG_NOSIGNAL) < 0) {
                    _exit(1);
                }
            }
        }
    }

    pid_t child = -1;
};

class ControlSocketPeerTest : public ::testing::Test {
  protected:
    ~ControlSocketPeerTest() override { unlink(folder.SocketPath().c_str()); }

    // 0 or the errno of the attachment.
    int Attach(bool systemWide) const {
        ControlSocket control(folder.path, systemWide);
        const int descriptor = control.Socket(kPfSystem, kSockDgram, kSysProtoControl);
        auto info = MakeCtlInfo(kControlName);
        EXPECT_EQ(0, control.Ioctl(descriptor, kCtlIocGInfo, info.data()));
        const auto address = MakeSockaddrCtl(CtlInfoId(info), kControlUnit);
        return control.Connect(descriptor, address.data(), kSockaddrCtlSize) == 0 ? 0 : errno;
    }
    void GiveFolderTo(uid_t user) const { ASSERT_EQ(0, chown(folder.path.c_str(), user, getegid())); }

    ControlFolder folder;
};

TEST_F(ControlSocketPeerTest, AnotherUsersServiceIsRefusedInTheUsersOwnFolder) {
    const OtherUsersService service(folder.SocketPath());
    GiveFolderTo(kOtherUser);
    EXPECT_EQ(EACCES, Attach(false));
}

TEST_F(ControlSocketPeerTest, AnotherUsersServiceIsRefusedInASystemFolderThatIsNotItsOwn) {
    const OtherUsersService service(folder.SocketPath());
    EXPECT_EQ(EACCES, Attach(true));
}

TEST_F(ControlSocketPeerTest, TheOwnerOfTheSystemFolderMayServeThere) {
    const OtherUsersService service(folder.SocketPath());
    GiveFolderTo(kOtherUser);
    EXPECT_EQ(0, Attach(true));
}

}  // namespace
}  // namespace vexil

int main(int argc, char** argv) {
    ::testing::InitGoogleTest(&argc, argv);
    // The list of the tests is asked for by every user.
    if (geteuid() != 0 && !GTEST_FLAG_GET(list_tests)) {
        return vexil::kSkipped;
    }
    return RUN_ALL_TESTS();
}
