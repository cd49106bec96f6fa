#include "service/backends/ConnectionMemory.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <string_view>
#include <utility>

#include "shared/System/svLog.h"

namespace vexil {

namespace {

constexpr std::string_view kOutput = "output ";
constexpr std::string_view kInput = "input ";

// A name with a line end would be read as another line.
bool CanBeKept(const std::string& name) {
    return !name.empty() && name.find_first_of("\n\r") == std::string::npos;
}

}  // namespace

ConnectionMemory::ConnectionMemory(std::string filePath) : path(std::move(filePath)) {
    if (!path.empty()) {
        Load();
    }
}

// A line is "output 0 NAME" or "input 0 NAME", with the index of the port. Others are left out.
void ConnectionMemory::Load() {
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
        const std::string_view text = line;
        const bool output = text.starts_with(kOutput);
        if (!output && !text.starts_with(kInput)) {
            continue;
        }
        const char* begin = line.data() + (output ? kOutput : kInput).size();
        const char* end = line.data() + line.size();
        int port = -1;
        const std::from_chars_result number = std::from_chars(begin, end, port);
        if (number.ec == std::errc() && port >= 0 && port < kMaxPorts && number.ptr != end &&
            *number.ptr == ' ') {
            Remember(NamesOf(port, output), std::string(number.ptr + 1, end));
        }
    }
    isChanged = false;
}

void ConnectionMemory::Remember(Names& of, const std::string& name) {
    if (!of.contains(name) && of.size() < kMostNames && CanBeKept(name)) {
        of.emplace(name, Remembered());
        isChanged = true;
    }
}

std::vector<std::string> ConnectionMemory::Look(int port, bool output, const std::set<std::string>& connected,
                                                const std::function<bool(const std::string&)>& isThere,
                                                Clock::time_point now) {
    Names& of = NamesOf(port, output);
    for (const std::string& name : connected) {
        Remember(of, name);
    }
    std::vector<std::string> toConnect;
    for (auto one = of.begin(); one != of.end();) {
        auto& [name, state] = *one;
        bool isForgotten = false;
        if (connected.contains(name)) {
            state = {};
            state.seen = true;
        } else if (!isThere(name)) {
            state = {};
        } else if (!state.seen) {
            const bool isDue = !state.retry || now >= *state.retry;
            if (isDue && !std::exchange(state.tried, true)) {
                state.retry.reset();
                toConnect.push_back(name);
            }
        } else if (!state.missed) {
            state.missed = now;
        } else {
            isForgotten = now - *state.missed >= kGoing;
        }
        isChanged |= isForgotten;
        one = isForgotten ? of.erase(one) : std::next(one);
    }
    return toConnect;
}

bool ConnectionMemory::Failed(int port, bool output, const std::string& name, Clock::time_point now) {
    Names& of = NamesOf(port, output);
    const auto found = of.find(name);
    if (found == of.end() || ++found->second.failures >= kMostTries) {
        return false;
    }
    found->second.tried = false;
    found->second.retry = now + kRetry;
    return true;
}

void ConnectionMemory::Renew(int port, bool output) {
    for (auto& [name, state] : NamesOf(port, output)) {
        state = {};
    }
}

std::optional<ConnectionMemory::Clock::time_point> ConnectionMemory::NextLook() const {
    std::optional<Clock::time_point> next;
    for (const auto& side : names) {
        for (const Names& of : side) {
            for (const auto& [name, state] : of) {
                const std::optional<Clock::time_point> due =
                    state.missed ? std::optional(*state.missed + kGoing) : state.retry;
                if (due) {
                    next = std::min(next.value_or(*due), *due);
                }
            }
        }
    }
    return next;
}

std::string ConnectionMemory::Text() const {
    std::string text;
    for (const bool output : {true, false}) {
        const auto& side = names[output ? 1 : 0];
        for (std::size_t port = 0; port < side.size(); ++port) {
            for (const auto& [name, state] : side[port]) {
                text += std::string(output ? kOutput : kInput) + std::to_string(port) + " " + name + "\n";
            }
        }
    }
    return text;
}

// It need not outlast the computer's end, so nothing is synchronised; but it is never half a file.
void ConnectionMemory::Save() {
    if (path.empty() || !std::exchange(isChanged, false)) {
        return;
    }
    const std::string next = path + ".new";
    std::ofstream file(next, std::ios::trunc);
    file << Text();
    file.close();
    if ((!file || ::rename(next.c_str(), path.c_str()) != 0) && !std::exchange(hasFailed, true)) {
        LogPrintf("The connections cannot be remembered in %s: %s.\n", path.c_str(), std::strerror(errno));
    }
}

}  // namespace vexil
