#include <bit>
#include <cmath>
#include <cstdint>
#include <optional>

#include "platform/linux/preferences/PropertyListCheck.h"

namespace vexil {
namespace {

constexpr std::string_view kMagic = "bplist00";
constexpr std::size_t kTrailerSize = 32;
// Texts and data of all nodes, each counted as often as it is referred to.
constexpr std::size_t kMaxContentBytes = 4 * kMaxPropertyListBytes;
// Dates that have a form in XML, of the years 1 to 9999, in seconds since the start of 2001.
constexpr double kEarliestDate = -63113904000.0;
constexpr double kLatestDate = 252423993599.0;

std::uint64_t BigEndian(std::string_view bytes) {
    std::uint64_t number = 0;
    for (const char byte : bytes) {
        number = (number << 8U) | static_cast<std::uint8_t>(byte);
    }
    return number;
}

// Walks the object table from the root. Every offset and count is checked against the objects' part of the
// file before it is followed; the depth limit ends cycles, the number of nodes ends shared references.
class BinaryCheck {
  public:
    BinaryCheck(std::string_view list, std::string& reason) : bytes(list), problem(reason) {}

    bool Document() {
        Marker marker;
        if (!ReadTrailer() || !ReadMarker(root, marker)) {
            return false;
        }
        return marker.kind == 0xD ? Object(root, 1) : Fail("the root is not a dictionary");
    }

  private:
    struct Marker {
        unsigned kind = 0;
        std::size_t count = 0;
        std::size_t content = 0;  // where the object's bytes are
    };

    bool Fail(const char* what) {
        problem = what;
        return false;
    }

    bool ReadTrailer() {
        if (bytes.size() < kMagic.size() + kTrailerSize) {
            return Fail("cut off");
        }
        const std::string_view trailer = bytes.substr(bytes.size() - kTrailerSize);
        offsetSize = static_cast<std::uint8_t>(trailer[6]);
        referenceSize = static_cast<std::uint8_t>(trailer[7]);
        objectCount = BigEndian(trailer.substr(8, 8));
        root = BigEndian(trailer.substr(16, 8));
        const std::uint64_t table = BigEndian(trailer.substr(24, 8));
        const std::size_t end = bytes.size() - kTrailerSize;
        if (offsetSize < 1 || offsetSize > 8 || referenceSize < 1 || referenceSize > 8) {
            return Fail("malformed trailer");
        }
        if (table < kMagic.size() || table > end || objectCount > (end - table) / offsetSize) {
            return Fail("malformed trailer");
        }
        offsets = bytes.substr(table, objectCount * offsetSize);
        objectsEnd = table;
        return true;
    }

    // `length` bytes of the objects' part.
    std::optional<std::string_view> Bytes(std::size_t position, std::size_t length) {
        if (position > objectsEnd || length > objectsEnd - position) {
            Fail("object past the end");
            return std::nullopt;
        }
        return bytes.substr(position, length);
    }

    bool ReadMarker(std::uint64_t index, Marker& marker) {
        if (index >= objectCount) {
            return Fail("reference to no object");
        }
        const std::uint64_t position = BigEndian(offsets.substr(index * offsetSize, offsetSize));
        const auto first = position < kMagic.size() ? std::nullopt : Bytes(position, 1);
        if (!first) {
            return Fail("object past the end");
        }
        marker.kind = static_cast<std::uint8_t>(first->front()) >> 4U;
        marker.count = static_cast<std::uint8_t>(first->front()) & 0xFU;
        marker.content = position + 1;
        return marker.kind < 0x4 || marker.count != 0xF || marker.kind == 0x8 || ReadLongCount(marker);
    }

    bool ReadLongCount(Marker& marker) {
        const auto first = Bytes(marker.content, 1);
        const unsigned kind = first ? static_cast<std::uint8_t>(first->front()) : 0U;
        if ((kind & 0xF0U) != 0x10 || (kind & 0xFU) > 3) {
            return Fail("malformed count");
        }
        const std::size_t size = std::size_t{1} << (kind & 0xFU);
        const auto number = Bytes(marker.content + 1, size);
        if (!number) {
            return false;
        }
        marker.count = BigEndian(*number);
        marker.content += 1 + size;
        // Every element takes a byte at least, so a larger count is wrong, and none overflows what follows.
        return marker.count <= objectsEnd || Fail("malformed count");
    }

    bool Object(std::uint64_t index, unsigned depth) {
        Marker marker;
        if (!ReadMarker(index, marker)) {
            return false;
        }
        if (++nodes > kMaxPropertyListNodes || contentBytes > kMaxContentBytes) {
            return Fail("too large");
        }
        switch (marker.kind) {
            case 0x0:  // null, false, true
                return marker.count == 0 || marker.count == 8 || marker.count == 9 || Fail("unknown object");
            case 0x1:
                return Integer(marker);
            case 0x2:
            case 0x3:
                return Floating(marker);
            case 0x4:
                contentBytes += marker.count;
                return Bytes(marker.content, marker.count).has_value();
            case 0x5:
            case 0x6:
                return String(marker);
            case 0x8:
                return (marker.count < 8 && Bytes(marker.content, marker.count + 1)) ||
                       Fail("malformed number");
            case 0xA:
                return Array(marker, depth);
            case 0xD:
                return Dictionary(marker, depth);
            default:
                return Fail("unknown object");
        }
    }

