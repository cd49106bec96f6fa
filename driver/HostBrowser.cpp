#include "driver/HostBrowser.h"

#include <cerrno>
#include <memory>
#include <new>

#include "driver/DriverOptions.h"
#include "driver/HostInfos.h"
#include "shared/System/svLog.h"

namespace vexil {

namespace {

// What the driver is given to answer the browse request before the list is read.
constexpr unsigned kBrowseMicroseconds = 10000;

void RemoveAllHosts(HostBrowser::Mediator& mediator, HostList list) {
    for (int index = mediator.HostCount(list) - 1; index >= 0; --index) {
        mediator.RemoveHost(list, index);
    }
}

}  // namespace

void HostBrowser::RefreshHosts() {
    if (!connection.IsConnected()) {
        return;
    }
    if (connection.SendCommand(kOptionBrowseHosts, nullptr, 0) != 0) {
        LogPrintf("PostBrowse() failed; error %d.\n", errno);
        return;
    }
    mediator.SleepMicroseconds(kBrowseMicroseconds);

    // Zeroed, as the driver may write less than the whole and the length that comes back is not relied on.
    const std::unique_ptr<std::uint8_t[]> buffer(new (std::nothrow) std::uint8_t[kHostInfosSize]());
    if (!buffer) {
        LogPrintf("Out of memory while updating host infos.\n");
        return;
    }
    std::uint32_t length = kHostInfosSize;
    if (connection.ReadHostInfos(buffer.get(), &length) != 0) {
        LogPrintf("Cannot enumerate host infos; error %d.\n", errno);
        return;
    }

    const HostInfos infos = ParseHostInfos(buffer.get(), kHostInfosSize);
    RemoveAllHosts(mediator, HostList::Source);
    RemoveAllHosts(mediator, HostList::Target);
    for (const char* name : infos.names) {
        mediator.AppendHost(name);
    }
    if (infos.cachedLength > 0) {
        LogPrintf("Updating cache %p size %ld bytes.\n", static_cast<void*>(buffer.get()),
                  static_cast<long>(infos.cachedLength));
        mediator.StoreCache(buffer.get(), static_cast<std::uint32_t>(infos.cachedLength));
    }
}

}  // namespace vexil
