// The command line of vexil3d.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "service/network/InterfaceChoice.h"

namespace vexil {

struct ServiceArguments {
    enum class Task { Serve, Help, Version };

    Task task = Task::Serve;
    std::string midi;                        // "alsa", "jack" or "none"; empty: what there is
    std::optional<InterfaceChoice> network;  // null: as it is stored
};

inline constexpr const char* kServiceHelp =
    "Usage: vexil3d [--midi alsa|jack|none] [--network on|off|lo|INTERFACE,...]\n"
    "Gives music programs the 64 ports of Vexil III and serves its control panel, until it is ended.\n"
    "The service manager starts it as vexil3d.service.\n"
    "\n"
    "  --midi SYSTEM    through which MIDI system the ports are there: alsa, jack (also PipeWire's), or "
    "none.\n"
    "                   Without it ALSA where the computer has its sequencer, else JACK.\n"
    "  --network WHERE  on which network interfaces it speaks to other computers: on (all), off, lo (this\n"
    "                   computer alone), or names of interfaces with commas. Without it as \"vexil3ctl "
    "network\"\n"
    "                   has stored it; off at first.\n"
    "  --help           print this text\n"
    "  --version        print the version\n"
    "\n"
    "SIGHUP reads the configuration again; SIGTERM and SIGINT end the service.\n";

// The arguments without the program's name; null, with a sentence for the user in `problem`, when they make
// no sense.
std::optional<ServiceArguments> ReadServiceArguments(const std::vector<std::string>& texts,
                                                     std::string& problem);

}  // namespace vexil
