// Arguments and limits of the control on a socket.
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <cstring>
#include <filesystem>

#include "tests/platform_linux/ControlSocketFixture.h"

namespace vexil {
namespace {

class ControlSocketTest : public ControlSocketFixture {
  protected:
    // A socket at the control's place that this process has bound; nobody serves it unless the test does.
    int BindSocket(int type) {
        const int bound = socket(AF_UNIX, type | SOCK_CLOEXEC, 0);
        sockaddr_un place{};
        place.sun_family = AF_UNIX;
        std::strcpy(place.sun_path, folder.SocketPath().c_str());
        EXPECT_EQ(0, bind(bound, reinterpret_cast<const sockaddr*>(&place), sizeof place));
        return bound;
    }
    static std::size_t OpenFiles() {
        std::size_t count = 0;
        for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
            ++count;
        }
        return count;
    }
};

TEST_F(ControlSocketTest, LookUpOfANameThatIsNoFileOfTheFolderIsRefused) {
    OpenSocket();
    for (const char* name : {"", ".", "..", "../x", "a/b", "/etc/passwd"}) {
        EXPECT_EQ(EINVAL, LookUp(name).error) << name;
    }
}

TEST_F(ControlSocketTest, LookUpOfAFileThatIsNoSocketFails) {
    close(open(folder.SocketPath().c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600));
    OpenSocket();
    EXPECT_EQ(ENOTSOCK, LookUp().error);
    unlink(folder.SocketPath().c_str());
}

TEST_F(ControlSocketTest, LookUpInAFolderTooLongForASocketFails) {
    ControlSocket other("/tmp/" + std::string(200, 'x'), false);
    const int otherDescriptor = other.Socket(kPfSystem, kSockDgram, kSysProtoControl);
    info = MakeCtlInfo(kControlName);
    EXPECT_EQ(-1, other.Ioctl(otherDescriptor, kCtlIocGInfo, info.data()));
    EXPECT_EQ(ENAMETOOLONG, errno);
}

TEST_F(ControlSocketTest, LookUpInAMissingFolderFindsNothing) {
    ControlSocket other(folder.path + "/none", false);
    const int otherDescriptor = other.Socket(kPfSystem, kSockDgram, kSysProtoControl);
    info = MakeCtlInfo(kControlName);
    EXPECT_EQ(-1, other.Ioctl(otherDescriptor, kCtlIocGInfo, info.data()));
    EXPECT_EQ(ENOENT, errno);
}

TEST_F(ControlSocketTest, AddressesBeforeTheLookUpAreRefused) {
    service.Start();
    OpenSocket();
    info = MakeCtlInfo(kControlName);
    info[0] = 1;
    EXPECT_EQ(EINVAL, Connect().error);
}

TEST_F(ControlSocketTest, AddressesOfUnitZeroOrWithSomethingReservedAreRefused) {
    service.Start();
    OpenSocket();
    ASSERT_EQ(0, LookUp().error);
    auto address = MakeSockaddrCtl(CtlInfoId(info), 0);
    EXPECT_EQ(-1, control.Connect(descriptor, address.data(), kSockaddrCtlSize));
    EXPECT_EQ(EINVAL, errno);
    address = MakeSockaddrCtl(CtlInfoId(info), kControlUnit);
    address[31] = 1;
    EXPECT_EQ(-1, control.Connect(descriptor, address.data(), kSockaddrCtlSize));
    EXPECT_EQ(EINVAL, errno);
}

TEST_F(ControlSocketTest, AttachmentNamesTheUnitAndNoLength) {
    OpenAttached();
    const std::vector<Seen> requests = service.Requests();
    ASSERT_EQ(1U, requests.size());
    EXPECT_EQ(kControlAttach, requests[0].kind);
    EXPECT_EQ(175U, requests[0].number);
    EXPECT_EQ(0U, requests[0].length);
}

TEST_F(ControlSocketTest, EveryRequestHasASequenceOfItsOwn) {
    OpenAttached();
    Set(kOptionReloadConfiguration);
    Set(kOptionReloadConfiguration);
    const std::vector<Seen> requests = service.Requests();
    ASSERT_EQ(3U, requests.size());
    EXPECT_NE(requests[0].sequence, requests[1].sequence);
    EXPECT_NE(requests[1].sequence, requests[2].sequence);
}

TEST_F(ControlSocketTest, ReadingTellsTheServiceTheBuffersSize) {
    OpenAttached();
    EXPECT_EQ(0, Get(8192).error);
    EXPECT_EQ(8192U, service.Requests().back().length);
}

TEST_F(ControlSocketTest, ReadingIntoAnEnormousBufferAsksForTheMostThatAReplyHolds) {
    OpenAttached();
    service.SetHostInfos(Bytes(kMaxControlData, 0x55));
    Bytes data;
    EXPECT_EQ(0, Get(1000000, &data).error);
    EXPECT_EQ(kMaxControlData, service.Requests().back().length);
    EXPECT_EQ(Bytes(kMaxControlData, 0x55), data);
}

TEST_F(ControlSocketTest, ReadingIntoABufferOfNoBytesReadsNone) {
    OpenAttached();
    service.SetHostInfos({1, 2, 3});
    Bytes data{9};
    EXPECT_EQ(0, Get(0, &data).error);
    EXPECT_TRUE(data.empty());
}

TEST_F(ControlSocketTest, ReadingWithoutABufferFails) {
    OpenAttached();
    std::uint32_t length = 4;
    EXPECT_EQ(-1, control.GetOption(descriptor, kSysProtoControl, kOptionReadHostInfos, nullptr, &length));
    EXPECT_EQ(EFAULT, errno);
}

TEST_F(ControlSocketTest, TheLongestPayloadArrives) {
    OpenAttached();
    const Bytes payload(kMaxControlData, 0x33);
    ASSERT_EQ(0, Set(kOptionOpenTestOutput, payload).error);
    EXPECT_EQ(payload, service.Accepted().back().second);
}

TEST_F(ControlSocketTest, APayloadThatIsTooLongIsNotSentAndHarmsNothing) {
    OpenAttached();
    EXPECT_EQ(EMSGSIZE, Set(kOptionOpenTestOutput, Bytes(kMaxControlData + 1)).error);
    EXPECT_EQ(0, Set(kOptionReloadConfiguration).error);
    EXPECT_EQ((std::vector<int>{-1, kOptionReloadConfiguration}), SeenNumbers());
}

TEST_F(ControlSocketTest, ASocketOfAnotherTypeIsRefused) {
    const int bound = BindSocket(SOCK_STREAM);
    listen(bound, 1);
    OpenSocket();
    ASSERT_EQ(0, LookUp().error);
    EXPECT_EQ(EPROTOTYPE, Connect().error);
    close(bound);
    unlink(folder.SocketPath().c_str());
}

TEST_F(ControlSocketTest, ASocketThatNobodyServesIsRefusedAtOnce) {
    close(BindSocket(SOCK_SEQPACKET));
    OpenSocket();
    ASSERT_EQ(0, LookUp().error);
    const Outcome outcome = Connect();
    EXPECT_EQ(ECONNREFUSED, outcome.error);
    ExpectAtOnce(outcome);
    unlink(folder.SocketPath().c_str());
}

TEST_F(ControlSocketTest, AServiceWhoseQueueOfConnectionsIsFullDoesNotBlock) {
    const int bound = BindSocket(SOCK_SEQPACKET);
    ASSERT_EQ(0, listen(bound, 0));
    // Fills the queue.
    sockaddr_un place{};
    socklen_t size = sizeof place;
    ASSERT_EQ(0, getsockname(bound, reinterpret_cast<sockaddr*>(&place), &size));
    std::vector<int> waiting;
    do {
        waiting.push_back(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    } while (connect(waiting.back(), reinterpret_cast<const sockaddr*>(&place), size) == 0 &&
             waiting.size() < 100);
    ASSERT_EQ(EAGAIN, errno);

    OpenSocket();
    ASSERT_EQ(0, LookUp().error);
    const Outcome outcome = Connect();
    EXPECT_EQ(ETIMEDOUT, outcome.error);
    ExpectAtOnce(outcome);
    for (const int each : waiting) {
        close(each);
    }
    close(bound);
    unlink(folder.SocketPath().c_str());
}

TEST_F(ControlSocketTest, DescriptorsAreNotInheritedByPrograms) {
    OpenSocket();
    EXPECT_NE(0, fcntl(descriptor, F_GETFD) & FD_CLOEXEC);
    service.Start();
    ASSERT_EQ(0, LookUp().error);
    ASSERT_EQ(0, Connect().error);
    EXPECT_NE(0, fcntl(descriptor, F_GETFD) & FD_CLOEXEC);
}

// What the opening of a socket gives while this process may have no further descriptor. The sanitizer's look
// at the type of an object takes descriptors of its own, so no object of a test is used meanwhile.
__attribute__((no_sanitize("undefined"))) int OpenWithoutDescriptors(ControlSocket& control, int& error) {
    rlimit before{};
    getrlimit(RLIMIT_NOFILE, &before);
    rlimit none = before;
    none.rlim_cur = 0;
    setrlimit(RLIMIT_NOFILE, &none);
    const int result = control.Socket(kPfSystem, kSockDgram, kSysProtoControl);
    error = errno;
    setrlimit(RLIMIT_NOFILE, &before);
    return result;
}

TEST_F(ControlSocketTest, ASocketThatThisProcessMayNotHaveIsRefused) {
    int error = 0;
    EXPECT_EQ(-1, OpenWithoutDescriptors(control, error));
    EXPECT_EQ(EMFILE, error);
}

TEST_F(ControlSocketTest, ClosingTakesTheServiceItsClient) {
    OpenAttached();
    service.AwaitClients(1);
    control.Close(descriptor);
    service.AwaitClients(0);
}

TEST_F(ControlSocketTest, NoDescriptorIsLeftOver) {
    service.Start();
    const std::size_t before = OpenFiles();
    {
        ControlSocket other(folder.path, false);
        const int first = other.Socket(kPfSystem, kSockDgram, kSysProtoControl);
        other.Socket(kPfSystem, kSockDgram, kSysProtoControl);
        info = MakeCtlInfo(kControlName);
        EXPECT_EQ(0, other.Ioctl(first, kCtlIocGInfo, info.data()));
        const auto address = MakeSockaddrCtl(CtlInfoId(info), kControlUnit);
        EXPECT_EQ(0, other.Connect(first, address.data(), kSockaddrCtlSize));
    }
    service.AwaitClients(0);
    EXPECT_EQ(before, OpenFiles());
}

}  // namespace
}  // namespace vexil
