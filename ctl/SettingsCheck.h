// What in a settings file means nothing, or something else than it seems to: reading one is lenient and says
// nothing (config/SettingsFile.h).
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace vexil {

struct SettingsRemark {
    std::size_t line;  // of the file, from 1
    std::string text;  // a phrase, without an end; may hold what the file holds
};

struct SettingsFindings {
    std::vector<SettingsRemark> remarks;  // in the order of the lines
    bool holdsSettings = false;           // a key in a section that is read
};

// Lines that begin with ";" or "#" count as comments.
SettingsFindings CheckSettings(std::string_view text);

// Each remark as a line "FILE:LINE: TEXT"; of very many the first ones, and how many more there are.
std::string RemarkLines(const std::string& file, const std::vector<SettingsRemark>& remarks);

}  // namespace vexil
