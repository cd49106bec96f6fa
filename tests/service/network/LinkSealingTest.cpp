// Two sealed ends in memory. Time in these tests is the system's only where a lost part of a handshake is
// sent again.
#include <gmock/gmock.h>

#include <chrono>
#include <deque>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "service/network/LinkSealing.h"

namespace vexil {
namespace {

using Bytes = std::vector<std::uint8_t>;
using State = SealedSession::State;

const Bytes kAddress = {192, 168, 1, 5, 0x2B, 0xB4};

// Keys are made once: that is what takes time.
const LinkKey& KeyOf(std::size_t computer) {
    static const std::vector<LinkKey> kKeys = {LinkKey::Make().value(), LinkKey::Make().value()};
    return kKeys[computer];
}

// A caller, a called computer, and a wire between them that loses what it is told to.
class SealedPair {
  public:
    explicit SealedPair(double lossOfAll = 0, unsigned seed = 1) : loss(lossOfAll), random(seed) {}

    void Call() { caller = callerSealing->Call(); }
    // Until both are ready, or for 20 seconds.
    bool Connect() {
        const auto begun = std::chrono::steady_clock::now();
        while (std::chrono::steady_clock::now() - begun < std::chrono::seconds(20)) {
            Exchange();
            if (caller->CurrentState() == State::Ready && called && called->CurrentState() == State::Ready) {
                return true;
            }
            WaitForATimeout();
        }
        return false;
    }
    void Exchange() {
        for (bool moved = true; moved;) {
            moved = false;
            Bytes datagram(kLongestDatagram);
            while (const std::size_t size = caller->PollTransmit(datagram)) {
                moved = true;
                Arrive(Bytes(datagram.begin(), datagram.begin() + static_cast<std::ptrdiff_t>(size)));
            }
            while (const std::size_t size = called ? called->PollTransmit(datagram) : 0) {
                moved = true;
                if (!IsLost()) {
                    caller->HandleDatagram(ByteView(datagram).first(size), body);
                }
            }
        }
    }
    void Arrive(const Bytes& datagram) {
        longestHandshake = std::max(longestHandshake, datagram.size());
        if (IsLost()) {
            return;
        }
        if (called && (!LinkSealing::IsCall(datagram) || LinkSealing::IsCallOf(datagram, *called))) {
            called->HandleDatagram(datagram, body);
            return;
        }
        Bytes answer(kLongestDatagram);
        LinkSealing::Heard heard = calledSealing->Listen(datagram, kAddress, answer);
        EXPECT_LE(heard.answerSize, datagram.size());
        if (heard.session) {
            called = std::move(heard.session);
        } else if (heard.answerSize > 0 && !IsLost()) {
            caller->HandleDatagram(ByteView(answer).first(heard.answerSize), body);
        }
    }
    bool IsLost() { return loss > 0 && std::uniform_real_distribution<>()(random) < loss; }
    void WaitForATimeout() {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        for (SealedSession* session : {caller.get(), called.get()}) {
            if (session != nullptr && session->TimeoutIn() == std::uint64_t{0}) {
                session->HandleTimeout();
            }
        }
    }

    static Bytes Sealed(SealedSession& session, const Bytes& body) {
        Bytes datagram(kLongestDatagram);
        datagram.resize(session.Seal(body, datagram));
        return datagram;
    }
    static Bytes Opened(SealedSession& session, const Bytes& datagram) {
        Bytes opened(kLongestDatagram);
        opened.resize(session.HandleDatagram(datagram, opened));
        return opened;
    }

    std::unique_ptr<LinkSealing> callerSealing = LinkSealing::Make(KeyOf(0));
    std::unique_ptr<LinkSealing> calledSealing = LinkSealing::Make(KeyOf(1));
    std::unique_ptr<SealedSession> caller;
    std::unique_ptr<SealedSession> called;
    std::size_t longestHandshake = 0;

