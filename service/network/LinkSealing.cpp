#include "service/network/LinkSealing.h"

#include <openssl/bio.h>
#include <openssl/core_names.h>
#include <openssl/ec.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/kdf.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/sha.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>
#include <sys/time.h>

#include <algorithm>
#include <cstring>
#include <utility>
#include <vector>

namespace vexil {

namespace {

// Small enough for every path: where full datagrams do not pass, the handshake does.
constexpr long kHandshakeDatagram = 548;
constexpr std::size_t kHandshakeQueue = 8;  // datagrams of one flight
constexpr unsigned kFirstTimeout = 25'000;
constexpr unsigned kLongestTimeout = 400'000;
constexpr long kLongestCertificate = 4096;
constexpr std::size_t kCookieSize = 32;
// How a call looks from outside: a handshake record of the first epoch with a client's hello in it.
constexpr std::uint8_t kHandshakeRecord = 22;
constexpr std::size_t kEpochAt = 3;
constexpr std::size_t kSealedLengthAt = 11;
constexpr std::size_t kSealedHeaderSize = 13;
constexpr std::size_t kMessageTypeAt = 13;
constexpr std::uint8_t kClientHello = 1;
constexpr std::size_t kClientRandomAt = 27;
constexpr char kExporterLabel[] = "EXPORTER-vexil-link-secret";
constexpr char kSecretSalt[] = "vexil link secret 1";
constexpr std::uint64_t kScryptRounds = 32768;

template <auto kFree>
struct Freer {
    template <class Thing>
    void operator()(Thing* thing) const {
        kFree(thing);
    }
};
using KeyPointer = std::unique_ptr<EVP_PKEY, Freer<EVP_PKEY_free>>;
using CertificatePointer = std::unique_ptr<X509, Freer<X509_free>>;
using ContextPointer = std::unique_ptr<SSL_CTX, Freer<SSL_CTX_free>>;
using SslPointer = std::unique_ptr<SSL, Freer<SSL_free>>;
using MethodPointer = std::shared_ptr<BIO_METHOD>;  // sessions need it as long as they live
using BioPointer = std::unique_ptr<BIO, Freer<BIO_free>>;

std::optional<KeyHash> HashOf(EVP_PKEY* key) {
    unsigned char* encoded = nullptr;
    const int size = i2d_PUBKEY(key, &encoded);
    if (size <= 0) {
        return std::nullopt;
    }
    KeyHash hash;
    SHA256(encoded, static_cast<std::size_t>(size), hash.data());
    OPENSSL_free(encoded);
    return hash;
}

KeyPointer ReadKey(const std::string& pem) {
    const BioPointer text(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())));
    KeyPointer key(text ? PEM_read_bio_PrivateKey(text.get(), nullptr, nullptr, nullptr) : nullptr);
    char group[32] = "";
    const bool isP256 = key &&
                        EVP_PKEY_get_utf8_string_param(key.get(), OSSL_PKEY_PARAM_GROUP_NAME, group,
                                                       sizeof group, nullptr) == 1 &&
                        std::string_view(group) == SN_X9_62_prime256v1;
    ERR_clear_error();
    return isP256 ? std::move(key) : nullptr;
}

std::string WriteKey(EVP_PKEY* key) {
    const BioPointer text(BIO_new(BIO_s_mem()));
    if (!text || PEM_write_bio_PrivateKey(text.get(), key, nullptr, nullptr, 0, nullptr, nullptr) != 1) {
        return {};
    }
    char* bytes = nullptr;
    const long size = BIO_get_mem_data(text.get(), &bytes);
    return size > 0 ? std::string(bytes, static_cast<std::size_t>(size)) : std::string();
}

// Signed by its own key. The dates are for the form: nobody looks at them.
CertificatePointer MakeCertificate(EVP_PKEY* key) {
    CertificatePointer certificate(X509_new());
    if (!certificate || X509_set_version(certificate.get(), 2) != 1 ||
        ASN1_INTEGER_set(X509_get_serialNumber(certificate.get()), 1) != 1 ||
        ASN1_TIME_set_string(X509_getm_notBefore(certificate.get()), "20000101000000Z") != 1 ||
        ASN1_TIME_set_string(X509_getm_notAfter(certificate.get()), "99991231235959Z") != 1 ||
        X509_set_pubkey(certificate.get(), key) != 1 ||
        X509_sign(certificate.get(), key, EVP_sha256()) == 0) {
        return nullptr;
    }
    return certificate;
}

