#include "service/backends/BackendChoice.h"

#include <fcntl.h>

#include <functional>
#include <map>

#include "service/backends/none/NoneBackend.h"
#include "shared/System/Descriptor.h"
#ifdef VEXIL_ALSA
#include "service/backends/alsa/AlsaBackend.h"
#endif
#ifdef VEXIL_JACK
#include "service/backends/jack/JackBackend.h"
#endif

namespace vexil {

namespace {

using Maker = std::function<std::unique_ptr<MidiBackend>(const RuntimeState&)>;

// Those that this program was built with.
const std::map<std::string, Maker>& Makers() {
    static const std::map<std::string, Maker> kMakers = {
#ifdef VEXIL_ALSA
        {"alsa", [](const RuntimeState& state) { return std::make_unique<AlsaBackend>(state); }},
#endif
#ifdef VEXIL_JACK
        {"jack", [](const RuntimeState& state) { return std::make_unique<JackBackend>(state); }},
#endif
        {"none", [](const RuntimeState&) { return std::make_unique<NoneBackend>(); }},
    };
    return kMakers;
}

bool CanBeOpened(const std::string& device) {
    return Descriptor(::open(device.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC)).IsOpen();
}

}  // namespace

std::string ChooseBackend(const std::string& asked, const std::string& sequencerDevice) {
    if (!asked.empty()) {
        return asked;
    }
    if (Makers().contains("alsa") && CanBeOpened(sequencerDevice)) {
        return "alsa";
    }
    return Makers().contains("jack") ? "jack" : Makers().contains("alsa") ? "alsa" : "none";
}

std::unique_ptr<MidiBackend> MakeBackend(const std::string& name, std::string& problem,
                                         const RuntimeState& state) {
    const auto maker = Makers().find(name);
    if (maker != Makers().end()) {
        return maker->second(state);
    }
    const bool isKnown = name == "alsa" || name == "jack";
    problem = isKnown
                  ? "This program was built without " + std::string(name == "alsa" ? "ALSA" : "JACK") + "."
                  : "There is no MIDI system \"" + name + "\".";
    return nullptr;
}

}  // namespace vexil