  private:
    double loss;
    std::mt19937 random;
    Bytes body = Bytes(kLongestDatagram);
};

const Bytes kBody = {1, 2, 3, 4, 5, 6, 7};

TEST(LinkSealing, BothEndsKnowTheKeyOfTheOther) {
    SealedPair pair;
    pair.Call();
    ASSERT_TRUE(pair.Connect());
    EXPECT_EQ(pair.caller->PeerKey(), KeyOf(1).Hash());
    EXPECT_EQ(pair.called->PeerKey(), KeyOf(0).Hash());
    EXPECT_EQ(pair.caller->ClientRandom(), pair.called->ClientRandom());
    EXPECT_EQ(pair.caller->Role(), SessionRole::Caller);
    EXPECT_EQ(pair.called->Role(), SessionRole::Called);
}

TEST(LinkSealing, TheHandshakePassesWhereOnlySmallDatagramsDo) {
    SealedPair pair;
    pair.Call();
    ASSERT_TRUE(pair.Connect());
    EXPECT_LE(pair.longestHandshake, kSmallDatagram - 28);
}

TEST(LinkSealing, ABodyArrivesAsItWasAndTakes37BytesMore) {
    SealedPair pair;
    pair.Call();
    ASSERT_TRUE(pair.Connect());
    const Bytes longest(kLongestBody, 7);
    for (const Bytes& body : {kBody, longest}) {
        const Bytes there = SealedPair::Sealed(*pair.caller, body);
        EXPECT_EQ(there.size(), body.size() + kSealingOverhead);
        EXPECT_EQ(SealedPair::Opened(*pair.called, there), body);
        EXPECT_EQ(SealedPair::Opened(*pair.caller, SealedPair::Sealed(*pair.called, body)), body);
    }
    EXPECT_TRUE(SealedPair::Sealed(*pair.caller, Bytes(kLongestBody + 1)).empty());
}

TEST(LinkSealing, TheHandshakeGetsThroughAtThirtyPercentLossBothWays) {
    for (unsigned seed = 1; seed <= 5; ++seed) {
        SealedPair pair(0.3, seed);
        pair.Call();
        EXPECT_TRUE(pair.Connect()) << seed;
    }
}

TEST(LinkSealing, ForgedReplayedTruncatedAndRandomDatagramsChangeNothing) {
    SealedPair pair;
    pair.Call();
    ASSERT_TRUE(pair.Connect());
    const Bytes first = SealedPair::Sealed(*pair.caller, kBody);
    ASSERT_EQ(SealedPair::Opened(*pair.called, first), kBody);
    EXPECT_TRUE(SealedPair::Opened(*pair.called, first).empty()) << "a replay";
    const Bytes second = SealedPair::Sealed(*pair.caller, kBody);
    for (std::size_t size = 0; size < second.size(); ++size) {
        EXPECT_TRUE(
            SealedPair::Opened(*pair.called,
                               Bytes(second.begin(), second.begin() + static_cast<std::ptrdiff_t>(size)))
                .empty());
    }
    for (std::size_t at = 0; at < second.size(); ++at) {
        Bytes forged = second;
        forged[at] ^= 1;
        EXPECT_TRUE(SealedPair::Opened(*pair.called, forged).empty()) << at;
    }
    std::mt19937 random(1);
    for (int count = 0; count < 2000; ++count) {
        Bytes noise(random() % 300);
        for (std::uint8_t& byte : noise) {
            byte = static_cast<std::uint8_t>(random());
        }
        if (noise.size() > 2 && count % 2 == 0) {
            noise[0] = static_cast<std::uint8_t>(20 + random() % 4);
            noise[1] = 0xFE;
            noise[2] = 0xFD;
        }
        EXPECT_TRUE(SealedPair::Opened(*pair.called, noise).empty());
    }
    // A plain alert, fatal, of the first epoch.
    EXPECT_TRUE(
        SealedPair::Opened(*pair.called, {21, 0xFE, 0xFD, 0, 0, 0, 0, 0, 0, 0, 9, 0, 2, 2, 40}).empty());
    EXPECT_EQ(pair.called->CurrentState(), State::Ready);
    EXPECT_EQ(SealedPair::Opened(*pair.called, second), kBody);
}

TEST(LinkSealing, OrderDoesNotMatterWithinTheWindowOfReplays) {
    SealedPair pair;
    pair.Call();
    ASSERT_TRUE(pair.Connect());
    std::vector<Bytes> datagrams;
    for (std::uint8_t number = 0; number < 60; ++number) {
        datagrams.push_back(SealedPair::Sealed(*pair.caller, {number}));
    }
    for (std::size_t number = datagrams.size(); number-- > 0;) {
        EXPECT_EQ(SealedPair::Opened(*pair.called, datagrams[number]),
                  Bytes{static_cast<std::uint8_t>(number)});
    }
}

TEST(LinkSealing, AHelloWithoutACookieKeepsNothingAndIsNotOutweighed) {
    SealedPair pair;
    pair.Call();
    Bytes hello(kLongestDatagram);
    hello.resize(pair.caller->PollTransmit(hello));
    ASSERT_TRUE(LinkSealing::IsCall(hello));
    Bytes answer(kLongestDatagram);
    for (int count = 0; count < 1000; ++count) {
        const LinkSealing::Heard heard = pair.calledSealing->Listen(hello, kAddress, answer);
        ASSERT_FALSE(heard.session);
        ASSERT_GT(heard.answerSize, 0U);
        ASSERT_LE(heard.answerSize, hello.size());
    }
}

TEST(LinkSealing, ACookieCountsForItsAddressOnly) {
    SealedPair pair;
    pair.Call();
    Bytes hello(kLongestDatagram);
    hello.resize(pair.caller->PollTransmit(hello));
    Bytes answer(kLongestDatagram);
    answer.resize(pair.calledSealing->Listen(hello, kAddress, answer).answerSize);
    Bytes body(kLongestDatagram);
    pair.caller->HandleDatagram(answer, body);
    Bytes second(kLongestDatagram);
    second.resize(pair.caller->PollTransmit(second));
    const Bytes elsewhere = {10, 0, 0, 1, 0x2B, 0xB4};
    EXPECT_FALSE(pair.calledSealing->Listen(second, elsewhere, answer).session);
    Bytes more(kLongestDatagram);
    EXPECT_TRUE(pair.calledSealing->Listen(second, kAddress, more).session);
}

TEST(LinkSealing, WhatIsListenedToMayBeAnything) {
    SealedPair pair;
    std::mt19937 random(2);
    Bytes answer(kLongestDatagram);
    pair.Call();
    Bytes hello(kLongestDatagram);
    hello.resize(pair.caller->PollTransmit(hello));
    for (int count = 0; count < 2000; ++count) {
        Bytes changed = hello;
        for (int changes = 0; changes < 3; ++changes) {
            changed[14 + random() % (changed.size() - 14)] = static_cast<std::uint8_t>(random());
        }
        changed.resize(14 + random() % (changed.size() - 13));
        const LinkSealing::Heard heard = pair.calledSealing->Listen(changed, kAddress, answer);
        EXPECT_FALSE(heard.session);
        EXPECT_LE(heard.answerSize, changed.size());
    }
    EXPECT_TRUE(pair.Connect());
}

TEST(LinkSealing, APeerThatRestartsIsTakenUpBesideTheOldSession) {
    SealedPair pair;
    pair.Call();
    ASSERT_TRUE(pair.Connect());
    const std::unique_ptr<SealedSession> oldCalled = std::move(pair.called);
    const std::unique_ptr<SealedSession> oldCaller = std::move(pair.caller);
    pair.callerSealing = LinkSealing::Make(KeyOf(0));
    pair.Call();
    ASSERT_TRUE(pair.Connect());
    EXPECT_EQ(pair.called->PeerKey(), oldCalled->PeerKey());
    EXPECT_EQ(SealedPair::Opened(*oldCalled, SealedPair::Sealed(*oldCaller, kBody)), kBody);
    EXPECT_EQ(SealedPair::Opened(*pair.called, SealedPair::Sealed(*pair.caller, kBody)), kBody);
    EXPECT_TRUE(SealedPair::Opened(*pair.called, SealedPair::Sealed(*oldCaller, kBody)).empty());
}

TEST(LinkSealing, AHelloThatWasSentAgainBelongsToItsSession) {
    SealedPair pair;
    pair.Call();
    Bytes hello(kLongestDatagram);
    hello.resize(pair.caller->PollTransmit(hello));
    pair.Arrive(hello);
    ASSERT_TRUE(pair.Connect());
    EXPECT_TRUE(LinkSealing::IsCallOf(hello, *pair.called));
    EXPECT_TRUE(LinkSealing::IsCallOf(hello, *pair.caller));
    SealedPair other;
    other.Call();
    EXPECT_FALSE(LinkSealing::IsCallOf(hello, *other.caller));
}

TEST(LinkSealing, AKeyIsTheSameAfterItWasStored) {
    const auto again = LinkKey::FromPem(KeyOf(0).Pem());
    ASSERT_TRUE(again);
    EXPECT_EQ(again->Hash(), KeyOf(0).Hash());
    EXPECT_NE(KeyOf(0).Hash(), KeyOf(1).Hash());
    const ComputerId id = ComputerIdOf(again->Hash());
    EXPECT_TRUE(std::equal(id.begin(), id.end(), again->Hash().begin()));
}

TEST(LinkSealing, WhatIsNoKeyIsRefused) {
    const std::string& pem = KeyOf(0).Pem();
    EXPECT_FALSE(LinkKey::FromPem(""));
    EXPECT_FALSE(LinkKey::FromPem("no key"));
    EXPECT_FALSE(LinkKey::FromPem(pem.substr(0, pem.size() / 2)));
    std::string damaged = pem;
    damaged[pem.size() / 2] = '!';
    EXPECT_FALSE(LinkKey::FromPem(damaged));
}

TEST(LinkSealing, AProofFitsItsSecretItsRoleAndItsSession) {
    const auto secret = StretchSecret("correct horse");
    const auto other = StretchSecret("another horse");
    ASSERT_TRUE(secret && other);
    EXPECT_FALSE(StretchSecret("1234567"));
    SealedPair pair;
    pair.Call();
    ASSERT_TRUE(pair.Connect());
    const SecretProof proof = pair.caller->ProofOf(*secret, SessionRole::Caller);
    EXPECT_EQ(proof, pair.called->ProofOf(*secret, SessionRole::Caller));
    EXPECT_NE(proof, pair.called->ProofOf(*secret, SessionRole::Called));
    EXPECT_NE(proof, pair.called->ProofOf(*other, SessionRole::Caller));
    SealedPair second;
    second.Call();
    ASSERT_TRUE(second.Connect());
    EXPECT_NE(proof, second.caller->ProofOf(*secret, SessionRole::Caller));
}

}  // namespace
}  // namespace vexil
