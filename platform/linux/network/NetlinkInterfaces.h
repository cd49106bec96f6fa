// The interfaces of this computer as the kernel tells them (rtnetlink), and each change as it happens.
// Nothing is asked again by time. Whether an interface is wireless is asked of sysfs.
//
// One thread.
#pragma once

#include <string>
#include <vector>

#include "service/network/Interfaces.h"
#include "shared/System/Descriptor.h"

namespace vexil {

class NetlinkInterfaces : public Interfaces {
  public:
    // Reads the list. A failure is a log line; the list stays as it was, empty at first. `sysClassNet`: the
    // folder in which the kernel shows interfaces.
    explicit NetlinkInterfaces(std::string sysClassNet = "/sys/class/net");

    int EventDescriptor() const override { return changes.Number(); }
    bool Take() override;
    const std::vector<NetworkInterface>& List() const override { return list; }

  private:
    void Load();

    std::string sysfs;
    Descriptor changes;  // hears the kernel's notifications
    std::vector<NetworkInterface> list;
    bool hasFailed = false;
};

}  // namespace vexil