// What an SSL reads from and writes to: one datagram in, the datagrams of a flight out.
struct Wire {
    ByteView in;
    bool hasIn = false;
    bool peek = false;
    std::vector<std::array<std::uint8_t, kLongestDatagram>> out;
    std::array<std::size_t, kHandshakeQueue> outSizes{};
    std::size_t outAt = 0;
    std::size_t outCount = 0;
    std::span<std::uint8_t>
        direct;  // where the one datagram goes that is being sealed; empty: into the queue
    std::size_t directSize = 0;
    std::vector<std::uint8_t> address;  // of whoever is listened to
};

Wire& WireOf(BIO* bio) {
    return *static_cast<Wire*>(BIO_get_data(bio));
}

int ReadWire(BIO* bio, char* bytes, int size) {
    Wire& wire = WireOf(bio);
    BIO_clear_retry_flags(bio);
    if (!wire.hasIn) {
        BIO_set_retry_read(bio);
        return -1;
    }
    const std::size_t count = std::min(wire.in.size(), static_cast<std::size_t>(size));
    std::memcpy(bytes, wire.in.data(), count);
    wire.hasIn = wire.peek;
    return static_cast<int>(count);
}

int WriteWire(BIO* bio, const char* bytes, int size) {
    Wire& wire = WireOf(bio);
    BIO_clear_retry_flags(bio);
    const auto count = static_cast<std::size_t>(size);
    if (!wire.direct.empty()) {
        wire.directSize = count <= wire.direct.size() ? count : 0;
        std::memcpy(wire.direct.data(), bytes, wire.directSize);
        wire.direct = {};
        return size;
    }
    // What does not fit counts as lost on the network: it is sent again.
    if (count <= kLongestDatagram && wire.outCount < kHandshakeQueue) {
        wire.out.resize(kHandshakeQueue);
        const std::size_t place = (wire.outAt + wire.outCount++) % kHandshakeQueue;
        std::memcpy(wire.out[place].data(), bytes, count);
        wire.outSizes[place] = count;
    }
    return size;
}

long ControlWire(BIO* bio, int command, long number, void*) {
    switch (command) {
        case BIO_CTRL_DGRAM_SET_PEEK_MODE:
            WireOf(bio).peek = number != 0;
            return 1;
        case BIO_CTRL_FLUSH:
            return 1;
        case BIO_CTRL_DGRAM_QUERY_MTU:
        case BIO_CTRL_DGRAM_GET_MTU:
        case BIO_CTRL_DGRAM_GET_FALLBACK_MTU:
            return kHandshakeDatagram;
        default:
            return 0;
    }
}

std::size_t TakeOut(Wire& wire, std::span<std::uint8_t> out) {
    if (wire.outCount == 0) {
        return 0;
    }
    const std::size_t size = wire.outSizes[wire.outAt];
    const bool fits = size <= out.size();
    if (fits) {
        std::memcpy(out.data(), wire.out[wire.outAt].data(), size);
    }
    wire.outAt = (wire.outAt + 1) % kHandshakeQueue;
    --wire.outCount;
    return fits ? size : 0;
}

bool IsOneRecord(ByteView datagram) {
    return datagram.size() >= kSealedHeaderSize &&
           datagram.size() - kSealedHeaderSize ==
               static_cast<std::size_t>(datagram[kSealedLengthAt] << 8 | datagram[kSealedLengthAt + 1]);
}

// A datagram has one record; what a peer puts behind it is left out.
void SkipRest(SSL* ssl) {
    std::array<std::uint8_t, kLongestDatagram> rest;  // NOLINT: nobody reads it
    while (SSL_has_pending(ssl) == 1 && SSL_read(ssl, rest.data(), static_cast<int>(rest.size())) > 0) {
    }
    ERR_clear_error();
}

int TakeAnyCertificate(X509_STORE_CTX*, void*) {
    return 1;  // the handshake proves that the peer has the key; which key it is, others judge
}

unsigned NextTimeout(SSL*, unsigned last) {
    return last == 0 ? kFirstTimeout : std::min(last * 2, kLongestTimeout);
}

}  // namespace

ComputerId ComputerIdOf(const KeyHash& hash) {
    ComputerId id;
    std::copy_n(hash.begin(), id.size(), id.begin());
    return id;
}

std::optional<LinkKey> LinkKey::Make() {
    const KeyPointer key(EVP_EC_gen("P-256"));
    return key ? FromPem(WriteKey(key.get())) : std::nullopt;
}

