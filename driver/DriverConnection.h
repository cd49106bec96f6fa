// The panel's one connection to the driver, and the state that goes with it. Opened once, closed once; there
// is no reconnection here. Every failure is one log line. Event-loop thread only.
#pragma once

#include <cstdint>

#include "driver/KernelControl.h"

namespace vexil {

class DriverConnection {
  public:
    // `kernelControl` must outlive the connection.
    explicit DriverConnection(KernelControl& kernelControl) : control(kernelControl) {}

    // Gets a socket, finds the control, connects. A socket that could not be connected stays open.
    void Open();
    // Closes what is open. Harmless when nothing is.
    void Close();

    bool IsConnected() const { return driverConnected; }

    // One command; 0, or -1 with errno.
    int SendCommand(int option, const void* payload, std::uint32_t length);
    // Reads the host infos; `length` is kHostInfosSize on entry. 0, or -1 with errno.
    int ReadHostInfos(void* buffer, std::uint32_t* length);

    // Tells a connected driver the send quantization time, in tenths of a millisecond.
    void SendQuantization(std::uint32_t sendGranularity);

    bool IsTestOutputOpen(int port) const { return (testOutActive >> port & 1) != 0; }

    std::int32_t driverSocket = -1;  // -1: not open
    bool driverConnected = false;
    bool wirelessAtStart = false;     // "Use Wireless" as loaded or last applied; stored at shutdown
    std::uint64_t testOutActive = 0;  // bit p: a test output is open on the port of index p
    std::int32_t currentPort = 0;     // index of the port shown, 0 to 63
    std::uint32_t chordIndex = 0;     // next test chord, 0 to 23

  private:
    KernelControl& control;
};

}  // namespace vexil
