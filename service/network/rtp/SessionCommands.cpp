// The session commands of RtpCodec.h.
#include <algorithm>

#include "service/network/rtp/RtpBytes.h"
#include "service/network/rtp/RtpCodec.h"

namespace vexil {

namespace {

constexpr std::uint16_t kCommandMark = 0xFFFF;

constexpr std::uint16_t Letters(char first, char second) {
    return static_cast<std::uint16_t>(first << 8 | second);
}

struct KindLetters {
    SessionCommandKind kind;
    std::uint16_t letters;
};
constexpr std::array<KindLetters, 7> kLetters = {{
    {SessionCommandKind::Invitation, Letters('I', 'N')},
    {SessionCommandKind::Accepted, Letters('O', 'K')},
    {SessionCommandKind::Refused, Letters('N', 'O')},
    {SessionCommandKind::Bye, Letters('B', 'Y')},
    {SessionCommandKind::Clock, Letters('C', 'K')},
    {SessionCommandKind::Feedback, Letters('R', 'S')},
    {SessionCommandKind::BitrateLimit, Letters('R', 'L')},
}};

std::uint16_t LettersOf(SessionCommandKind kind) {
    return kLetters[static_cast<std::size_t>(kind)].letters;
}

std::string_view TakeName(ByteView bytes) {
    const auto end = std::find(bytes.begin(), bytes.end(), std::uint8_t{0});
    return {reinterpret_cast<const char*>(bytes.data()), static_cast<std::size_t>(end - bytes.begin())};
}

// Cut in front of a character that would not fit whole.
std::string_view CutName(std::string_view name) {
    if (name.size() <= kLongestSessionName) {
        return name;
    }
    std::size_t length = kLongestSessionName;
    while (length > 0 && (static_cast<std::uint8_t>(name[length]) & 0xC0) == 0x80) {
        --length;
    }
    return name.substr(0, length);
}

// Invitation, Accepted, Refused, Bye, from the version on.
void TakeInvitation(RtpByteReader& reader, SessionCommand& command) {
    command.version = reader.Take<std::uint32_t>();
    const bool hasToken = command.kind != SessionCommandKind::Bye || reader.Rest().size() >= 8;
    if (hasToken) {
        command.token = reader.Take<std::uint32_t>();
    } else {
        command.token.reset();
    }
    command.ssrc = reader.Take<std::uint32_t>();
    if (command.kind != SessionCommandKind::Bye) {
        command.name = TakeName(reader.Rest());
    }
}

// False when the count is not 0, 1 or 2.
bool TakeClock(RtpByteReader& reader, SessionCommand& command) {
    command.ssrc = reader.Take<std::uint32_t>();
    command.count = reader.TakeByte();
    reader.TakeBytes(3);
    if (command.count > 2) {
        return false;
    }
    // The places behind the ones that the count fills mean nothing, and not every peer sends them.
    for (std::size_t place = 0; place <= command.count; ++place) {
        command.times[place] = reader.Take<std::uint64_t>();
    }
    return true;
}

}  // namespace

bool IsSessionCommand(ByteView datagram) {
    return datagram.size() >= 2 && datagram[0] == 0xFF && datagram[1] == 0xFF;
}

std::optional<SessionCommand> ReadSessionCommand(ByteView datagram) {
    RtpByteReader reader(datagram);
    const auto mark = reader.Take<std::uint16_t>();
    const auto letters = reader.Take<std::uint16_t>();
    const auto found = std::find_if(kLetters.begin(), kLetters.end(), [&](const KindLetters& candidate) {
        return candidate.letters == letters;
    });
    if (mark != kCommandMark || found == kLetters.end()) {
        return std::nullopt;
    }
    SessionCommand command;
    command.kind = found->kind;
    switch (command.kind) {
        case SessionCommandKind::Invitation:
        case SessionCommandKind::Accepted:
        case SessionCommandKind::Refused:
        case SessionCommandKind::Bye:
            TakeInvitation(reader, command);
            break;
        case SessionCommandKind::Clock:
            if (!TakeClock(reader, command)) {
                return std::nullopt;
            }
            break;
        case SessionCommandKind::Feedback:
            command.ssrc = reader.Take<std::uint32_t>();
            command.feedback = reader.Take<std::uint32_t>();
            break;
        case SessionCommandKind::BitrateLimit:
            command.ssrc = reader.Take<std::uint32_t>();
            command.bitrate = reader.Take<std::uint32_t>();
            break;
    }
    return reader.IsShort() ? std::nullopt : std::optional(command);
}

std::size_t WriteSessionCommand(const SessionCommand& command, std::span<std::uint8_t> out) {
    RtpByteWriter writer(out);
    writer.Put(kCommandMark);
    writer.Put(LettersOf(command.kind));
    switch (command.kind) {
        case SessionCommandKind::Invitation:
        case SessionCommandKind::Accepted:
        case SessionCommandKind::Refused:
        case SessionCommandKind::Bye:
            writer.Put(command.version);
            if (command.kind != SessionCommandKind::Bye || command.token) {
                writer.Put(command.token.value_or(0));
            }
            writer.Put(command.ssrc);
            if (!command.name.empty() && command.kind != SessionCommandKind::Bye) {
                const std::string_view name = CutName(command.name);
                writer.PutBytes({reinterpret_cast<const std::uint8_t*>(name.data()), name.size()});
                writer.PutByte(0);
            }
            break;
        case SessionCommandKind::Clock:
            writer.Put(command.ssrc);
            writer.Put(command.count);
            writer.PutByte(0);
            writer.Put(std::uint16_t{0});
            for (std::size_t place = 0; place < command.times.size(); ++place) {
                writer.Put(place <= command.count ? command.times[place] : std::uint64_t{0});
            }
            break;
        case SessionCommandKind::Feedback:
            writer.Put(command.ssrc);
            writer.Put(command.feedback);
            break;
        case SessionCommandKind::BitrateLimit:
            writer.Put(command.ssrc);
            writer.Put(command.bitrate);
            break;
    }
    return writer.IsCut() ? 0 : writer.Size();
}

std::uint16_t FeedbackSequence(std::uint32_t feedback, std::uint16_t newestSent) {
    const auto high = static_cast<std::uint16_t>(feedback >> 16);
    const auto low = static_cast<std::uint16_t>(feedback);
    if (low == 0 || high == 0) {
        return high | low;
    }
    const auto behind = [newestSent](std::uint16_t sequence) {
        return static_cast<std::uint16_t>(newestSent - sequence);
    };
    return behind(low) < behind(high) ? low : high;
}

}  // namespace vexil
