#include "service/control/RouteText.h"

#include <cstddef>

#include "shared/System/PrintableText.h"
#include "shared/System/Utf8.h"

namespace vexil {

namespace {

constexpr std::size_t kLongestName = 64;

std::string SourceComputer(const DriverConfiguration& configuration, int port) {
    return configuration.Hosts[port].SrcHost.c_str();
}

}  // namespace

std::string PortText(int port) {
    return std::to_string(ShownPortNumber(port));
}

std::string NameText(const std::string& name) {
    std::string text = Printable(name);
    if (text.size() <= kLongestName) {
        return text;
    }
    return std::string(WholeCharacters(text, kLongestName)) + "...";
}

const char* DestinationText(Destination::Kind kind) {
    switch (kind) {
        case Destination::Kind::Input:
            return "local";
        case Destination::Kind::Remote:
            return "remote";
        default:
            return "nowhere";
    }
}

std::string RouteProblemText(const Route& route, const DriverConfiguration& configuration) {
    const std::string there = "Port " + PortText(route.port);
    switch (route.problem) {
        case RouteProblem::None:
            return "";
        case RouteProblem::NotEnabled:
            return "The output is not enabled.";
        case RouteProblem::NoTarget:
            return "No target computer is set.";
        case RouteProblem::TargetPortUnused:
            return "There is no port " + PortText(route.port) + " to send to.";
        case RouteProblem::TargetNotInput:
            return there + " is not enabled as MIDI IN.";
        case RouteProblem::TargetIsPipe:
            return there + " is a local pipe, which hears only itself.";
        case RouteProblem::WrongSourceComputer: {
            const std::string source = NameText(SourceComputer(configuration, route.port));
            return source.empty() ? there + " listens to one computer only, and none is named."
                                  : there + " listens to the computer \"" + source + "\" only.";
        }
        case RouteProblem::WrongSourcePort:
            return there + " listens to port " + PortText(configuration.PortFlags[route.port].sourcePort) +
                   " only.";
        case RouteProblem::RemoteUnreachable:
            return "The computer \"" + NameText(route.computer) + "\" cannot be reached.";
        case RouteProblem::NotHeardThere:
            return route.reason;
    }
    return "";
}

std::string LoopText(int port, const Route& route, std::uint64_t suspectedRate) {
    if (suspectedRate == 0) {
        return "";
    }
    const bool isRemote = route.destination.kind == Destination::Kind::Remote;
    return "Port " + PortText(port) + " -> " + PortText(route.port) +
           (isRemote ? " of \"" + NameText(route.computer) + "\"" : "") + " carries " +
           std::to_string(suspectedRate) + " messages a second: a loop?";
}

std::string PanicText(int inputs, int ways, const std::string& midiProblem) {
    const auto count = [](int number, const char* one, const char* more) {
        return std::to_string(number) + (number == 1 ? one : more);
    };
    std::string places;
    if (inputs != 0) {
        places = " at " + count(inputs, " input", " inputs");
    }
    if (ways != 0) {
        places += (places.empty() ? " on " : " and on ") +
                  count(ways, " way to another computer", " ways to other computers");
    }
    return "All notes are off" +
           (places.empty() ? "; no input here and no other computer hears any" : places) + "." +
           (midiProblem.empty() ? "" : " " + midiProblem);
}

}  // namespace vexil
