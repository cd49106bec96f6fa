#include "service/network/NameLookups.h"

#include <algorithm>
#include <utility>

namespace vexil {

namespace {

constexpr std::uint64_t kRetry = 1'000'000;

}  // namespace

void NameLookups::Want(std::uint64_t now, const std::string& name) {
    if (names.count(name) == 0 && names.size() < kMostNames) {
        Name& wanted = names[name];
        wanted.wantedAs = ++lastWanted;
        wanted.due = now;
        Serve(now);
    }
}

void NameLookups::Drop(std::uint64_t now, const std::string& name) {
    if (names.erase(name) > 0) {
        Serve(now);
    }
}

void NameLookups::Renew(std::uint64_t now) {
    for (auto& [text, name] : names) {
        name.due = now;
        name.ticket = 0;  // what is under way was asked of the network as it was
    }
    Serve(now);
}

const std::vector<NetworkAddress>* NameLookups::Find(const std::string& name) const {
    const auto found = names.find(name);
    return found == names.end() || !found->second.known ? nullptr : &*found->second.known;
}

std::size_t NameLookups::Busy(std::uint64_t now) const {
    return static_cast<std::size_t>(std::count_if(underWay.begin(), underWay.end(), [now](const auto& each) {
        return now - each.second.begun < kPatience;
    }));
}

void NameLookups::Serve(std::uint64_t now) {
    while (now >= retryAt && Busy(now) < kAtOnce) {
        auto next = names.end();
        for (auto each = names.begin(); each != names.end(); ++each) {
            const bool isDue = each->second.ticket == 0 && now >= each->second.due;
            if (isDue && (next == names.end() || each->second.wantedAs > next->second.wantedAs)) {
                next = each;
            }
        }
        if (next == names.end()) {
            return;
        }
        if (!resolver.Begin(++lastTicket, next->first)) {
            retryAt = now + kRetry;
            return;
        }
        next->second.ticket = lastTicket;
        underWay[lastTicket] = {next->first, now};
    }
}

bool NameLookups::HandleAnswers(std::uint64_t now) {
    bool hasNews = false;
    while (std::optional<ResolverAnswer> answer = resolver.Take()) {
        const auto ended = underWay.find(answer->ticket);
        if (ended == underWay.end()) {
            continue;
        }
        const auto name = names.find(ended->second.name);
        if (name != names.end() && name->second.ticket == answer->ticket) {
            name->second.ticket = 0;
            name->second.due = now + (answer->addresses.empty() ? kUnknownFor : kKnownFor);
            name->second.known = std::move(answer->addresses);
            hasNews = true;
        }
        underWay.erase(ended);
    }
    Serve(now);
    return hasNews;
}

std::optional<std::uint64_t> NameLookups::PollTimeout() const {
    std::optional<std::uint64_t> first;
    for (const auto& [text, name] : names) {
        if (name.ticket == 0) {
            first = first ? std::min(*first, name.due) : name.due;
        }
    }
    if (!first) {
        return std::nullopt;
    }
    // While every place is taken, the next one is free when an answer comes or patience ends.
    std::vector<std::uint64_t> ends;
    for (const auto& [ticket, look] : underWay) {
        ends.push_back(look.begun + kPatience);
    }
    std::sort(ends.begin(), ends.end());
    const std::uint64_t free = ends.size() < kAtOnce ? 0 : ends[ends.size() - kAtOnce];
    return std::max({*first, retryAt, free});
}

}  // namespace vexil
