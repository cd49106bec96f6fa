// Seals the link: DTLS 1.2 by OpenSSL, so that nobody reads, forges or replays what two computers say to each
// other, and each knows the other by its key. This file and its .cpp are the only ones that know OpenSSL, and
// only the .cpp includes it.
//
// A computer has one key on P-256 and a certificate that it signs itself. No authority stands behind it and
// no date in it counts: what counts is the key, which the peer proves to have. Its identity is the SHA-256 of
// the public key.
//
// No socket: datagrams go in and come out. Lost parts of a handshake are sent again by OpenSSL's own timers,
// which go by the clock of the system; everything else takes its time from the caller. Not thread-safe: one
// thread for a LinkSealing and its sessions.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "service/network/LinkBytes.h"
#include "service/network/LinkCodec.h"
#include "service/network/LinkGreeting.h"

namespace vexil {

using KeyHash = std::array<std::uint8_t, 32>;
ComputerId ComputerIdOf(const KeyHash& hash);

// The key of this computer.
class LinkKey {
  public:
    // A new one; null when the system has no randomness to give.
    static std::optional<LinkKey> Make();
    // As Pem wrote it; null when the text is no private key on P-256.
    static std::optional<LinkKey> FromPem(const std::string& text);

    // The private key as text, for a file that nobody else reads.
    const std::string& Pem() const { return pem; }
    const KeyHash& Hash() const { return hash; }

  private:
    LinkKey(std::string text, const KeyHash& digest) : pem(std::move(text)), hash(digest) {}

    std::string pem;
    KeyHash hash;
};

// A secret that several computers share, made hard to guess. Null when it has fewer than 8 characters, and
// when the machine lacks the 32 MiB that this takes for a moment. Takes about a tenth of a second.
using StretchedSecret = std::array<std::uint8_t, 32>;
inline constexpr std::size_t kShortestSecret = 8;
std::optional<StretchedSecret> StretchSecret(std::string_view secret);

// One sealed channel to one peer.
class SealedSession {
  public:
    enum class State : std::uint8_t { Handshaking, Ready, Failed };

    ~SealedSession();
    SealedSession(const SealedSession&) = delete;
    SealedSession& operator=(const SealedSession&) = delete;

    State CurrentState() const;
    SessionRole Role() const;

    // A datagram from the peer. Returns the size of the body in it, written to `body`; 0 when there is none:
    // a part of the handshake, or something forged, replayed or damaged, which changes nothing once the
    // session is Ready.
    std::size_t HandleDatagram(ByteView datagram, std::span<std::uint8_t> body);
    // A datagram with this body, written to `out`; its size, or 0 when the session is not Ready.
    std::size_t Seal(ByteView body, std::span<std::uint8_t> out);
    // The next datagram of the handshake that is to be sent; 0 when there is none. After each of
    // HandleDatagram and HandleTimeout, also when Ready: the peer may have lost the end of the handshake.
    std::size_t PollTransmit(std::span<std::uint8_t> out);
    // Microseconds until HandleTimeout is to be called; null when there is no need.
    std::optional<std::uint64_t> TimeoutIn() const;
    void HandleTimeout();

    // When Ready.
    const KeyHash& PeerKey() const;
    // That this computer or the peer, in its role, knows the secret.
    SecretProof ProofOf(const StretchedSecret& secret, SessionRole role) const;

    // The random bytes of the caller's hello: of two calls that cross, the one with the smaller stands. When
    // a call has been begun or accepted.
    std::array<std::uint8_t, 32> ClientRandom() const;

  private:
    friend class LinkSealing;
    class Channel;
    explicit SealedSession(std::unique_ptr<Channel> made);

    std::unique_ptr<Channel> channel;
};

class LinkSealing {
  public:
    // Null when OpenSSL refuses the key or cannot be set up.
    static std::unique_ptr<LinkSealing> Make(const LinkKey& key);
    ~LinkSealing();
    LinkSealing(const LinkSealing&) = delete;
    LinkSealing& operator=(const LinkSealing&) = delete;

    // Begins a call; PollTransmit has its first datagram. Null when there is no memory.
    std::unique_ptr<SealedSession> Call();

    // What a datagram means that begins a call, from an address (any bytes that tell addresses apart).
    struct Heard {
        std::size_t answerSize = 0;  // written to `answer`, to be sent back; never longer than the datagram
        std::unique_ptr<SealedSession> session;  // its address is proved; go on with it
    };
    // Keeps nothing of a datagram that does not prove its address.
    Heard Listen(ByteView datagram, ByteView address, std::span<std::uint8_t> answer);

    // Whether a datagram begins a call.
    static bool IsCall(ByteView datagram);
    // Whether it begins the call that a session is of: a hello that was sent again. It then goes to that
    // session and not to Listen, which would make another session of it.
    static bool IsCallOf(ByteView datagram, const SealedSession& session);

  private:
    class Context;
    explicit LinkSealing(std::unique_ptr<Context> made);

    std::unique_ptr<Context> context;
};

}  // namespace vexil
