#include "config/RewriteCopy.h"

#include <algorithm>
#include <cstddef>

namespace vexil {
namespace {

constexpr std::string_view kMagic = "vexil3 unfinished save 1 ";
constexpr std::string_view kNameSuffix = ".vexil3-saving";
constexpr std::size_t kLongestFileName = 255;  // bytes, on every file system of this platform
constexpr std::size_t kNumberLength = 16;
constexpr std::string_view kDigits = "0123456789abcdef";

// FNV-1a, 64 bits.
std::uint64_t ChecksumOf(std::string_view text) {
    std::uint64_t sum = 0xcbf29ce484222325U;
    for (const char character : text) {
        sum = (sum ^ static_cast<unsigned char>(character)) * 0x100000001b3U;
    }
    return sum;
}

void AppendNumber(std::string& text, std::uint64_t number) {
    for (int shift = 60; shift >= 0; shift -= 4) {
        text.push_back(kDigits[(number >> shift) & 0xF]);
    }
    text.push_back(' ');
}

// Takes a number and the blank behind it off the front of `text`.
bool TakeNumber(std::string_view& text, std::uint64_t& number) {
    if (text.size() <= kNumberLength || text[kNumberLength] != ' ') {
        return false;
    }
    number = 0;
    for (const char digit : text.substr(0, kNumberLength)) {
        const std::size_t value = kDigits.find(digit);
        if (value == std::string_view::npos) {
            return false;
        }
        number = number << 4 | value;
    }
    text.remove_prefix(kNumberLength + 1);
    return true;
}

std::string Hexadecimal(std::string_view bytes) {
    std::string text;
    for (const char byte : bytes) {
        const auto value = static_cast<unsigned char>(byte);
        text.push_back(kDigits[value >> 4]);
        text.push_back(kDigits[value & 0xF]);
    }
    return text;
}

// Whether `part` can be what an interrupted write of a text that begins with `whole` left: shorter, or with
// zeros for bytes that never reached the disk.
bool IsPartOf(std::string_view part, std::string_view whole) {
    const std::size_t length = std::min(part.size(), whole.size());
    for (std::size_t index = 0; index < length; ++index) {
        if (part[index] != whole[index] && part[index] != '\0') {
            return false;
        }
    }
    return true;
}

}  // namespace

TextDigest DigestOf(std::string_view text) {
    return {text.size(), ChecksumOf(text)};
}

std::string RewriteCopyName(const std::string& fileName) {
    std::string name = "." + fileName + std::string(kNameSuffix);
    if (name.size() > kLongestFileName) {
        std::string sum;
        AppendNumber(sum, ChecksumOf(fileName));
        name = "." + sum.substr(0, kNumberLength) + std::string(kNameSuffix);
    }
    return name;
}

std::string EncodeRewriteCopy(const RewriteCopy& copy) {
    std::string summed;
    AppendNumber(summed, copy.newText.size());
    AppendNumber(summed, copy.oldText.length);
    AppendNumber(summed, copy.oldText.sum);
    summed += Hexadecimal(copy.fileName) + "\n" + copy.newText;
    std::string bytes(kMagic);
    AppendNumber(bytes, ChecksumOf(summed));
    return bytes + summed;
}

CopyState DecodeRewriteCopy(std::string_view bytes, const std::string& fileName, RewriteCopy& copy) {
    if (!IsPartOf(bytes, kMagic)) {
        return CopyState::Foreign;
    }
    if (!bytes.starts_with(kMagic)) {
        return CopyState::Incomplete;
    }
    std::string_view rest = bytes.substr(kMagic.size());
    std::uint64_t sum = 0;
    if (!TakeNumber(rest, sum) || sum != ChecksumOf(rest)) {
        return CopyState::Incomplete;
    }
    std::uint64_t length = 0;
    TextDigest oldText;
    const bool numbers =
        TakeNumber(rest, length) && TakeNumber(rest, oldText.length) && TakeNumber(rest, oldText.sum);
    const std::size_t headEnd = rest.find('\n');
    if (!numbers || headEnd == std::string_view::npos || rest.size() - headEnd - 1 != length) {
        return CopyState::Incomplete;
    }
    if (rest.substr(0, headEnd) != Hexadecimal(fileName)) {
        return CopyState::Foreign;
    }
    copy = {fileName, oldText, std::string(rest.substr(headEnd + 1))};
    return CopyState::Complete;
}

RewriteState StateOfRewrite(std::string_view current, const RewriteCopy& copy) {
    if (current == copy.newText) {
        return RewriteState::Done;
    }
    if (DigestOf(current) == copy.oldText) {
        return RewriteState::NotBegun;
    }
    if (current.size() <= copy.newText.size() && IsPartOf(current, copy.newText)) {
        return RewriteState::CutShort;
    }
    return RewriteState::Edited;
}

}  // namespace vexil
