#include "platform/linux/control/ControlSocket.h"

#include <sys/epoll.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "driver/DriverOptions.h"
#include "driver/LittleEndian.h"

namespace vexil {

namespace {

constexpr std::uint32_t kControlId = 1;  // one control is looked up with a descriptor
constexpr std::size_t kCtlNameOffset = 4;

int Failure(int error) {
    errno = error;
    return -1;
}

int Result(int error) {
    return error == 0 ? 0 : Failure(error);
}

// The name of a control as that of a file, or empty.
std::string FileName(const std::uint8_t* ctlName) {
    const auto* name = reinterpret_cast<const char*>(ctlName);
    const std::string file(name, strnlen(name, kCtlNameSize));
    const bool isFile = file.size() < kCtlNameSize && file.find('/') == std::string::npos && file[0] != '.';
    return isFile ? file : std::string();
}

bool IsUnitOfTheControl(const std::uint8_t* address, std::uint32_t length) {
    if (length != kSockaddrCtlSize) {
        return false;
    }
    const auto expected = MakeSockaddrCtl(kControlId, Uint32At(address + 8));
    // Unit 0 asks the system to choose one, which this control does not offer.
    return std::equal(expected.begin(), expected.end(), address) && Uint32At(address + 8) != 0;
}

}  // namespace

ControlSocket::ControlSocket(std::string folderOfSockets, bool systemWideInstallation)
    : events(epoll_create1(EPOLL_CLOEXEC)),
      folder(std::move(folderOfSockets)),
      systemWide(systemWideInstallation) {}

ControlSocket::~ControlSocket() = default;

int ControlSocket::Socket(int domain, int type, int protocol) {
    if (domain != kPfSystem) {
        return Failure(EAFNOSUPPORT);
    }
    if (type != kSockDgram) {
        return Failure(EPROTOTYPE);
    }
    if (protocol != kSysProtoControl) {
        return Failure(EPROTONOSUPPORT);
    }
    const int descriptor = ControlConnection::NewSocket();
    if (descriptor == -1) {
        return -1;
    }
    auto& link = entries[descriptor].link;
    link = std::make_unique<ControlSocketLink>(descriptor);
    epoll_event event{};
    event.events = EPOLLIN;
    epoll_ctl(events.Number(), EPOLL_CTL_ADD, link->EventDescriptor(), &event);
    return descriptor;
}

int ControlSocket::Ioctl(int descriptor, std::uint32_t request, void* controlInfo) {
    Entry* entry = Find(descriptor);
    if (entry == nullptr) {
        return Failure(EBADF);
    }
    if (request != kCtlIocGInfo) {
        return Failure(ENOTTY);
    }
    auto* info = static_cast<std::uint8_t*>(controlInfo);
    const std::string name = FileName(info + kCtlNameOffset);
    if (name.empty()) {
        return Failure(EINVAL);
    }
    const std::string path = folder + "/" + name;
    if (path.size() >= sizeof(sockaddr_un::sun_path)) {
        return Failure(ENAMETOOLONG);
    }

    struct stat file {};
    if (stat(path.c_str(), &file) != 0) {
        return -1;
    }
    if (!S_ISSOCK(file.st_mode)) {
        return Failure(ENOTSOCK);
    }
    entry->address.path = path;
    PutLittleEndian(info, kControlId, kCtlNameOffset);
    return 0;
}

int ControlSocket::Connect(int descriptor, const void* address, std::uint32_t length) {
    Entry* entry = Find(descriptor);
    if (entry == nullptr) {
        return Failure(EBADF);
    }
    if (entry->link->WasAttached()) {
        return Failure(EISCONN);
    }
    const auto* bytes = static_cast<const std::uint8_t*>(address);
    if (entry->address.path.empty() || !IsUnitOfTheControl(bytes, length)) {
        return Failure(EINVAL);
    }

    entry->address.unit = Uint32At(bytes + 8);
    entry->address.serviceUser = TrustedServiceUser(folder, systemWide);
    return Result(entry->link->Attach(entry->address));
}

int ControlSocket::SetOption(int descriptor, int level, int option, const void* payload,
                             std::uint32_t length) {
    ControlSocketLink* link = LinkForOption(descriptor, level);
    if (link == nullptr) {
        return -1;
    }
    if (payload == nullptr && length != 0) {
        return Failure(EFAULT);
    }
    if (length > kMaxControlData) {
        return Failure(EMSGSIZE);
    }
    const std::span<const std::uint8_t> bytes(static_cast<const std::uint8_t*>(payload), length);
    return Result(
        link->Exchange(kControlSetOption, static_cast<std::uint32_t>(option), bytes, nullptr, nullptr));
}

int ControlSocket::GetOption(int descriptor, int level, int option, void* buffer, std::uint32_t* length) {
    ControlSocketLink* link = LinkForOption(descriptor, level);
    if (link == nullptr) {
        return -1;
    }
    if (buffer == nullptr && *length != 0) {
        return Failure(EFAULT);
    }
    std::uint32_t size = std::min<std::uint32_t>(*length, kMaxControlData);
    const int error = link->Exchange(kControlGetOption, static_cast<std::uint32_t>(option), {},
                                     static_cast<std::uint8_t*>(buffer), &size);
    if (error == 0) {
        *length = size;
    }
    return Result(error);
}

int ControlSocket::Close(int descriptor) {
    return entries.erase(descriptor) != 0 ? 0 : Failure(EBADF);
}

void ControlSocket::Serve() {
    for (const auto& [descriptor, entry] : entries) {
        entry.link->Serve();
    }
}

ControlSocket::Entry* ControlSocket::Find(int descriptor) {
    const auto found = entries.find(descriptor);
    return found == entries.end() ? nullptr : &found->second;
}

ControlSocketLink* ControlSocket::LinkForOption(int descriptor, int level) {
    Entry* entry = Find(descriptor);
    int error = 0;
    if (entry == nullptr) {
        error = EBADF;
    } else if (!entry->link->WasAttached()) {
        error = ENOTCONN;
    } else if (level != kSysProtoControl) {
        error = ENOPROTOOPT;
    }
    if (error == 0) {
        return entry->link.get();
    }
    errno = error;
    return nullptr;
}

}  // namespace vexil
