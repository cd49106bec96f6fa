#include "ctl/SettingsCheck.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <set>
#include <utility>

#include "config/DriverConfiguration.h"
#include "config/IniLine.h"

namespace vexil {

namespace {

constexpr std::array kOptionKeys = {"ShowEndpoints", "LaunchMonitor", "EnableLogging", "UseWireless"};
constexpr std::array kNameKeys = {"SrcName", "DstName", "InpName", "OutName"};
constexpr std::array kRoles = {"Input", "Output", "Pipe"};
constexpr long kKnownFlags = kSendImmediately | kSourcePortUnused | kSourceComputerUnused;

enum class Section { None, Options, General, Port, Unknown };

std::string Quoted(std::string_view text) {
    return "'" + std::string(text) + "'";
}

std::string_view Trimmed(std::string_view text) {
    constexpr const char* kBlanks = " \t\v\f\r\n";
    const std::size_t begin = text.find_first_not_of(kBlanks);
    return begin == std::string_view::npos ? std::string_view()
                                           : text.substr(begin, text.find_last_not_of(kBlanks) - begin + 1);
}

template <class Names>
bool IsOneOf(std::string_view text, const Names& names) {
    return std::find(names.begin(), names.end(), text) != names.end();
}

Section SectionOf(std::string_view name) {
    if (name == "Options") {
        return Section::Options;
    }
    if (name == "General") {
        return Section::General;
    }
    for (int port = 0; port < kPortCount; ++port) {
        svString section;
        section.Format("Port_%02d", port);
        if (name == section.c_str()) {
            return Section::Port;
        }
    }
    return Section::Unknown;
}

// What is wrong with a number from `least` to `greatest`, or "". `read` tells what any other is read as.
std::string NumberRemark(std::string_view value, long least, long greatest, long (*read)(long)) {
    const std::string text(value);
    char* end = nullptr;
    const long number = std::strtol(text.c_str(), &end, 10);
    if (end == text.c_str() || *end != '\0') {
        return Quoted(value) + " is no number and is read as " + std::to_string(read(number));
    }
    if (number < least || number > greatest) {
        return Quoted(value) + " is not from " + std::to_string(least) + " to " + std::to_string(greatest) +
               " and is read as " + std::to_string(read(number));
    }
    return "";
}

long LimitedGranularity(long number) {
    return std::clamp(number, 0L, long{kMaxSendGranularity});
}

long LowByte(long number) {
    constexpr long kLowest = -2147483647L - 1;
    return std::clamp(number, kLowest, 2147483647L) & 0xFF;
}

std::string FlagsRemark(std::string_view value) {
    std::string remark = NumberRemark(value, 0, 255, LowByte);
    if (!remark.empty()) {
        return remark;
    }
    const long unknown = std::strtol(std::string(value).c_str(), nullptr, 10) & ~kKnownFlags;
    return unknown == 0 ? "" : std::to_string(unknown) + " of the flags " + Quoted(value) + " means nothing";
}

std::string PortRemark(std::string_view value) {
    std::string remark = NumberRemark(value, 0, 255, LowByte);
    if (!remark.empty()) {
        return remark;
    }
    return std::strtol(std::string(value).c_str(), nullptr, 10) < kPortCount
               ? ""
               : Quoted(value) + " is no port: they are counted from 0 to " + std::to_string(kPortCount - 1);
}

std::string PropertiesRemark(std::string_view value) {
    while (!value.empty()) {
        const std::size_t comma = std::min(value.find(','), value.size());
        const std::string_view property = Trimmed(value.substr(0, comma));
        value.remove_prefix(std::min(comma + 1, value.size()));
        if (property.empty() || IsOneOf(property, kRoles)) {
            continue;
        }
        // Reading looks for the names anywhere in the value.
        std::string read;
        for (const char* role : kRoles) {
            if (property.find(role) != std::string_view::npos) {
                read += (read.empty() ? "" : ",") + std::string(role);
            }
        }
        return read.empty() ? Quoted(property) + " is not Input, Output or Pipe"
                            : Quoted(property) + " is read as " + read;
    }
    return "";
}

std::string OptionRemark(std::string_view value) {
    return value == "1" || value == "0" ? ""
                                        : Quoted(value) + " is neither 1 nor 0: the option stays as it is";
}

class Check {
  public:
    SettingsFindings Run(std::string_view text) {
        while (!text.empty()) {
            ReadPiece(TakePiece(text));
            const bool isWhole = text.data()[-1] == '\n';
            if (isWhole) {
                ++line;
            } else if (!text.empty() && text.front() != '\n') {
                Remark("the line is too long: what is behind byte " + std::to_string(kIniPieceLength) +
                       " is read as a line of its own");
            }
        }
        return std::move(findings);
    }

