// A music program on JACK: one client with one port to write from and one to read at.
#pragma once

#include <jack/jack.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <deque>
#include <limits>
#include <mutex>
#include <string>
#include <vector>

#include "tests/doubles/MidiProgram.h"

namespace vexil {

class JackProgram : public MidiProgram {
  public:
    JackProgram();
    ~JackProgram() override;
    JackProgram(const JackProgram&) = delete;
    JackProgram& operator=(const JackProgram&) = delete;

    std::vector<std::string> Listed(bool outputs) override;
    bool WriteTo(const std::string& address) override;
    bool ReadFrom(const std::string& address) override;
    // Connects any two ports.
    bool Connect(const std::string& source, const std::string& destination) {
        return ConnectByName(source.c_str(), destination.c_str());
    }
    // Its own ports.
    std::string Source() const { return jack_port_name(out); }
    std::string Destination() const { return jack_port_name(in); }
    void Disconnect() override;
    void Write(const Bytes& bytes) override;
    Bytes Read() override;
    // Writes no more messages in one cycle; the others wait for the next ones.
    void WriteAtMostInACycle(std::size_t messages);
    // The next cycle in which there is something to hear waits so long before it is read.
    void BeLateWhenHeard(std::chrono::milliseconds time);
    // How often any program's own clock has left out a cycle, or a program has heard one cycle twice: the
    // MIDI system has then lost or repeated what was under way, whoever wrote it.
    static unsigned Faults() { return faults; }

  private:
    bool ConnectByName(const char* source, const char* destination);
    void WaitUntilConnected() const;
    static int Process(jack_nframes_t frames, void* program);
    void LookForFaults(jack_nframes_t frames);
    void WriteCycle(jack_nframes_t frames);
    void ReadCycle(jack_nframes_t frames);

    jack_client_t* client = nullptr;
    jack_port_t* out = nullptr;
    jack_port_t* in = nullptr;
    std::atomic<unsigned> cycles{0};  // that have begun
    std::mutex mutex;                 // of what follows
    std::deque<Bytes> toWrite;
    std::size_t mostInACycle = std::numeric_limits<std::size_t>::max();
    Bytes heard;
    std::chrono::milliseconds late{0};

    // The process thread's.
    jack_nframes_t nextCycle = 0;  // when it begins, by JACK's clock; 0: not known yet
    Bytes heardBefore;             // in the last cycle

    static inline std::atomic<unsigned> faults{0};
};

}  // namespace vexil
