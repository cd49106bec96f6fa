// On which interfaces this computer speaks to the network: on none, on loopback, on some, or on all. As it is
// written on a command line and stored: "off", "lo", "on", or names with commas ("eth0,wlan0"). A plain
// value.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace vexil {

class InterfaceChoice {
  public:
    enum class Kind : std::uint8_t { Off, Loopback, Listed, All };

    // The name of an interface, at most; the system has none that are longer.
    static constexpr std::size_t kLongestName = 15;
    static constexpr std::size_t kMostNames = 32;

    InterfaceChoice() = default;  // Off
    static InterfaceChoice Loopback() { return InterfaceChoice(Kind::Loopback, {}); }
    static InterfaceChoice All() { return InterfaceChoice(Kind::All, {}); }
    // Null when the text has another form than these four: a name that is empty, too long, or holds a blank,
    // a control character, "/" or ":"; more than kMostNames names; "on" or "off" among others. Blanks are not
    // trimmed. "lo" among others is the interface of that name.
    static std::optional<InterfaceChoice> FromText(std::string_view text);

    std::string Text() const;
    Kind Which() const { return kind; }
    bool IsOff() const { return kind == Kind::Off; }
    // Of Listed; else empty.
    const std::vector<std::string>& Names() const { return names; }

    // Whether it speaks on an interface.
    bool Admits(std::string_view name, bool isLoopback) const;

    bool operator==(const InterfaceChoice&) const = default;

  private:
    InterfaceChoice(Kind which, std::vector<std::string> listed) : kind(which), names(std::move(listed)) {}

    Kind kind = Kind::Off;
    std::vector<std::string> names;
};

}  // namespace vexil
