// A resolver in memory that knows what it is given.
#pragma once

#include <sys/eventfd.h>

#include <algorithm>
#include <deque>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "service/network/Resolver.h"
#include "shared/System/Descriptor.h"

namespace vexil {

class MemoryResolver : public Resolver {
  public:
    void Know(const std::string& name, std::vector<NetworkAddress> addresses) {
        known[name] = std::move(addresses);
    }
    // From now on no answer comes; those that are kept back come when this ends.
    void Hold(bool on) {
        holds = on;
        if (!holds) {
            for (const auto& [ticket, name] : std::exchange(held, {})) {
                Answer(ticket, name);
            }
        }
    }
    // Names that were asked for, in this order.
    const std::vector<std::string>& Asked() const { return asked; }

    int EventDescriptor() const override { return event.Number(); }
    bool Begin(std::uint64_t ticket, const std::string& name) override {
        asked.push_back(name);
        if (holds) {
            held.emplace_back(ticket, name);
        } else {
            Answer(ticket, name);
        }
        return true;
    }
    std::optional<ResolverAnswer> Take() override {
        if (answers.empty()) {
            eventfd_t ignored = 0;
            static_cast<void>(!eventfd_read(event.Number(), &ignored));
            return std::nullopt;
        }
        ResolverAnswer answer = std::move(answers.front());
        answers.pop_front();
        return answer;
    }

  private:
    void Answer(std::uint64_t ticket, const std::string& name) {
        const auto found = known.find(name);
        answers.push_back({ticket, found == known.end() ? std::vector<NetworkAddress>() : found->second});
        static_cast<void>(!eventfd_write(event.Number(), 1));
    }

    std::map<std::string, std::vector<NetworkAddress>> known;
    std::vector<std::string> asked;
    std::deque<ResolverAnswer> answers;
    std::vector<std::pair<std::uint64_t, std::string>> held;
    bool holds = false;
    Descriptor event{eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)};
};

}  // namespace vexil