    // Up to 8 bytes, or 16 for what is above the signed numbers of 8.
    bool Integer(const Marker& marker) {
        const auto content =
            marker.count > 4 ? std::nullopt : Bytes(marker.content, std::size_t{1} << marker.count);
        if (!content) {
            return Fail("malformed number");
        }
        return marker.count < 4 || BigEndian(content->substr(0, 8)) == 0 || Fail("number too big");
    }

    bool Floating(const Marker& marker) {
        const bool isDate = marker.kind == 0x3;
        if (marker.count != 3 && (marker.count != 2 || isDate)) {
            return Fail("malformed number");
        }
        const auto content = Bytes(marker.content, std::size_t{1} << marker.count);
        if (!content || !isDate) {
            return content.has_value();
        }
        const auto seconds = std::bit_cast<double>(BigEndian(*content));
        return (seconds >= kEarliestDate && seconds <= kLatestDate) || Fail("date out of range");
    }

    bool String(const Marker& marker) {
        const std::size_t unit = marker.kind == 0x6 ? 2 : 1;
        const auto content = Bytes(marker.content, marker.count * unit);
        if (!content) {
            return false;
        }
        contentBytes += content->size();
        bool wantsLow = false;  // after the first half of a surrogate pair
        for (std::size_t i = 0; i < content->size(); i += unit) {
            const std::uint64_t character = BigEndian(content->substr(i, unit));
            const bool isLow = character >= 0xDC00 && character <= 0xDFFF;
            if (character == 0 || (unit == 1 && character > 0x7F) || isLow != wantsLow) {
                return Fail("malformed string");
            }
            wantsLow = character >= 0xD800 && character <= 0xDBFF;
        }
        return !wantsLow || Fail("malformed string");
    }

    // Reference `number` of the list of them at `position`, which has been checked.
    std::uint64_t ReferenceAt(std::size_t position, std::size_t number) const {
        return BigEndian(bytes.substr(position + number * referenceSize, referenceSize));
    }

    bool CheckContainer(const Marker& marker, std::size_t references, unsigned depth) {
        if (depth > kMaxPropertyListDepth) {
            return Fail("nested too deeply");
        }
        return Bytes(marker.content, references * referenceSize).has_value();
    }

    bool Array(const Marker& marker, unsigned depth) {
        if (!CheckContainer(marker, marker.count, depth)) {
            return false;
        }
        for (std::size_t i = 0; i < marker.count; ++i) {
            if (!Object(ReferenceAt(marker.content, i), depth + 1)) {
                return false;
            }
        }
        return true;
    }

    bool Dictionary(const Marker& marker, unsigned depth) {
        if (!CheckContainer(marker, 2 * marker.count, depth)) {
            return false;
        }
        for (std::size_t i = 0; i < marker.count; ++i) {
            Marker key;
            if (!ReadMarker(ReferenceAt(marker.content, i), key)) {
                return false;
            }
            if (key.kind != 0x5 && key.kind != 0x6) {
                return Fail("a key is not a string");
            }
            if (!String(key) || !Object(ReferenceAt(marker.content, marker.count + i), depth + 1)) {
                return false;
            }
        }
        return true;
    }

    std::string_view bytes;
    std::string& problem;
    std::size_t offsetSize = 0;
    std::size_t referenceSize = 0;
    std::uint64_t objectCount = 0;
    std::uint64_t root = 0;
    std::string_view offsets;
    std::size_t objectsEnd = 0;
    std::size_t nodes = 0;
    std::size_t contentBytes = 0;
};

}  // namespace

bool IsBinaryPropertyList(std::string_view bytes) {
    return bytes.starts_with("bplist");
}

bool CheckBinaryPropertyList(std::string_view bytes, std::string& problem) {
    if (!bytes.starts_with(kMagic)) {
        problem = "unknown version of a binary list";
        return false;
    }
    return BinaryCheck(bytes, problem).Document();
}

std::string ReplaceBinaryNulls(std::string_view bytes, std::string_view text) {
    const std::size_t trailerAt = bytes.size() - kTrailerSize;
    const std::size_t offsetSize = static_cast<std::uint8_t>(bytes[trailerAt + 6]);
    const std::uint64_t objectCount = BigEndian(bytes.substr(trailerAt + 8, 8));
    const std::uint64_t table = BigEndian(bytes.substr(trailerAt + 24, 8));

    // The objects stay where they are; the text follows them, then a table of 8-byte offsets.
    std::string result(bytes.substr(0, table));
    result += static_cast<char>(0x50U | text.size());
    result += text;
    const auto appendNumber = [](std::string& target, std::uint64_t number) {
        for (unsigned shift = 64; shift > 0; shift -= 8) {
            target += static_cast<char>(number >> (shift - 8));
        }
    };
    const std::size_t newTable = result.size();
    for (std::uint64_t i = 0; i < objectCount; ++i) {
        const std::uint64_t offset = BigEndian(bytes.substr(table + i * offsetSize, offsetSize));
        // Objects that nothing refers to have not been checked.
        const bool isNull = offset < table && bytes[offset] == 0;
        appendNumber(result, isNull ? table : offset);
    }
    std::string trailer(bytes.substr(trailerAt, kTrailerSize - 8));
    trailer[6] = 8;
    appendNumber(trailer, newTable);
    return result + trailer;
}

}  // namespace vexil
