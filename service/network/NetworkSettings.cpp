#include "service/network/NetworkSettings.h"

#include <algorithm>
#include <array>
#include <charconv>

#include "service/network/PlainDatagram.h"

namespace vexil {

namespace {

constexpr std::string_view kSettingsMark = "vexil3 network 1\n";
constexpr std::string_view kKeyMark = "vexil3 key 1\n";
constexpr std::string_view kMachine = "machine ";
constexpr std::size_t kLongestMachine = 64;
constexpr std::array<const char*, 3> kAllowed = {"any", "known", "secret"};

using Bytes32 = std::array<std::uint8_t, 32>;

std::string Hexadecimal(const Bytes32& bytes) {
    constexpr const char* kDigits = "0123456789abcdef";
    std::string text;
    for (const std::uint8_t byte : bytes) {
        text += kDigits[byte >> 4];
        text += kDigits[byte & 0xF];
    }
    return text;
}

std::optional<Bytes32> ReadHexadecimal(std::string_view text) {
    Bytes32 bytes{};
    if (text.size() != 2 * bytes.size()) {
        return std::nullopt;
    }
    for (std::size_t place = 0; place < bytes.size(); ++place) {
        const char* begin = text.data() + 2 * place;
        const auto read = std::from_chars(begin, begin + 2, bytes[place], 16);
        if (read.ec != std::errc() || read.ptr != begin + 2) {
            return std::nullopt;
        }
    }
    return bytes;
}

std::string KeyLine(const char* word, const RememberedKey& key) {
    return std::string(word) + " " + Hexadecimal(key.key) + " " + std::to_string(key.since) + " " + key.name +
           "\n";
}

// What stands before the next blank; the text goes on behind it.
std::string_view TakeWord(std::string_view& text) {
    const std::size_t end = std::min(text.find(' '), text.size());
    const std::string_view word = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    return word;
}

std::optional<RememberedKey> ReadKeyLine(std::string_view rest) {
    RememberedKey read;
    const auto key = ReadHexadecimal(TakeWord(rest));
    const std::string_view since = TakeWord(rest);
    const char* end = since.data() + since.size();
    const auto number = std::from_chars(since.data(), end, read.since);
    if (!key || since.empty() || number.ec != std::errc() || number.ptr != end || !IsComputerName(rest)) {
        return std::nullopt;
    }
    read.key = *key;
    read.name = rest;
    return read;
}

bool AddKey(std::string_view rest, std::vector<RememberedKey>& keys) {
    std::optional<RememberedKey> key = ReadKeyLine(rest);
    if (!key || keys.size() == kMostRememberedKeys) {
        return false;
    }
    keys.push_back(std::move(*key));
    return true;
}

class SettingsReader {
  public:
    bool Line(std::string_view rest) {
        const std::string_view word = TakeWord(rest);
        if (word == "speak") {
            const auto choice = InterfaceChoice::FromText(rest);
            settings.speaks = choice.value_or(InterfaceChoice());
            return choice.has_value() && ++speaks == 1;
        }
        if (word == "allow") {
            const auto allowed = ReadAllowed(rest);
            settings.access.allowed = allowed.value_or(Allowed::Any);
            return allowed.has_value() && ++allows == 1;
        }
        if (word == "rtp") {
            const bool isFirst = !settings.rtp;
            settings.rtp = rest == "on";
            return isFirst && settings.rtp;
        }
        if (word == "secret") {
            const bool isFirst = !settings.secret;
            settings.secret = ReadHexadecimal(rest);
            return isFirst && settings.secret;
        }
        if (word == "pin") {
            return AddKey(rest, settings.access.pins);
        }
        return word == "block" && AddKey(rest, settings.access.blocked);
    }
    bool IsWhole() const { return speaks == 1 && allows == 1; }

    NetworkSettings settings;

  private:
    int speaks = 0;
    int allows = 0;
};

}  // namespace

const char* AllowedText(Allowed allowed) {
    return kAllowed.at(static_cast<std::size_t>(allowed));
}

std::optional<Allowed> ReadAllowed(std::string_view text) {
    const auto found = std::find(kAllowed.begin(), kAllowed.end(), text);
    return found == kAllowed.end() ? std::nullopt
                                   : std::optional(static_cast<Allowed>(found - kAllowed.begin()));
}

std::string WriteNetworkSettings(const NetworkSettings& settings) {
    std::string text(kSettingsMark);
    text += "speak " + settings.speaks.Text() + "\n";
    text += std::string("allow ") + AllowedText(settings.access.allowed) + "\n";
    if (settings.rtp) {
        text += "rtp on\n";
    }
    if (settings.secret) {
        text += "secret " + Hexadecimal(*settings.secret) + "\n";
    }
    for (const RememberedKey& pin : settings.access.pins) {
        text += KeyLine("pin", pin);
    }
    for (const RememberedKey& blocked : settings.access.blocked) {
        text += KeyLine("block", blocked);
    }
    return text;
}

std::optional<NetworkSettings> ReadNetworkSettings(std::string_view text) {
    if (text.substr(0, kSettingsMark.size()) != kSettingsMark) {
        return std::nullopt;
    }
    text.remove_prefix(kSettingsMark.size());
    SettingsReader reader;
    while (!text.empty()) {
        const std::size_t end = text.find('\n');
        // A last line without its end was cut off.
        if (end == std::string_view::npos || !reader.Line(text.substr(0, end))) {
            return std::nullopt;
        }
        text.remove_prefix(end + 1);
    }
    return reader.IsWhole() ? std::optional(std::move(reader.settings)) : std::nullopt;
}

std::string WriteKeyFile(const KeyFile& file) {
    return std::string(kKeyMark) + std::string(kMachine) + file.machine + "\n" + file.pem;
}

std::optional<KeyFile> ReadKeyFile(std::string_view text) {
    if (text.substr(0, kKeyMark.size()) != kKeyMark) {
        return std::nullopt;
    }
    text.remove_prefix(kKeyMark.size());
    const std::size_t end = text.find('\n');
    if (end == std::string_view::npos || text.substr(0, kMachine.size()) != kMachine ||
        end > kMachine.size() + kLongestMachine) {
        return std::nullopt;
    }
    KeyFile file;
    file.machine = text.substr(kMachine.size(), end - kMachine.size());
    file.pem = text.substr(end + 1);
    return file;
}

}  // namespace vexil
