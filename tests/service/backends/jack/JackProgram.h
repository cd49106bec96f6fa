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

  private:
    bool ConnectByName(const char* source, const char* destination);
    void WaitUntilConnected() const;
    static int Process(jack_nframes_t frames, void* program);
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
};

}  // namespace vexil
