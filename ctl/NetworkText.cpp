#include "ctl/NetworkText.h"

#include <array>
#include <ctime>

#include "ctl/SessionText.h"
#include "ctl/TextTable.h"
#include "shared/System/PrintableText.h"

namespace vexil {

namespace {

std::string AllowText(const std::string& allow) {
    if (allow == "any") {
        return "every computer that is not blocked";
    }
    if (allow == "known") {
        return "computers whose key is pinned";
    }
    if (allow == "secret") {
        return "computers that know the secret";
    }
    return Printable(allow);
}

// "2026-11-22"; empty for 0 and for what is no time.
std::string DayText(std::uint64_t since) {
    constexpr std::uint64_t kLast = 253'402'214'400;  // the last day with a year of four digits
    std::tm parts{};
    const auto time = static_cast<std::time_t>(since);
    if (since == 0 || since > kLast || localtime_r(&time, &parts) == nullptr) {
        return "";
    }
    std::array<char, 16> text{};
    return {text.data(), std::strftime(text.data(), text.size(), "%Y-%m-%d", &parts)};
}

}  // namespace

std::string NetworkListText(const NetworkList& list) {
    const std::string port = list.port == 0 ? "" : ", UDP port " + std::to_string(list.port);
    std::string text = LabelledText("Speaks", SpeaksText(list.speaks) + port);
    if (!list.problem.empty()) {
        text += LabelledText("", "! " + Printable(list.problem));
    }
    if (!list.avahi.empty()) {
        text += LabelledText("", Printable(list.avahi));
    }
    text += LabelledText("Own key", list.key.empty() ? "none" : Printable(list.key));
    text += LabelledText("Lets in", AllowText(list.allow));
    text += LabelledText("Secret", list.secret ? "set: everybody must know it" : "not set");
    text += LabelledText("RTP-MIDI", list.rtp ? "on" : "off");
    if (list.computers.empty()) {
        return text + "\nNo other computer is known.\n";
    }
    TextTable table({{"COMPUTER", 22}, {"ADDRESS", 20}, {"KEY", 16}, {"SINCE", 10}, {"STATE", 8}});
    for (const KnownComputer& computer : list.computers) {
        table.AddRow({Printable(computer.name), Printable(computer.address), Printable(computer.key),
                      DayText(computer.since), Printable(computer.state)});
    }
    return text + "\n" + table.Text();
}

}  // namespace vexil
