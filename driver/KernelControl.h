// Seam: the system calls by which a program reaches a driver's kernel control. Results and errno are those of
// the calls: -1 and errno on failure.
#pragma once

#include <cstdint>

namespace vexil {

inline constexpr int kPfSystem = 32;                       // PF_SYSTEM
inline constexpr int kSockDgram = 2;                       // SOCK_DGRAM
inline constexpr int kSysProtoControl = 2;                 // SYSPROTO_CONTROL, also the level of every option
inline constexpr std::uint32_t kCtlIocGInfo = 0xc0644e03;  // CTLIOCGINFO

class KernelControl {
  public:
    virtual ~KernelControl() = default;

    // A descriptor for a control socket, closed with Close.
    virtual int Socket(int domain, int type, int protocol) = 0;

    // Looks a control up by name: `controlInfo` is a 100-byte ctl_info whose ctl_id is filled in. `request`
    // is kCtlIocGInfo. ENOENT when there is no such control. Returns 0 on success.
    virtual int Ioctl(int descriptor, std::uint32_t request, void* controlInfo) = 0;

    // Attaches to the control and unit of a 32-byte sockaddr_ctl. EBUSY when the unit is attached already.
    // Returns 0 on success.
    virtual int Connect(int descriptor, const void* address, std::uint32_t length) = 0;

    // One command. A null payload has length 0. Returns 0 on success.
    virtual int SetOption(int descriptor, int level, int option, const void* payload,
                          std::uint32_t length) = 0;

    // Reads into `buffer`; `length` is its size on entry and the bytes written on return. Returns 0 on
    // success; the buffer beyond `length` is untouched.
    virtual int GetOption(int descriptor, int level, int option, void* buffer, std::uint32_t* length) = 0;

    virtual int Close(int descriptor) = 0;
};

}  // namespace vexil
