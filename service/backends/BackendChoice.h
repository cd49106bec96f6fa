// Which MIDI system the service goes by: the one that was asked for, or the one that is there.
#pragma once

#include <memory>
#include <string>

#include "service/backends/MidiBackend.h"
#include "service/backends/RuntimeState.h"

namespace vexil {

// The device through which programs reach the ALSA sequencer.
inline constexpr const char* kSequencerDevice = "/dev/snd/seq";

// "alsa", "jack" or "none" for what was asked for; when that is empty, "alsa" where the sequencer's device
// can be opened, else "jack", whose server may come later. What this program was built without is not chosen.
std::string ChooseBackend(const std::string& asked, const std::string& sequencerDevice = kSequencerDevice);

// The back end of that name. Null, with one sentence in `problem`, when the name is unknown or this program
// was built without it. `state` is what the service before this one has left.
std::unique_ptr<MidiBackend> MakeBackend(const std::string& name, std::string& problem,
                                         const RuntimeState& state = {});

}  // namespace vexil
