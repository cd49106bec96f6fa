#include "driver/HostInfos.h"

#include <algorithm>
#include <cstring>

namespace vexil {

namespace {

constexpr std::size_t kTagStep = 7;  // from tag 'A' to 'L' and from 'L' to 'E'
constexpr std::size_t kEndStep = 3;  // from tag 'E' to the next record

bool IsAt(const std::uint8_t* bytes, std::size_t size, std::size_t offset, char tag) {
    return offset < size && bytes[offset] == static_cast<std::uint8_t>(tag);
}

}  // namespace

HostInfos ParseHostInfos(const std::uint8_t* bytes, std::size_t size) {
    HostInfos infos;
    std::size_t record = 0;
    while (IsAt(bytes, size, record, 'N')) {
        const std::uint8_t* name = bytes + record + 1;
        const void* end = std::memchr(name, 0, size - record - 1);
        if (end == nullptr) {
            break;
        }
        infos.names.push_back(reinterpret_cast<const char*>(name));

        const std::size_t tagA = static_cast<std::size_t>(static_cast<const std::uint8_t*>(end) - bytes) + 1;
        const std::size_t tagL = tagA + kTagStep;
        const std::size_t tagE = tagL + kTagStep;
        if (!IsAt(bytes, size, tagA, 'A') || !IsAt(bytes, size, tagL, 'L') || !IsAt(bytes, size, tagE, 'E')) {
            break;
        }
        record = tagE + kEndStep;
    }
    // A last record whose final bytes lie beyond the end would put the end of the records beyond it, too.
    if (record > 0) {
        infos.cachedLength = std::min(record + 1, size);
    }
    return infos;
}

}  // namespace vexil
