// The kernel control of a driver that is a service of this computer: the control is a Unix socket of packets,
// named after the control, in one folder. driver/ControlChannel.h gives the packets.
//
// A call takes at most about 250 ms, whatever the service does. A service that has ended and is back is
// attached anew within the call that needs it, and has the test outputs that were open, the wireless mode and
// the send quantization time. Broken answers end
// the attachment and are errors of the call (EPROTO). One thread only.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "driver/KernelControl.h"
#include "platform/linux/control/ControlSocketLink.h"
#include "shared/System/Descriptor.h"

namespace vexil {

class ControlSocket : public KernelControl {
  public:
    // `folder` holds the sockets. The service behind a socket must be root's or this user's own; in the
    // folder of a `systemWide` installation it may also be that of the folder's owner, as only root gives
    // such a folder away. Any other process that answers there is refused (EACCES).
    ControlSocket(std::string folder, bool systemWide);
    ~ControlSocket() override;

    // Failures besides those of the seam: EAFNOSUPPORT, EPROTOTYPE, EPROTONOSUPPORT for other arguments than
    // the three of a control socket; EMFILE and the like.
    int Socket(int domain, int type, int protocol) override;

    // ENOTTY for another request, EINVAL for a name that names no file of the folder, ENAMETOOLONG for a
    // folder that is too long for a socket, ENOTSOCK for a file that is no socket.
    int Ioctl(int descriptor, std::uint32_t request, void* controlInfo) override;

    // EINVAL for a malformed address or one whose control was not looked up with this descriptor, EISCONN
    // when attached already, ECONNREFUSED for a socket that nobody serves, ETIMEDOUT for a service that does
    // not answer. The descriptor can be attached again after a failure.
    int Connect(int descriptor, const void* address, std::uint32_t length) override;

    // The driver's own errno, or: EBADF; ENOTCONN before the first attachment; ENOPROTOOPT for another level;
    // EFAULT for a length without bytes; EMSGSIZE above kMaxControlData; ETIMEDOUT for a service that does
    // not answer, and at once while its answer to an earlier call is still missing; EPROTO for an answer that
    // is malformed. A service that is gone and cannot be attached again gives the errno of that.
    int SetOption(int descriptor, int level, int option, const void* payload, std::uint32_t length) override;
    int GetOption(int descriptor, int level, int option, void* buffer, std::uint32_t* length) override;

    int Close(int descriptor) override;

    // For the program's event loop, which calls Serve whenever the descriptor is readable (-1 where the
    // kernel gives none). There the end of a test note that a call could not deliver goes out as soon as the
    // service can take it, and a service that was restarted is attached and put right, both without a further
    // call. Serve takes at most about 250 ms, and only what a call would take.
    int EventDescriptor() const { return events.Number(); }
    void Serve();

  private:
    struct Entry {
        ControlAddress address;  // `path` is empty until the control was looked up
        std::unique_ptr<ControlSocketLink> link;
    };

    // The open descriptor's entry or null.
    Entry* Find(int descriptor);
    // The link for an option call; null, with errno, when no link can be used.
    ControlSocketLink* LinkForOption(int descriptor, int level);

    const Descriptor events;  // an epoll set of the links' own
    const std::string folder;
    const bool systemWide;
    std::map<int, Entry> entries;  // by descriptor, each a file descriptor of this process
};

}  // namespace vexil
