// A music program on JACK with any number of ports, for whoever tells it by lines what to play: each port it
// writes from is silent, plays what it is given, keeps to a pattern or plays wildly; each port it reads at
// knows what it heard.
#pragma once

#include <jack/jack.h>

#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "tests/system/music/MidiPattern.h"
#include "tests/system/music/Sounding.h"
#include "tests/system/music/WildPlayer.h"

namespace vexil {

class MusicClient {
  public:
    // What came in at a reader, and when: on the steady clock, in nanoseconds, at the cycle's begin.
    struct Heard {
        std::size_t reader;
        std::uint64_t time;
        MidiBytes bytes;
    };
    struct WriterReport {
        std::uint64_t messages = 0;  // of its pattern
        std::uint64_t realtime = 0;
        bool isIdle = true;  // it has nothing left to say
    };
    struct ReaderReport {
        std::uint64_t messages = 0;  // events of JACK's
        std::uint64_t patternMessages = 0;
        std::uint64_t realtime = 0;
        std::string fault;
        std::string sounding;
        int connections = 0;
    };

    // Opens `name` with ports out-0 and on, in-0 and on. `wake` is called from JACK's threads when there is
    // something new: a message at a listened reader, or the end of the server.
    MusicClient(const std::string& name, std::size_t writerCount, std::size_t readerCount,
                int wakeDescriptor);
    ~MusicClient();
    MusicClient(const MusicClient&) = delete;
    MusicClient& operator=(const MusicClient&) = delete;

    bool IsOpen() const { return client != nullptr; }
    bool ServerHasGone() const;
    std::size_t WriterCount() const { return writers.size(); }
    std::size_t ReaderCount() const { return readers.size(); }

    // Returns when JACK carries what is written from then on; false when it refuses, or does not within 10 s.
    bool Connect(const std::string& from, const std::string& to);
    bool Disconnect(const std::string& from, const std::string& to);
    // The ports of other programs whose full names match a pattern.
    std::vector<std::string> Ports(const std::string& pattern, bool written) const;

    void Write(std::size_t writer, const MidiBytes& message);
    // Keeps to the pattern of the seed.
    void PlayPattern(std::size_t writer, std::uint32_t seed, double messagesPerSecond);
    // What comes in from now on ought to be that pattern.
    void ExpectPattern(std::size_t reader, std::uint32_t seed);
    void PlayWildly(std::size_t writer, std::uint32_t seed, double messagesPerSecond);
    // Ends what they play. With `release`, wild players put back what they left first.
    void Rest(bool release);
    void GoOn();
    // From now on what comes in at the readers is kept for TakeHeard.
    void Listen() { listens = true; }
    std::vector<Heard> TakeHeard();

    std::vector<WriterReport> Writers() const;
    std::vector<ReaderReport> Readers() const;

  private:
    struct Writer {
        jack_port_t* port = nullptr;
        std::deque<MidiBytes> given;
        std::optional<MidiPattern> pattern;
        std::optional<WildPlayer> wild;
        MidiBytes next;  // what had no room yet
        double perSecond = 0;
        double due = 0;  // messages
        WriterReport report;
    };
    struct Reader {
        jack_port_t* port = nullptr;
        std::optional<PatternListener> pattern;
        Sounding sounding;
        std::uint64_t messages = 0;
    };

    static int Process(jack_nframes_t frames, void* self);
    static void Shutdown(void* self);
    void WriteCycle(Writer& writer, jack_nframes_t frames);
    MidiBytes NextOf(Writer& writer);
    void ReadCycle(std::size_t number, jack_nframes_t frames);

    jack_client_t* client = nullptr;
    double sampleRate = 48000;
    const int wake;
    mutable std::mutex mutex;  // of what follows; held for moments, and a late cycle here harms nobody
    std::vector<Writer> writers;
    std::vector<Reader> readers;
    std::vector<Heard> heard;
    bool listens = false;
    bool rests = false;
    bool releases = false;
    bool serverHasGone = false;
};

}  // namespace vexil
