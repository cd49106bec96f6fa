// Usage: music_program NAME WRITERS READERS
//
// A music program on JACK that is told by lines on its standard input what to do, and answers each with one
// line of JSON. It ends with its standard input. Ports: NAME:out-0 and on, NAME:in-0 and on.
//
//   connect FROM<tab>TO               {"ok":true}; also when they are connected already
//   ports                             {"written":["Vexil III:..."],"read":[...]}: those of vexil3 that
//   programs write to, and read listen                            from now on
//   {"heard":READER,"time":NANOSECONDS,"bytes":"903C40"} for each event write WRITER HEX                  one
//   message pattern WRITER READER SEED RATE   RATE messages a second, which the reader compares with what
//   must come wild WRITER SEED RATE             notes, pedals, wheels, held and let go rest, release silence
//   at once; after everything was put back that a wild player has left go                                ends
//   either report                            {"writers":[...],"readers":[...]}
//
// Without being asked it tells the end of the server: {"event":"shutdown"}. A server that is not there: exit
// status 1.
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cstdio>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>

#include "tests/system/music/MusicClient.h"

namespace {

using nlohmann::json;
using namespace vexil;

void Answer(const json& line) {
    std::puts(line.dump().c_str());
    std::fflush(stdout);
}

std::string Hex(const MidiBytes& bytes) {
    std::string text;
    for (const std::uint8_t byte : bytes) {
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02X", byte);
        text += digits;
    }
    return text;
}

MidiBytes FromHex(const std::string& text) {
    MidiBytes bytes;
    for (std::size_t i = 0; i + 1 < text.size(); i += 2) {
        bytes.push_back(static_cast<std::uint8_t>(std::stoi(text.substr(i, 2), nullptr, 16)));
    }
    return bytes;
}

json Report(const MusicClient& client) {
    json writers = json::array();
    for (const auto& one : client.Writers()) {
        writers.push_back({{"messages", one.messages}, {"realtime", one.realtime}, {"idle", one.isIdle}});
    }
    json readers = json::array();
    for (const auto& one : client.Readers()) {
        readers.push_back({{"messages", one.messages},
                           {"pattern", one.patternMessages},
                           {"realtime", one.realtime},
                           {"fault", one.fault},
                           {"sounding", one.sounding},
                           {"connections", one.connections}});
    }
    return {{"writers", writers}, {"readers", readers}};
}

json Obey(MusicClient& client, const std::string& line) {
    std::istringstream words(line);
    std::string command;
    words >> command;
    std::size_t writer = 0;
    if (command == "connect" || command == "disconnect") {
        std::string from;
        std::string to;
        std::getline(words >> std::ws, from, '\t');
        std::getline(words, to);
        return {{"ok", command == "connect" ? client.Connect(from, to) : client.Disconnect(from, to)}};
    }
    if (command == "ports") {
        return {{"written", client.Ports("^Vexil III:", true)}, {"read", client.Ports("^Vexil III:", false)}};
    }
    if (command == "report") {
        return Report(client);
    }
    if (command == "listen") {
        client.Listen();
    } else if (command == "write") {
        std::string bytes;
        words >> writer >> bytes;
        client.Write(writer, FromHex(bytes));
    } else if (command == "pattern" || command == "wild") {
        std::uint32_t seed = 0;
        double rate = 0;
        words >> writer >> seed >> rate;
        command == "wild" ? client.PlayWildly(writer, seed, rate) : client.PlayPattern(writer, seed, rate);
    } else if (command == "expect") {
        std::size_t reader = 0;
        std::uint32_t seed = 0;
        words >> reader >> seed;
        client.ExpectPattern(reader, seed);
    } else if (command == "rest" || command == "release") {
        client.Rest(command == "release");
    } else if (command == "go") {
        client.GoOn();
    } else {
        return {{"ok", false}};
    }
    return {{"ok", true}};
}

// Reads what has come in at standard input and obeys the whole lines of it; false at the end.
bool ObeyInput(MusicClient& client, std::string& pending) {
    char piece[4096];
    const ssize_t count = read(STDIN_FILENO, piece, sizeof piece);
    if (count <= 0) {
        return false;
    }
    pending.append(piece, static_cast<std::size_t>(count));
    for (std::size_t end = pending.find('\n'); end != std::string::npos; end = pending.find('\n')) {
        Answer(Obey(client, pending.substr(0, end)));
        pending.erase(0, end + 1);
    }
    return true;
}

void Serve(MusicClient& client, int wake) {
    std::string pending;
    bool toldEnd = false;
    for (;;) {
        pollfd sources[] = {{STDIN_FILENO, POLLIN, 0}, {wake, POLLIN, 0}};
        if (poll(sources, 2, -1) < 0) {
            continue;
        }
        if (sources[1].revents != 0) {
            eventfd_t count = 0;
            eventfd_read(wake, &count);
            for (const auto& one : client.TakeHeard()) {
                Answer({{"heard", one.reader}, {"time", one.time}, {"bytes", Hex(one.bytes)}});
            }
            if (client.ServerHasGone() && !toldEnd) {
                toldEnd = true;
                Answer({{"event", "shutdown"}});
            }
        }
        if (sources[0].revents != 0 && !ObeyInput(client, pending)) {
            return;
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 4) {
        std::fputs("Usage: music_program NAME WRITERS READERS\n", stderr);
        return 2;
    }
    const auto quiet = [](const char*) {};
    jack_set_error_function(quiet);
    jack_set_info_function(quiet);
    const int wake = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    MusicClient client(argv[1], std::stoul(argv[2]), std::stoul(argv[3]), wake);
    if (!client.IsOpen()) {
        return 1;
    }
    Answer({{"event", "ready"}});
    Serve(client, wake);
    return 0;
}
