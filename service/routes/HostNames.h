// The names of computers, and which of them mean the same one.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace vexil {

// A host name in the form in which names compare: without regard to case, a trailing dot or a trailing
// ".local".
std::string FoldHostName(std::string_view name);

// The names under which one computer is a target or a source, compared by FoldHostName. The empty name is
// never among them.
class ComputerNames {
  public:
    explicit ComputerNames(const std::vector<std::string>& names);
    bool Contains(const std::string& name) const;

  private:
    std::vector<std::string> folded;
};

// Those of this computer.
class LocalNames : public ComputerNames {
  public:
    // "localhost" is always among them. The first is the name by which this computer calls itself.
    explicit LocalNames(const std::vector<std::string>& names);
    const std::string& Own() const { return own; }

  private:
    std::string own;
};

}  // namespace vexil