std::optional<LinkKey> LinkKey::FromPem(const std::string& text) {
    const KeyPointer key = ReadKey(text);
    const std::optional<KeyHash> hash = key ? HashOf(key.get()) : std::nullopt;
    return hash ? std::optional(LinkKey(text, *hash)) : std::nullopt;
}

std::optional<StretchedSecret> StretchSecret(std::string_view secret) {
    StretchedSecret stretched;
    constexpr std::uint64_t kMemory = std::uint64_t{64} << 20;
    const auto* salt = reinterpret_cast<const unsigned char*>(kSecretSalt);
    const bool done = secret.size() >= kShortestSecret &&
                      EVP_PBE_scrypt(secret.data(), secret.size(), salt, sizeof kSecretSalt - 1,
                                     kScryptRounds, 8, 1, kMemory, stretched.data(), stretched.size()) == 1;
    ERR_clear_error();
    return done ? std::optional(stretched) : std::nullopt;
}

class SealedSession::Channel {
  public:
    Channel(MethodPointer ofWire, SslPointer made, std::unique_ptr<Wire> ends, SessionRole itsRole)
        : method(std::move(ofWire)), wire(std::move(ends)), ssl(std::move(made)), role(itsRole) {}

    void GoOn() {
        const int result = SSL_do_handshake(ssl.get());
        if (result == 1) {
            Finish();
        } else if (SSL_get_error(ssl.get(), result) != SSL_ERROR_WANT_READ) {
            state = State::Failed;
        }
        ERR_clear_error();
    }

    MethodPointer method;
    std::unique_ptr<Wire> wire;
    SslPointer ssl;
    SessionRole role;
    State state = State::Handshaking;
    KeyHash peerKey{};
    std::array<std::uint8_t, 32> exported{};

  private:
    void Finish() {
        const CertificatePointer certificate(SSL_get1_peer_certificate(ssl.get()));
        EVP_PKEY* key = certificate ? X509_get0_pubkey(certificate.get()) : nullptr;
        const std::optional<KeyHash> hash = key != nullptr ? HashOf(key) : std::nullopt;
        const bool hasExport =
            SSL_export_keying_material(ssl.get(), exported.data(), exported.size(), kExporterLabel,
                                       sizeof kExporterLabel - 1, nullptr, 0, 0) == 1;
        state = hash && hasExport ? State::Ready : State::Failed;
        peerKey = hash.value_or(KeyHash{});
    }
};

SealedSession::SealedSession(std::unique_ptr<Channel> made) : channel(std::move(made)) {}
SealedSession::~SealedSession() = default;

SealedSession::State SealedSession::CurrentState() const {
    return channel->state;
}
SessionRole SealedSession::Role() const {
    return channel->role;
}
const KeyHash& SealedSession::PeerKey() const {
    return channel->peerKey;
}

std::size_t SealedSession::HandleDatagram(ByteView datagram, std::span<std::uint8_t> body) {
    // What is empty would read as the end of the stream.
    if (datagram.empty() || channel->state == State::Failed) {
        return 0;
    }
    Wire& wire = *channel->wire;
    wire.in = datagram;
    wire.hasIn = true;
    std::size_t size = 0;
    if (channel->state == State::Handshaking) {
        channel->GoOn();
    } else {
        const int count = SSL_read(channel->ssl.get(), body.data(), static_cast<int>(body.size()));
        if (count > 0) {
            size = static_cast<std::size_t>(count);
        } else {
            if (SSL_get_error(channel->ssl.get(), count) != SSL_ERROR_WANT_READ) {
                channel->state = State::Failed;  // a sealed alert: the peer gave up
            }
            ERR_clear_error();
        }
        if (!IsOneRecord(datagram)) {
            SkipRest(channel->ssl.get());
        }
    }
    wire.hasIn = false;
    wire.in = {};
    return size;
}

std::size_t SealedSession::Seal(ByteView body, std::span<std::uint8_t> out) {
    if (channel->state != State::Ready || body.empty() || body.size() + kSealingOverhead > out.size()) {
        return 0;
    }
    Wire& wire = *channel->wire;
    wire.direct = out;
    wire.directSize = 0;
    const int count = SSL_write(channel->ssl.get(), body.data(), static_cast<int>(body.size()));
    wire.direct = {};
    if (count <= 0) {
        ERR_clear_error();
        return 0;
    }
    return wire.directSize;
}

std::size_t SealedSession::PollTransmit(std::span<std::uint8_t> out) {
    return TakeOut(*channel->wire, out);
}

