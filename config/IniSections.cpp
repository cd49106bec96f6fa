#include "config/IniSections.h"

#include <algorithm>
#include <iterator>

#include "config/IniLine.h"

namespace vexil {

void IniSections::Clear() {
    headers.clear();
    firstOf.clear();
}

void IniSections::Append(Position line) {
    std::string_view name;
    if (HeaderName(*line, name)) {
        const Order order = headers.empty() ? kGap : headers.back().order + kGap;
        headers.push_back({order, line});
        firstOf.try_emplace(name, order);
    }
}

bool IniSections::Find(std::string_view name, Body& body) const {
    const auto first = firstOf.find(name);
    if (first == firstOf.end()) {
        return false;
    }
    const auto header = std::partition_point(headers.begin(), headers.end(),
                                             [&](const Header& each) { return each.order < first->second; });
    const auto next = std::next(header);
    body = {std::next(header->line), next == headers.end() ? lines.end() : next->line,
            static_cast<std::size_t>(header - headers.begin())};
    return true;
}

void IniSections::Insert(Position line, const Body& body) {
    std::string_view name;
    if (!HeaderName(*line, name)) {
        return;
    }
    const Order before = headers[body.header].order;
    const std::size_t next = body.header + 1;
    const Order after = next == headers.size() ? before + 2 * kGap : headers[next].order;
    const Order order = before + (after - before) / 2;
    if (order == before) {
        Rebuild();
        return;
    }
    headers.insert(headers.begin() + static_cast<std::ptrdiff_t>(next), {order, line});
    const auto [first, isNew] = firstOf.try_emplace(name, order);
    if (!isNew && order < first->second) {
        first->second = order;
    }
}

// The gap has been used up.
void IniSections::Rebuild() {
    Clear();
    for (Position line = lines.begin(); line != lines.end(); ++line) {
        Append(line);
    }
}

}  // namespace vexil
