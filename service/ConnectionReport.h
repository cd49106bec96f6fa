// What the log tells of connections with other computers: when one is made, and when and why it ends. Lines
// are bounded, whatever others do. Control thread.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "service/control/RemoteNetwork.h"

namespace vexil {

class ConnectionReport {
  public:
    static constexpr int kMostLines = 30;  // in a minute
    static constexpr std::uint64_t kMinute = 60'000'000;

    // How things stand; `now` in microseconds. Nothing is written while it is off, and nothing is made up
    // for later.
    void Sessions(std::uint64_t now, const std::vector<RemoteSession>& sessions, bool enabled);

  private:
    void Line(std::uint64_t now, bool enabled, const std::string& text);

    // The computers that are up, and where.
    std::map<std::string, std::string> connected;
    std::uint64_t minuteBegan = 0;
    int lines = 0;
};

}  // namespace vexil
