// A music program as the tests need it: one place to write from, one place to read at, and connections to
// endpoints by the addresses that programs see. Each MIDI system has its own.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace vexil {

class MidiProgram {
  public:
    using Bytes = std::vector<std::uint8_t>;

    // Closes the program, with its connections.
    virtual ~MidiProgram() = default;

    // The addresses of the service's endpoints that stand in the listing of ports: those that programs write
    // to (`outputs`) or those that they read from.
    virtual std::vector<std::string> Listed(bool outputs) = 0;
    // Connects what this program writes to an endpoint; false when the address has no endpoint.
    virtual bool WriteTo(const std::string& address) = 0;
    // Connects an endpoint to what this program reads.
    virtual bool ReadFrom(const std::string& address) = 0;
    // Ends every connection of this program.
    virtual void Disconnect() = 0;
    // One whole message, or one piece of a system exclusive message. Never waits; leaves in the order
    // written.
    virtual void Write(const Bytes& bytes) = 0;
    // What has been heard since the last call, as one stream of bytes.
    virtual Bytes Read() = 0;
};

}  // namespace vexil