  private:
    void Remark(std::string text) { findings.remarks.push_back({line, std::move(text)}); }

    void ReadPiece(std::string_view piece) {
        const svString whole(piece.data(), static_cast<int>(piece.size()));
        std::string_view name;
        const char* value = nullptr;
        if (piece.find('\0') != std::string_view::npos) {
            Remark("holds a zero byte: 'vexil3ctl load' refuses such a file");
        } else if (HeaderName(whole, name)) {
            ReadHeader(piece, name);
        } else if (const std::string_view seen = Trimmed(piece);
                   !seen.empty() && seen.front() != ';' && seen.front() != '#') {
            if (!KeyName(whole, name, value)) {
                Remark(Quoted(seen) + " is neither a [section] nor a key=value");
            } else if (section == Section::None) {
                Remark(Quoted(name) + " stands in front of the first section");
            } else if (isRead && section != Section::Unknown) {
                ReadKey(name, Trimmed(value));
            }
        }
    }

    void ReadHeader(std::string_view piece, std::string_view name) {
        section = SectionOf(name);
        keys.clear();
        isRead = sections.insert(std::string(name)).second;
        if (section == Section::Unknown && piece.find('=') < piece.find('[')) {
            Remark("the brackets make it the header of a section: " + Quoted(Trimmed(piece)));
        } else if (section == Section::Unknown) {
            Remark("there is no section " + Quoted(name) + ": nothing in it is read");
        } else if (!isRead) {
            Remark("section " + Quoted(name) + " has been there before: this one is not read");
        }
    }

    void ReadKey(std::string_view key, std::string_view value) {
        findings.holdsSettings = true;
        if (!IsKnown(key)) {
            Remark("there is no key " + Quoted(key) + " in this section");
        } else if (!keys.insert(std::string(key)).second) {
            Remark("key " + Quoted(key) + " has been there before: this one is not read");
        } else if (const std::string remark = ValueRemark(key, value); !remark.empty()) {
            Remark(std::string(key) + ": " + remark);
        }
    }

    bool IsKnown(std::string_view key) const {
        switch (section) {
            case Section::Options:
                return IsOneOf(key, kOptionKeys);
            case Section::General:
                return key == "SendGranularity";
            default:
                return key == "Properties" || key == "Flags" || key == "SrcPort" || key == "DstPort" ||
                       IsOneOf(key, kNameKeys);
        }
    }

    std::string ValueRemark(std::string_view key, std::string_view value) const {
        if (section == Section::Options) {
            return OptionRemark(value);
        }
        if (section == Section::General) {
            return value.empty() ? "has no value: it stays as it is"
                                 : NumberRemark(value, 0, long{kMaxSendGranularity}, LimitedGranularity);
        }
        if (key == "Properties") {
            return PropertiesRemark(value);
        }
        if (key == "Flags") {
            return FlagsRemark(value);
        }
        return IsOneOf(key, kNameKeys) ? "" : PortRemark(value);
    }

    SettingsFindings findings;
    std::size_t line = 1;
    Section section = Section::None;
    bool isRead = false;             // the first section of its name
    std::set<std::string> sections;  // so far
    std::set<std::string> keys;      // of the section so far
};

}  // namespace

SettingsFindings CheckSettings(std::string_view text) {
    return Check().Run(text);
}

std::string RemarkLines(const std::string& file, const std::vector<SettingsRemark>& remarks) {
    constexpr std::size_t kMostLines = 100;
    std::string lines;
    for (std::size_t i = 0; i < std::min(remarks.size(), kMostLines); ++i) {
        const SettingsRemark& remark = remarks[i];
        lines += file + ":" + std::to_string(remark.line) + ": " + remark.text + "\n";
    }
    if (remarks.size() > kMostLines) {
        lines += file + ": and " + std::to_string(remarks.size() - kMostLines) + " more\n";
    }
    return lines;
}

}  // namespace vexil
