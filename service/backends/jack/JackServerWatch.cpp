#include "service/backends/jack/JackServerWatch.h"

#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string_view>

namespace vexil {

namespace {

using std::chrono::milliseconds;

// A server can be reached a moment after its files have appeared, on a busy computer some seconds.
constexpr std::array kWaits = {milliseconds(20),   milliseconds(40),   milliseconds(80),  milliseconds(160),
                               milliseconds(320),  milliseconds(500),  milliseconds(500), milliseconds(1000),
                               milliseconds(1000), milliseconds(1000), milliseconds(2000)};

std::string Environment(const char* name) {
    const char* value = std::getenv(name);
    return value != nullptr ? value : "";
}

}  // namespace

std::vector<JackServerWatch::Place> JackServerWatch::UsualPlaces() {
    const std::string server = Environment("JACK_DEFAULT_SERVER");
    // The socket of the server that clients go to.
    std::vector<Place> places = {{"/dev/shm", "jack_" + (server.empty() ? "default" : server) + "_"}};
    for (const char* name : {"PIPEWIRE_RUNTIME_DIR", "XDG_RUNTIME_DIR"}) {
        const std::string folder = Environment(name);
        if (!folder.empty()) {
            const std::string remote = Environment("PIPEWIRE_REMOTE");
            places.push_back({folder, remote.empty() ? "pipewire-" : remote});
            break;
        }
    }
    return places;
}

JackServerWatch::JackServerWatch(std::vector<Place> watchedPlaces)
    : places(std::move(watchedPlaces)), events(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {
    if (!events.IsOpen()) {
        problem = std::string("The coming of a server cannot be watched for: ") + std::strerror(errno) + ".";
    }
}

void JackServerWatch::Begin(Clock::time_point now) {
    problem.clear();
    for (const Place& place : places) {
        const int number =
            ::inotify_add_watch(events.Number(), place.folder.c_str(), IN_CREATE | IN_MOVED_TO);
        if (number >= 0) {
            watched.push_back({number, place.prefix});
        } else if (errno != ENOENT) {
            problem = "The folder " + place.folder + " cannot be watched: " + std::strerror(errno) + ".";
        }
    }
    StartTrying(now);
}

void JackServerWatch::End() {
    for (const Watched& one : watched) {
        ::inotify_rm_watch(events.Number(), one.number);
    }
    watched.clear();
    nextTry.reset();
    // What has come in until now is of no interest, but would keep the descriptor readable.
    TakeEvents({});
}

void JackServerWatch::TakeEvents(Clock::time_point now) {
    alignas(inotify_event) std::array<char, 4096> buffer{};
    ssize_t length = 0;
    bool appeared = false;
    while ((length = ::read(events.Number(), buffer.data(), buffer.size())) > 0) {
        for (std::size_t at = 0; at < static_cast<std::size_t>(length);) {
            inotify_event event{};
            std::memcpy(&event, &buffer[at], sizeof event);
            const std::string_view name = event.len == 0 ? "" : &buffer[at + sizeof event];
            at += sizeof event + event.len;
            appeared |=
                (event.mask & IN_Q_OVERFLOW) != 0 ||
                std::any_of(watched.begin(), watched.end(), [&name, number = event.wd](const Watched& one) {
                    return one.number == number && !name.empty() && name.starts_with(one.prefix);
                });
        }
    }
    if (appeared && !watched.empty()) {
        StartTrying(now);
    }
}

void JackServerWatch::TryFailed(Clock::time_point now) {
    if (tries == kWaits.size()) {
        nextTry.reset();
        return;
    }
    nextTry = now + kWaits[tries++];
}

void JackServerWatch::StartTrying(Clock::time_point now) {
    nextTry = now;
    tries = 0;
}

}  // namespace vexil
