#include "ctl/SecretInput.h"

#include <algorithm>

#include "ctl/WholeFile.h"

namespace vexil {

namespace {

constexpr std::size_t kShortest = 8;    // characters
constexpr std::size_t kLongest = 1024;  // bytes

std::string FirstLine(const std::string& text) {
    return text.substr(0, text.find('\n'));
}

// Of UTF-8: bytes that go on a character are not counted.
std::size_t CharactersOf(const std::string& text) {
    return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), [](char byte) {
        return (static_cast<unsigned char>(byte) & 0xC0) != 0x80;
    }));
}

std::string WhyNoSecret(const std::string& secret) {
    if (CharactersOf(secret) < kShortest) {
        return "a secret has at least 8 characters";
    }
    if (secret.size() > kLongest) {
        return "a secret has at most 1024 bytes";
    }
    return secret.find('\0') == std::string::npos ? "" : "there is a zero byte in the secret";
}

std::optional<std::string> ReadLine(const std::optional<std::string>& file, Console& console,
                                    std::string& problem) {
    if (!file) {
        std::optional<std::string> line = console.ReadHiddenLine("Secret: ");
        if (!line) {
            problem = "no secret was given";
        }
        return line;
    }
    std::string text;
    const std::string reason = ReadWholeFile(*file, text);
    if (!reason.empty()) {
        problem = *file + " cannot be read: " + reason;
        return std::nullopt;
    }
    return FirstLine(text);
}

}  // namespace

std::optional<std::string> ReadSecret(const std::optional<std::string>& file, Console& console,
                                      std::string& problem) {
    std::optional<std::string> secret = ReadLine(file, console, problem);
    if (!secret) {
        return std::nullopt;
    }
    if (secret->ends_with('\r')) {
        secret->pop_back();
    }
    problem = WhyNoSecret(*secret);
    if (problem.empty() && !file && console.IsTyped() &&
        console.ReadHiddenLine("The same secret again: ") != secret) {
        problem = "the two are not the same";
    }
    return problem.empty() ? secret : std::nullopt;
}

}  // namespace vexil
