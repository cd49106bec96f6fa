// A library to be loaded before JACK's, by LD_PRELOAD, into any program on JACK. It writes down what JACK
// gives the program and what the program gives JACK, cycle by cycle, in the file that the environment
// variable CYCLE_RECORD names. So a test can tell what the program has lost from what JACK has. One line
// each:
//
//   FRAME r PORT HEX    an event that the program has read, in the cycle that begins at FRAME
//   FRAME w PORT HEX    an event that was at a port to write to when the cycle ended
//   FRAME missed COUNT  the cycle begins COUNT frames later than the one before has ended
//
// One client at a time. The file should lie in memory: the process thread writes to it.
#include <dlfcn.h>
#include <fcntl.h>
#include <jack/jack.h>
#include <jack/midiport.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

template <class Function>
Function* Next(Function*, const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

struct Used {
    jack_port_t* port;
    void* buffer;
};

class CycleRecord {
  public:
    CycleRecord() {
        lines.reserve(1 << 20);
        used.reserve(1024);
        copies.reserve(1 << 20);
        const char* path = std::getenv("CYCLE_RECORD");
        file = path == nullptr ? -1 : ::open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    }

    void SetCallback(jack_client_t* opened, JackProcessCallback called, void* calledFor) {
        client = opened;
        callback = called;
        argument = calledFor;
        hasBegun = false;
    }

    static int Process(jack_nframes_t frames, void* self) {
        return static_cast<CycleRecord*>(self)->Cycle(frames);
    }

    // The program is given a copy of what is written down: where JACK does not wait for late programs, the
    // writer may be at its next cycle already and write over what is being read.
    void Read(const void* buffer, jack_midi_event_t& event) {
        const auto found = std::find_if(used.begin(), used.end(),
                                        [buffer](const Used& one) { return one.buffer == buffer; });
        if (isInCycle && found != used.end() && !IsWritten(*found) &&
            copies.size() + event.size <= copies.capacity()) {
            jack_midi_data_t* copy = copies.data() + copies.size();
            copies.insert(copies.end(), event.buffer, event.buffer + event.size);
            event.buffer = copy;
            AddEvent(*found, event);
        }
    }

    void Use(jack_port_t* port, void* buffer) {
        if (isInCycle && buffer != nullptr) {
            used.push_back({port, buffer});
        }
    }

  private:
    int Cycle(jack_nframes_t frames) {
        lines.clear();
        used.clear();
        copies.clear();
        begin = jack_last_frame_time(client);
        if (hasBegun && begin != end) {
            lines +=
                std::to_string(begin) + " missed " + std::to_string(static_cast<int>(begin - end)) + "\n";
        }
        hasBegun = true;
        end = begin + frames;
        isInCycle = true;
        const int result = callback(frames, argument);
        isInCycle = false;
        std::sort(used.begin(), used.end(), [](const Used& a, const Used& b) { return a.port < b.port; });
        used.erase(std::unique(used.begin(), used.end(),
                               [](const Used& a, const Used& b) { return a.port == b.port; }),
                   used.end());
        for (const Used& one : used) {
            if (IsWritten(one)) {
                AddEvents(one);
            }
        }
        if (file >= 0 && !lines.empty()) {
            // What cannot be written is missing in the record, and the test says so.
            static_cast<void>(::write(file, lines.data(), lines.size()));
        }
        return result;
    }

    static bool IsWritten(const Used& one) { return (jack_port_flags(one.port) & JackPortIsOutput) != 0; }

    void AddEvents(const Used& one) {
        const std::uint32_t count = jack_midi_get_event_count(one.buffer);
        for (std::uint32_t index = 0; index < count; ++index) {
            jack_midi_event_t event{};
            if (jack_midi_event_get(&event, one.buffer, index) == 0) {
                AddEvent(one, event);
            }
        }
    }

    void AddEvent(const Used& one, const jack_midi_event_t& event) {
        std::string name = jack_port_short_name(one.port);
        std::replace(name.begin(), name.end(), ' ', '_');
        lines += std::to_string(begin) + (IsWritten(one) ? " w " : " r ") + name + " ";
        for (std::size_t i = 0; i < event.size; ++i) {
            char digits[3];
            std::snprintf(digits, sizeof digits, "%02X", event.buffer[i]);
            lines += digits;
        }
        lines += "\n";
    }

    int file = -1;
    jack_client_t* client = nullptr;
    JackProcessCallback callback = nullptr;
    void* argument = nullptr;
    bool hasBegun = false;
    jack_nframes_t begin = 0;
    jack_nframes_t end = 0;  // of the last cycle
    std::string lines;
    std::vector<Used> used;
    std::vector<jack_midi_data_t> copies;  // of this cycle's events; never grows
    static inline thread_local bool isInCycle = false;
};

CycleRecord& Record() {
    static CycleRecord record;
    return record;
}

}  // namespace

extern "C" int jack_set_process_callback(jack_client_t* client, JackProcessCallback callback,
                                         void* argument) {
    Record().SetCallback(client, callback, argument);
    return Next(jack_set_process_callback, "jack_set_process_callback")(client, CycleRecord::Process,
                                                                        &Record());
}

extern "C" void* jack_port_get_buffer(jack_port_t* port, jack_nframes_t frames) {
    static auto* const kNext = Next(jack_port_get_buffer, "jack_port_get_buffer");
    void* buffer = kNext(port, frames);
    Record().Use(port, buffer);
    return buffer;
}

extern "C" int jack_midi_event_get(jack_midi_event_t* event, void* buffer, std::uint32_t index) {
    static auto* const kNext = Next(jack_midi_event_get, "jack_midi_event_get");
    const int result = kNext(event, buffer, index);
    if (result == 0) {
        Record().Read(buffer, *event);
    }
    return result;
}
