// Networks of this process's own: what happens there reaches nothing else. Needs the rights of root, or a
// system that lets its users make namespaces.
#pragma once

#include <string>

#include "shared/System/Descriptor.h"

namespace vexil::test {

// Puts this process into an empty network of its own, once; from then on it is there. False, with the reason,
// where that is not allowed or "ip" is missing. Before any thread is started.
bool EnterOwnNetwork(std::string& reason);

// Two networks with a wire between them: "wire0" with 10.77.0.1/24 here, "wire1" with 10.77.0.2/24 there.
// Loopback is up in both. A socket belongs to the network in which this process is when it is made.
class TwoNetworks {
  public:
    TwoNetworks();
    ~TwoNetworks();
    TwoNetworks(const TwoNetworks&) = delete;
    TwoNetworks& operator=(const TwoNetworks&) = delete;

    bool IsThere() const { return isThere; }
    void EnterHere() const;
    void EnterThere() const;

  private:
    Descriptor here;
    Descriptor there;
    bool isThere = false;
};

// Runs "ip" with these arguments in the network in which this process is; whether it succeeded.
bool Ip(const std::string& arguments);

}  // namespace vexil::test
