// MIDI between computers in memory: a test says how things stand.
#pragma once

#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "service/control/RemoteNetwork.h"

namespace vexil {

class MemoryRemoteNetwork : public RemoteNetwork {
  public:
    void SetWishes(const RemoteWishes& wanted) override { wishes = wanted; }
    RemoteAnswer Find(const RemoteWish& wish) const override {
        const bool isWanted = std::find(wishes.ways.begin(), wishes.ways.end(), wish) != wishes.ways.end();
        const auto found = answers.find(wish.computer);
        return isWanted && !stopped && found != answers.end()
                   ? found->second
                   : RemoteAnswer{0, "The computer \"" + wish.computer + "\" cannot be reached.", false};
    }
    bool IsThisComputer(const std::string& text) const override { return own.contains(text); }
    std::uint16_t Port() const override { return stopped ? std::uint16_t{0} : status.port; }
    std::vector<HostRecord> Computers() const override { return computers; }
    void Browse() override { ++browses; }
    RemoteStatus Status() const override {
        RemoteStatus told = status;
        if (stopped) {
            told.port = 0;
            told.sessions.clear();
        }
        return told;
    }
    std::string Command(const std::vector<std::string>& words) override {
        commands.push_back(words);
        return answerToCommands;
    }
    int EventDescriptor() const override { return -1; }
    int Timeout() const override { return -1; }
    bool Serve() override { return true; }
    void Stop() override { stopped = true; }

    RemoteWishes wishes;
    std::map<std::string, RemoteAnswer> answers;  // by the computer, as it was set
    std::set<std::string> own;
    std::vector<HostRecord> computers;
    RemoteStatus status;
    std::vector<std::vector<std::string>> commands;
    std::string answerToCommands = "{}";
    int browses = 0;
    bool stopped = false;
};

}  // namespace vexil