std::optional<std::uint64_t> SealedSession::TimeoutIn() const {
    timeval left{};
    if (channel->state != State::Handshaking || DTLSv1_get_timeout(channel->ssl.get(), &left) != 1) {
        return std::nullopt;
    }
    return static_cast<std::uint64_t>(left.tv_sec) * 1'000'000 + static_cast<std::uint64_t>(left.tv_usec);
}

void SealedSession::HandleTimeout() {
    if (channel->state == State::Handshaking && DTLSv1_handle_timeout(channel->ssl.get()) < 0) {
        channel->state = State::Failed;
    }
    ERR_clear_error();
}

SecretProof SealedSession::ProofOf(const StretchedSecret& secret, SessionRole role) const {
    std::array<std::uint8_t, 33> told{};
    told[0] = role == SessionRole::Caller ? 'c' : 'd';
    std::copy(channel->exported.begin(), channel->exported.end(), told.begin() + 1);
    SecretProof proof{};
    HMAC(EVP_sha256(), secret.data(), static_cast<int>(secret.size()), told.data(), told.size(), proof.data(),
         nullptr);
    return proof;
}

std::array<std::uint8_t, 32> SealedSession::ClientRandom() const {
    std::array<std::uint8_t, 32> random{};
    SSL_get_client_random(channel->ssl.get(), random.data(), random.size());
    return random;
}

class LinkSealing::Context {
  public:
    bool SetUp(const LinkKey& key);
    SslPointer MakeSsl(Wire& wire);
    static int MakeCookie(SSL* ssl, unsigned char* cookie, unsigned* size);
    static int CheckCookie(SSL* ssl, const unsigned char* cookie, unsigned size);

    MethodPointer method;
    ContextPointer ssl;
    std::array<std::uint8_t, 32> cookieKey{};
    // Listens; taken by the next call that proves its address.
    std::unique_ptr<Wire> wire;
    SslPointer listener;
};

bool LinkSealing::Context::SetUp(const LinkKey& key) {
    const KeyPointer own = ReadKey(key.Pem());
    const CertificatePointer certificate = own ? MakeCertificate(own.get()) : nullptr;
    method.reset(BIO_meth_new(BIO_get_new_index() | BIO_TYPE_SOURCE_SINK, "datagram in memory"),
                 BIO_meth_free);
    ssl.reset(SSL_CTX_new(DTLS_method()));
    if (!certificate || !method || !ssl ||
        RAND_bytes(cookieKey.data(), static_cast<int>(cookieKey.size())) != 1) {
        return false;
    }
    BIO_meth_set_read(method.get(), ReadWire);
    BIO_meth_set_write(method.get(), WriteWire);
    BIO_meth_set_ctrl(method.get(), ControlWire);
    SSL_CTX* made = ssl.get();
    SSL_CTX_set_options(made, SSL_OP_NO_TICKET | SSL_OP_NO_RENEGOTIATION | SSL_OP_NO_QUERY_MTU |
                                  SSL_OP_CIPHER_SERVER_PREFERENCE | SSL_OP_NO_COMPRESSION);
    SSL_CTX_set_session_cache_mode(made, SSL_SESS_CACHE_OFF);
    SSL_CTX_set_max_cert_list(made, kLongestCertificate);
    SSL_CTX_set_verify(made, SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT, nullptr);
    SSL_CTX_set_cert_verify_callback(made, TakeAnyCertificate, nullptr);
    SSL_CTX_set_cookie_generate_cb(made, MakeCookie);
    SSL_CTX_set_cookie_verify_cb(made, CheckCookie);
    SSL_CTX_set_app_data(made, this);
    return SSL_CTX_set_min_proto_version(made, DTLS1_2_VERSION) == 1 &&
           SSL_CTX_set_max_proto_version(made, DTLS1_2_VERSION) == 1 &&
           SSL_CTX_set_cipher_list(made, "ECDHE-ECDSA-AES128-GCM-SHA256:ECDHE-ECDSA-CHACHA20-POLY1305") ==
               1 &&
           SSL_CTX_set1_groups_list(made, "P-256:X25519") == 1 &&
           SSL_CTX_use_certificate(made, certificate.get()) == 1 &&
           SSL_CTX_use_PrivateKey(made, own.get()) == 1;
}

SslPointer LinkSealing::Context::MakeSsl(Wire& ends) {
    SslPointer made(SSL_new(ssl.get()));
    BIO* bio = made ? BIO_new(method.get()) : nullptr;
    if (bio == nullptr) {
        return nullptr;
    }
    BIO_set_data(bio, &ends);
    BIO_set_init(bio, 1);
    SSL_set_bio(made.get(), bio, bio);
    SSL_set_mtu(made.get(), kHandshakeDatagram);
    DTLS_set_timer_cb(made.get(), NextTimeout);
    SSL_set_app_data(made.get(), &ends);
    return made;
}

