#include "ctl/MonitorText.h"

#include <algorithm>
#include <array>
#include <ctime>
#include <nlohmann/json.hpp>
#include <optional>
#include <span>

#include "client/MessageText.h"
#include "config/DriverConfiguration.h"
#include "ctl/PortArgument.h"
#include "ctl/TerminalText.h"
#include "shared/System/PrintableText.h"

namespace vexil {

namespace {

using Json = nlohmann::ordered_json;

constexpr std::size_t kNameWidth = 12;
constexpr std::size_t kMessageWidth = 31;
constexpr std::size_t kMostBytes = 64;  // that a line shows

const char* SideText(std::uint8_t side) {
    switch (side) {
        case kMonitoredInput:
            return "in";
        case kMonitoredTest:
            return "test";
        default:
            return "out";
    }
}

std::string NameOf(const MonitoredMessage& message, const MonitorNames& names) {
    const auto found = names.find({message.port, message.side});
    return found == names.end() ? "" : found->second;
}

// As a port without a name of its own is called.
std::string NameOr(const std::string& name, unsigned port) {
    return name.empty() ? "Port " + std::to_string(port) : name;
}

// Blanks behind a text up to a column; one at least.
std::string Padded(const std::string& text, std::size_t width) {
    return text + std::string(std::max(width, DisplayWidth(text)) - DisplayWidth(text) + 1, ' ');
}

std::string RightPadded(const std::string& text, std::size_t width) {
    return std::string(width - std::min(width, text.size()), ' ') + text + " ";
}

std::string TimeText(WallClock::time_point time) {
    const auto milliseconds = std::chrono::floor<std::chrono::milliseconds>(time);
    const std::time_t seconds = WallClock::to_time_t(std::chrono::floor<std::chrono::seconds>(time));
    std::tm parts{};
    localtime_r(&seconds, &parts);
    std::array<char, 16> clock{};
    const std::size_t length = std::strftime(clock.data(), clock.size(), "%H:%M:%S", &parts);
    const std::string thousandths = std::to_string(1000 + milliseconds.time_since_epoch().count() % 1000);
    return std::string(clock.data(), length) + "." + thousandths.substr(1);
}

std::string ChannelText(const MonitoredMessage& message) {
    const std::optional<int> channel = ChannelOf(message.bytes);
    return channel ? std::to_string(*channel) : "";
}

std::string FirstBytes(const std::vector<std::uint8_t>& bytes) {
    const std::size_t shown = std::min(bytes.size(), kMostBytes);
    const std::string text = BytesText(std::span(bytes).first(shown));
    return shown == bytes.size() ? text : text + " ... " + std::to_string(bytes.size() - shown) + " more";
}

std::string JsonLine(const Json& json) {
    return PrintableJson(json.dump(-1, ' ', false, Json::error_handler_t::replace)) + "\n";
}

}  // namespace

MonitorNames NamesOfPorts(const StatusReport& status) {
    MonitorNames names;
    for (const PortReport& port : status.ports) {
        const std::optional<int> index = PortArgument(std::to_string(port.port));
        if (index && port.output) {
            names[{*index, kMonitoredOutput}] = NameOr(port.output->endpoint.name, port.port);
        }
        if (index && port.input) {
            names[{*index, kMonitoredInput}] = NameOr(port.input->endpoint.name, port.port);
        }
    }
    return names;
}

std::string MonitorTitle() {
    return Padded("TIME", 12) + Padded("PORT", 4) + Padded("SIDE", 4) + Padded("NAME", kNameWidth) + "CH " +
           Padded("MESSAGE", kMessageWidth) + "BYTES\n";
}

std::string MonitorLine(const MonitoredMessage& message, const MonitorNames& names,
                        WallClock::time_point time) {
    const std::string name = WrapText(Printable(NameOf(message, names)), kNameWidth).front();
    return Padded(TimeText(time), 12) + Padded(std::to_string(ShownPortNumber(message.port)), 4) +
           Padded(SideText(message.side), 4) + Padded(name, kNameWidth) +
           RightPadded(ChannelText(message), 2) + Padded(MessageText(message.bytes), kMessageWidth) +
           FirstBytes(message.bytes) + "\n";
}

std::string MonitorJson(const MonitoredMessage& message, const MonitorNames& names,
                        WallClock::time_point time) {
    const auto microseconds =
        std::chrono::duration_cast<std::chrono::microseconds>(time.time_since_epoch()).count();
    Json json = {{"time", static_cast<double>(microseconds) / 1e6},
                 {"port", ShownPortNumber(message.port)},
                 {"side", SideText(message.side)},
                 {"name", NameOf(message, names)}};
    if (const std::optional<int> channel = ChannelOf(message.bytes)) {
        json["channel"] = *channel;
    }
    json["message"] = MessageText(message.bytes);
    json["bytes"] = BytesText(message.bytes);
    return JsonLine(json);
}

std::string LeftOutLine(std::uint32_t pieces) {
    return "! " + std::to_string(pieces) +
           (pieces == 1 ? " message or part of one was left out.\n"
                        : " messages or parts of them were left out.\n");
}

std::string LeftOutJson(std::uint32_t pieces) {
    return JsonLine({{"leftOut", pieces}});
}

}  // namespace vexil
