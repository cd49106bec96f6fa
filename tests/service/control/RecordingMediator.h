// A driver for tests of the control channel: writes down what it is asked and answers as it is told.
#pragma once

#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <vector>

#include "service/control/ControlServer.h"

namespace vexil {

class RecordingMediator : public ControlServer::Mediator {
  public:
    // What was asked, in order: "attached", "detached", "set 191: 19 00 00 00", "get 202", "status",
    // "reload", "network pin studio", "watched", "unwatched", "panic", "monitored",
    // "unmonitored", "refused".
    std::vector<std::string> asked;
    std::map<std::uint32_t, int> errors;  // of set and get options
    std::vector<std::uint8_t> data = {1, 2, 3};
    std::string status = "{}";
    std::string networkAnswer = "{}";
    std::uint32_t statusNumber = 1;

    void PanelAttached(pid_t) override { asked.push_back("attached"); }
    void PanelDetached() override { asked.push_back("detached"); }
    int SetOption(std::uint32_t option, std::span<const std::uint8_t> payload) override {
        constexpr const char* kDigits = "0123456789ABCDEF";
        std::string line = "set " + std::to_string(option) + ":";
        for (const std::uint8_t byte : payload.first(std::min<std::size_t>(payload.size(), 16))) {
            line += {' ', kDigits[byte / 16], kDigits[byte % 16]};
        }
        asked.push_back(line);
        return errors[option];
    }
    int GetOption(std::uint32_t option, std::vector<std::uint8_t>& found) override {
        asked.push_back("get " + std::to_string(option));
        found = data;
        return errors[option];
    }
    std::string Status(std::size_t first) override {
        asked.push_back(first == 0 ? "status" : "status from " + std::to_string(first));
        return status;
    }
    int Reload() override {
        asked.push_back("reload");
        return 0;
    }
    std::string Network(const std::vector<std::string>& words) override {
        std::string line = "network";
        for (const std::string& word : words) {
            line += " " + word;
        }
        asked.push_back(line);
        return networkAnswer;
    }
    void StatusWatched(bool watched) override { asked.push_back(watched ? "watched" : "unwatched"); }
    std::uint32_t StatusNumber() override { return statusNumber; }
    std::string Panic() override {
        asked.push_back("panic");
        return R"({"done":"It is quiet."})";
    }
    void Monitored(bool on) override { asked.push_back(on ? "monitored" : "unmonitored"); }
    void ClientRefused(pid_t, uid_t) override { asked.push_back("refused"); }
};

}  // namespace vexil