// An address and a key that only this process knows: whoever shows it receives at that address.
int LinkSealing::Context::MakeCookie(SSL* ssl, unsigned char* cookie, unsigned* size) {
    const auto& owner = *static_cast<const Context*>(SSL_CTX_get_app_data(SSL_get_SSL_CTX(ssl)));
    const auto& address = static_cast<const Wire*>(SSL_get_app_data(ssl))->address;
    *size = kCookieSize;
    return HMAC(EVP_sha256(), owner.cookieKey.data(), static_cast<int>(owner.cookieKey.size()),
                address.data(), address.size(), cookie, nullptr) != nullptr
               ? 1
               : 0;
}

int LinkSealing::Context::CheckCookie(SSL* ssl, const unsigned char* cookie, unsigned size) {
    std::array<unsigned char, kCookieSize> expected{};
    unsigned expectedSize = 0;
    return MakeCookie(ssl, expected.data(), &expectedSize) == 1 && size == expectedSize &&
                   CRYPTO_memcmp(cookie, expected.data(), size) == 0
               ? 1
               : 0;
}

LinkSealing::LinkSealing(std::unique_ptr<Context> made) : context(std::move(made)) {}
LinkSealing::~LinkSealing() = default;

std::unique_ptr<LinkSealing> LinkSealing::Make(const LinkKey& key) {
    auto context = std::make_unique<Context>();
    const bool works = context->SetUp(key);
    ERR_clear_error();
    return works ? std::unique_ptr<LinkSealing>(new LinkSealing(std::move(context))) : nullptr;
}

std::unique_ptr<SealedSession> LinkSealing::Call() {
    auto wire = std::make_unique<Wire>();
    SslPointer ssl = context->MakeSsl(*wire);
    if (!ssl) {
        ERR_clear_error();
        return nullptr;
    }
    SSL_set_connect_state(ssl.get());
    auto channel = std::make_unique<SealedSession::Channel>(context->method, std::move(ssl), std::move(wire),
                                                            SessionRole::Caller);
    channel->GoOn();
    return std::unique_ptr<SealedSession>(new SealedSession(std::move(channel)));
}

bool LinkSealing::IsCall(ByteView datagram) {
    return datagram.size() > kMessageTypeAt && datagram[0] == kHandshakeRecord && datagram[kEpochAt] == 0 &&
           datagram[kEpochAt + 1] == 0 && datagram[kMessageTypeAt] == kClientHello;
}

bool LinkSealing::IsCallOf(ByteView datagram, const SealedSession& session) {
    const auto random = session.ClientRandom();
    return IsCall(datagram) && datagram.size() >= kClientRandomAt + random.size() &&
           std::equal(random.begin(), random.end(), datagram.begin() + kClientRandomAt);
}

LinkSealing::Heard LinkSealing::Listen(ByteView datagram, ByteView address, std::span<std::uint8_t> answer) {
    Heard heard;
    if (!IsCall(datagram)) {
        return heard;
    }
    if (!context->listener) {
        context->wire = std::make_unique<Wire>();
        context->listener = context->MakeSsl(*context->wire);
    }
    if (!context->listener) {
        ERR_clear_error();
        return heard;
    }
    Wire& wire = *context->wire;
    wire.address.assign(address.begin(), address.end());
    wire.in = datagram;
    wire.hasIn = true;
    BIO_ADDR* unused = BIO_ADDR_new();
    const int result = unused != nullptr ? DTLSv1_listen(context->listener.get(), unused) : -1;
    BIO_ADDR_free(unused);
    ERR_clear_error();
    wire.peek = false;
    if (result != 1) {
        wire.hasIn = false;
        heard.answerSize = TakeOut(wire, answer);
        wire.outCount = 0;
        heard.answerSize = heard.answerSize <= datagram.size() ? heard.answerSize : 0;
        return heard;
    }
    wire.hasIn = true;
    auto channel = std::make_unique<SealedSession::Channel>(context->method, std::move(context->listener),
                                                            std::move(context->wire), SessionRole::Called);
    Wire& own = *channel->wire;
    channel->GoOn();
    own.hasIn = false;
    own.in = {};
    heard.session.reset(new SealedSession(std::move(channel)));
    return heard;
}

}  // namespace vexil
