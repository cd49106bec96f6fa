// Host infos as a driver sends them.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace vexil {

// A complete record of one computer, length of the name + 19. The fields between the tags hold no tag and no
// zero.
inline std::vector<std::uint8_t> HostRecord(const std::string& name) {
    std::string record = "N" + name;
    record.push_back('\0');
    record += 'A' + std::string(6, '\x7F') + 'L' + std::string(6, '\x7F') + 'E' + std::string(2, '\x7F');
    return {record.begin(), record.end()};
}

inline std::vector<std::uint8_t> operator+(std::vector<std::uint8_t> left,
                                           const std::vector<std::uint8_t>& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

}  // namespace vexil
