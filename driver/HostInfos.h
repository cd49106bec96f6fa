// The host list as the driver sends it: records of one computer each, then one byte that is not 'N', in a
// buffer of 8192 bytes. A pure function of the bytes; any content is read within its bounds.
//
// A record of a computer named "ab" is 21 bytes (n + 19 for a name of n bytes); the panel uses the name alone
// and the tags 'N', 'A', 'L', 'E' as framing:
//
//   'N' 'a' 'b' 0  'A' ? ? ? ? ? ?  'L' ? ? ? ? ? ?  'E' ? ?
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace vexil {

struct HostInfos {
    // The names in order, each zero-terminated inside the bytes that were read. The last one's record may be
    // broken behind its name.
    std::vector<const char*> names;
    // How many of the bytes to keep in the cache: the complete records and the one byte that ended them,
    // never more than there are. 0 when the first record is not complete: nothing is to be kept.
    std::size_t cachedLength = 0;
};

// Parses `size` bytes. A byte beyond the end counts as missing, so a name without an end is no name. Throws
// std::bad_alloc.
HostInfos ParseHostInfos(const std::uint8_t* bytes, std::size_t size);

}  // namespace vexil
