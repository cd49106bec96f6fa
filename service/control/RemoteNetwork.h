// Seam: MIDI to and from other computers, as the service uses it. The service says what its configuration
// wants; the network says how things stand, and that this has changed.
//
// One thread, the control thread. Nothing here waits.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "config/DriverConfiguration.h"
#include "service/control/HostRecords.h"

namespace vexil {

// A way that is wanted from this computer to an input of another one.
struct RemoteWish {
    std::string computer;  // as it was set
    int port = 0;          // whose input is meant, 0 to 63
    int from = 0;          // as what the other computer hears it: a port, or kTestSourceBase + port
    bool operator==(const RemoteWish&) const = default;
};

// What this computer wants of the network.
struct RemoteWishes {
    std::vector<RemoteWish> ways;
    DriverConfiguration configuration;  // what the inputs here listen to
    std::uint64_t heard = 0;            // bit p: programs can hear the input of port p
    std::vector<std::string> names;     // of this computer; the first is announced
    bool wireless = false;              // Use Wireless: jitter of wireless interfaces is evened out
};

// How a way that is wanted stands.
struct RemoteAnswer {
    int computer = 0;      // number for Destination::Remote, from 1 on; 0: the computer is not known
    std::string problem;   // why nothing that is sent on it is heard, as one sentence; empty when it is heard
    bool passing = false;  // that is about to change by itself: it needs no line in the log
    bool operator==(const RemoteAnswer&) const = default;
};

// What one port plays to an input of the other computer, or hears from there.
struct RemoteWay {
    int from = 0;           // port that plays: here, or there when it is incoming; 0 to 63
    int to = 0;             // port whose input is meant
    bool incoming = false;  // from the other computer
    bool test = false;      // it is the test output of `from`
    std::string problem;    // why nothing of it is heard; else empty
};

// A connection with another computer, or what is done for one.
struct RemoteSession {
    std::string computer;  // as it is set here, or as it calls itself when it calls
    std::string state;     // "searching", "calling", "up", "lost", "ended" or "refused"
    bool up = false;
    std::string problem;        // why it is not up; else empty
    std::string address;        // "192.168.1.5:11188": where it is, or where it was looked for last
    std::string interface;      // by which it is reached; empty when unknown
    bool wireless = false;      // that interface is wireless
    std::string key;            // short form, when it is up
    std::uint64_t since = 0;    // when its key was remembered: seconds since 1970, or 0
    std::string needs;          // of the user here, to get up: "key" (to be accepted), "secret", or nothing
    std::uint64_t seconds = 0;  // for how long it has been in that state
    std::optional<std::uint32_t> roundTrip;  // microseconds, when up and measured
    std::uint64_t repaired = 0;              // records that were sent to it again
    std::uint64_t lost = 0;                  // messages to it that found no room
    std::uint64_t late = 0;                  // note-ons from it that came too late to be played
    std::vector<RemoteWay> ways;
};

// A computer that is not let in because its name belongs to another key.
struct RemoteRefusal {
    std::string name;
    std::string key;  // short form
};

struct RemoteStatus {
    std::string speaks;      // on which interfaces: "off", "lo", "on", or names with commas
    std::string problem;     // why it does not, though it is to; else empty
    std::string key;         // of this computer, short form; empty: it does not speak
    std::uint16_t port = 0;  // UDP; 0: it does not speak
    std::string avahi;       // why it does not find computers, as one sentence; empty: it does, or need not
    std::vector<std::string> remarks;  // what the user should know besides, each as one sentence
    std::vector<RemoteRefusal> refused;
    std::vector<RemoteSession> sessions;
};

class RemoteNetwork {
  public:
    virtual ~RemoteNetwork() = default;

    // What is wanted from now on. The same again changes nothing. Ways that are no longer wanted, and ways
    // of others to inputs that no longer admit them, have ended when this returns, as far as the engine's
    // arrivals go: what they play is released before what is posted to the engine from now on.
    virtual void SetWishes(const RemoteWishes& wishes) = 0;
    // How a way stands that is among the wishes.
    virtual RemoteAnswer Find(const RemoteWish& wish) const = 0;
    // Whether a text that was set as a computer is an address of this computer.
    virtual bool IsThisComputer(const std::string& text) const = 0;

    // UDP port on which this computer hears others; 0: it does not.
    virtual std::uint16_t Port() const = 0;
    // The other computers that are known, as the list shows them.
    virtual std::vector<HostRecord> Computers() const = 0;
    // Asks who is there.
    virtual void Browse() = 0;
    virtual RemoteStatus Status() const = 0;
    // Carries out what the user wants of the network, as docs/control-channel.md has it: `words` are a
    // command and what it needs. The answer is JSON text.
    virtual std::string Command(const std::vector<std::string>& words) = 0;

    // Readable when Serve is to be called.
    virtual int EventDescriptor() const = 0;
    // Milliseconds until Serve is to be called although nothing happens; -1: not before something does.
    virtual int Timeout() const = 0;
    // Does what there is to do. True when another answer of Find, IsThisComputer or Computers may be due.
    virtual bool Serve() = 0;
    // The service ends: takes leave of all computers.
    virtual void Stop() = 0;
};

}  // namespace vexil
