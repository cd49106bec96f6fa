#include "service/backends/alsa/AlsaSlowReaders.h"

#include <algorithm>
#include <cinttypes>
#include <utility>

#include "shared/System/svLog.h"

namespace vexil {

void AlsaSlowReaders::Look(const AlsaLateness& lateness, const NameOf& nameOf, Clock::time_point now) {
    for (std::size_t client = 0; client < kAlsaClients; ++client) {
        const bool isLeftBehind = lateness.IsLeftBehind(client);
        auto found = readers.find(client);
        if (found == readers.end()) {
            if (!isLeftBehind && lateness.Missed(client) == 0) {
                continue;
            }
            found = readers.emplace(client, Reader()).first;
        }
        Reader& reader = found->second;
        if (!std::exchange(reader.isLeftBehind, isLeftBehind) && isLeftBehind) {
            reader.name = nameOf(static_cast<int>(client));
            reader.left.Add(1);
        }
        if (reader.left.Take(now) != 0) {
            LogPrintf("The program \"%s\" reads too slowly and is left behind.\n", reader.name.c_str());
        }
        if (!isLeftBehind) {
            const std::uint64_t missed = lateness.Missed(client);
            reader.lost.Add(missed - std::exchange(reader.missed, missed));
            if (const std::uint64_t lost = reader.lost.Take(now); lost != 0) {
                LogPrintf("The program \"%s\" has read too slowly and has missed %" PRIu64 " messages.\n",
                          reader.name.c_str(), lost);
            }
        }
    }
}

std::optional<AlsaSlowReaders::Clock::time_point> AlsaSlowReaders::DueAt() const {
    std::optional<Clock::time_point> due;
    for (const auto& [client, reader] : readers) {
        for (const LossSum& sum : {reader.left, reader.lost}) {
            if (const std::optional<Clock::time_point> one = sum.DueAt()) {
                due = std::min(due.value_or(*one), *one);
            }
        }
    }
    return due;
}

std::string AlsaSlowReaders::Sentence(const std::string& name, std::uint64_t missed, std::size_t others) {
    if (others != 0) {
        return "The program \"" + name + "\" and " + std::to_string(others) +
               " more read too slowly and are left behind.";
    }
    return "The program \"" + name + "\" reads too slowly and is left behind; it has missed " +
           std::to_string(missed) + (missed == 1 ? " message." : " messages.");
}

}  // namespace vexil
