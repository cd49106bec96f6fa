// Which ports of programs were connected to the service's endpoints, kept in a file until the computer is
// switched off: a service that starts anew, or a MIDI system that does, connects them again. What somebody
// disconnects is forgotten; what a port loses by going is not, for it may come back.
//
// Knows no MIDI system: it is told what is connected and which ports are there, and says what is to be
// connected. One thread at a time.
#pragma once

#include <array>
#include <chrono>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "config/DriverConfiguration.h"

namespace vexil {

class ConnectionMemory {
  public:
    using Clock = std::chrono::steady_clock;

    // A port that is missed and still there after this time was disconnected by somebody. A program that ends
    // is disconnected first and gone a moment later.
    static constexpr std::chrono::milliseconds kGoing{500};
    static constexpr std::chrono::milliseconds kRetry{100};
    static constexpr int kMostTries = 50;
    // For each endpoint; the first ones are kept.
    static constexpr std::size_t kMostNames = 64;

    // Takes up what `filePath` holds. A file that cannot be read or written is told of in the log, once; an
    // empty path is no file.
    explicit ConnectionMemory(std::string filePath);

    // An endpoint has been looked at: to it the ports `connected` are connected, by their names, and
    // `isThere` tells of any port whether it is there. Returns those that are to be connected to it, each
    // once until it has gone and come again.
    std::vector<std::string> Look(int port, bool output, const std::set<std::string>& connected,
                                  const std::function<bool(const std::string&)>& isThere,
                                  Clock::time_point now);
    // What Look gave could not be connected: it is given again after kRetry, kMostTries times. A program's
    // ports come a moment before they can be connected. False when that was the last time.
    bool Failed(int port, bool output, const std::string& name, Clock::time_point now);
    // The endpoint has just come: whatever it lacks, nobody has disconnected.
    void Renew(int port, bool output);
    // When to look again though nothing has changed; none when that would tell nothing.
    std::optional<Clock::time_point> NextLook() const;
    // Writes what has changed since the last time.
    void Save();

  private:
    struct Remembered {
        bool seen = false;   // connected, since the endpoint has come
        bool tried = false;  // given to the caller to be connected
        int failures = 0;
        std::optional<Clock::time_point> retry;   // not to be given before
        std::optional<Clock::time_point> missed;  // there and not connected since
    };
    using Names = std::map<std::string, Remembered>;

    Names& NamesOf(int port, bool output) { return names[output ? 1 : 0][static_cast<std::size_t>(port)]; }
    void Load();
    void Remember(Names& of, const std::string& name);
    std::string Text() const;

    const std::string path;
    std::array<std::array<Names, kMaxPorts>, 2> names;
    bool isChanged = false;
    bool hasFailed = false;
};

}  // namespace vexil
