// After every loss of packets out of twelve, what is heard is what was sent.
#include <gmock/gmock.h>

#include <functional>
#include <random>
#include <string>
#include <vector>

#include "tests/service/network/rtp/JournalProof.h"

namespace vexil::test {
namespace {

using testing::IsEmpty;
using testing::Not;

// Each is twelve packets.
const std::vector<std::string> kNotes = {
    "90 3C 64", "90 40 50 90 43 50", "80 3C 40", "90 3C 64", "80 40 40 90 40 51", "90 3C 00", "90 48 7F",
    "80 48 20", "90 48 7F",          "80 43 40", "",         "80 40 40 80 48 00"};
const std::vector<std::string> kNotesOfSeveralChannels = {
    "90 3C 64 91 3C 64", "92 3C 64 91 7F 01", "80 3C 40", "90 00 01", "91 3C 00", "82 3C 40",
    "91 7E 7F",          "81 7F 40",          "90 00 00", "92 78 11", "81 7E 40", "82 78 40"};
const std::vector<std::string> kOverlappingNotes = {
    "90 3C 64", "90 3C 64", "90 3C 50", "80 3C 40", "90 3C 64", "90 3C 64 80 3C 40",
    "90 3C 40", "80 3C 10", "80 3C 10", "90 3C 22", "90 3D 22", "80 3C 40 80 3D 40"};
const std::vector<std::string> kPedals = {
    "90 3C 64 B0 40 7F", "80 3C 40", "90 40 64", "B0 40 00", "B0 40 7F",          "80 40 40",
    "90 43 64 B0 42 7F", "80 43 40", "B0 40 30", "B0 42 00", "B0 40 41 B0 43 7F", "B0 40 00 B0 43 00"};
const std::vector<std::string> kQuickPedals = {
    "90 3C 64",          "B0 40 7F",          "80 3C 40", "B0 40 00 B0 40 7F", "90 3E 64", "80 3E 40",
    "B0 40 00 B0 40 7F", "B0 40 00 B0 40 7F", "90 40 64", "80 40 40",          "",         "B0 40 00"};
const std::vector<std::string> kBendAndPressure = {
    "E0 00 40 90 3C 64", "E0 11 50", "D0 30", "A0 3C 20", "E0 7F 7F", "A0 3C 21 D0 31",
    "E0 00 40",          "A0 3D 01", "D0 00", "A0 3C 00", "80 3C 40", "E0 01 00 D0 7F"};
const std::vector<std::string> kProgramsAndBanks = {
    "C0 05",          "B0 00 01 B0 20 02 C0 06", "C0 07",          "B0 00 01 B0 20 03",
    "C0 07",          "B0 00 04 B0 20 00",       "C0 08 90 3C 64", "B0 00 04 B0 20 05",
    "C0 08 B0 00 01", "B0 20 00 C0 00",          "C0 08",          "B1 00 01 C1 01"};
const std::vector<std::string> kControllers = {
    "B0 07 64 B0 0A 40", "B0 01 10", "B0 01 20 B0 01 30", "B0 0B 70", "B0 27 11", "B0 01 00",
    "B0 5B 40",          "B0 79 00", "B0 01 05 B0 0B 60", "B0 7A 00", "B0 79 00", "B0 7A 7F B0 07 01"};
const std::vector<std::string> kAllNotesOff = {
    "90 3C 64 90 40 64", "B0 7B 00",       "90 3C 64", "B0 40 7F B0 7B 00",
    "90 3C 64",          "B0 78 00",       "D0 44",    "90 3C 64 B0 7E 01",
    "90 41 64 A0 41 10", "B0 7F 00 D0 45", "B0 7C 00", "90 3C 64 B0 7D 00 90 3D 64"};
const std::vector<std::string> kResetAllControllers = {
    "90 3C 64 E0 01 02", "B0 40 7F D0 10", "B0 79 00 B0 40 7F", "A0 3C 11",
    "B0 79 00",          "E0 03 04",       "B0 40 7F",          "80 3C 40",
    "B0 79 00",          "D0 22",          "90 3C 64 B0 79 00", "B0 40 7F B0 40 00"};
const std::vector<std::string> kParameters = {"B0 65 00 B0 64 00 B0 06 02",
                                              "B0 26 10",
                                              "B0 65 00 B0 64 01",
                                              "B0 06 40",
                                              "B0 60 00 B0 60 00",
                                              "B0 65 7F B0 64 7F",
                                              "B0 06 11",
                                              "B0 63 01",
                                              "B0 62 05",
                                              "B0 06 09",
                                              "B0 61 00",
                                              "B0 63 7F B0 62 7F"};
const std::vector<std::string> kMoreParameters = {"B0 63 01 B0 62 02 B0 06 03",
                                                  "B0 65 00",
                                                  "B0 06 05",
                                                  "B0 64 02",
                                                  "B0 26 07",
                                                  "B0 79 00",
                                                  "B0 06 01",
                                                  "B0 65 00",
                                                  "B0 64 00",
                                                  "B0 06 0C",
                                                  "B0 64 01 B0 06 0D",
                                                  "B0 60 00 B0 06 0D"};
const std::vector<std::string> kResets = {"90 3C 64 B0 07 11 C0 01",
                                          "FF",
                                          "90 3C 50 F3 05",
                                          "B0 40 7F B0 7B 00",
                                          "FF 90 3C 51",
                                          "E0 01 01",
                                          "F6 F3 06",
                                          "B0 40 7F",
                                          "FF",
                                          "C0 02 90 3D 64",
                                          "B0 7B 00",
                                          "F3 07 90 3D 64"};

const std::vector<std::vector<std::string>> kPhrases = {
    kNotes,       kNotesOfSeveralChannels, kOverlappingNotes, kPedals,
    kQuickPedals, kBendAndPressure,        kProgramsAndBanks, kControllers,
    kAllNotesOff, kResetAllControllers,    kParameters,       kMoreParameters,
    kResets};

// A phrase of everything, on few numbers, so that much meets.
Phrase RandomPhrase(unsigned seed) {
    std::minstd_rand generator(seed);
    const auto below = [&generator](unsigned bound) {
        return static_cast<std::uint8_t>(generator() % bound);
    };
    const auto pick = [&](std::initializer_list<int> values) {
        return static_cast<std::uint8_t>(*(values.begin() + below(static_cast<unsigned>(values.size()))));
    };
    Phrase phrase(12);
    for (auto& packet : phrase) {
        for (unsigned count = below(5); count > 0; --count) {
            const std::uint8_t channel = below(2);
            const auto add = [&](int kind, std::uint8_t first, std::uint8_t second) {
                packet.push_back({static_cast<std::uint8_t>(kind | channel), first, second});
            };
            const auto note = static_cast<std::uint8_t>(60 + below(3));
            switch (below(12)) {
                case 0:
                case 1:
                case 2:
                    add(0x90, note, pick({0x40, 0x41, 0x7F}));
                    break;
                case 3:
                case 4:
                    add(0x80, note, pick({0x40, 0x00}));
                    break;
                case 5:
                    add(0xB0, pick({64, 64, 66, 67, 69}), pick({0, 127, 64}));
                    break;
                case 6:
                    if (const std::uint8_t number = pick({0, 1, 7, 11, 6}); number != 0) {
                        add(0xB0, number, below(3));
                    } else {
                        add(0xB0, 0, below(3));
                        add(0xB0, 32, below(3));
                    }
                    break;
                case 7:
                    packet.push_back(
                        {static_cast<std::uint8_t>((below(2) != 0 ? 0xC0 : 0xD0) | channel), below(3)});
                    break;
                case 8:
                    add(below(2) != 0 ? 0xE0 : 0xA0, note, below(3));
                    break;
                case 9:
                    add(0xB0, pick({120, 121, 123, 126, 127}), 0);
                    break;
                case 10: {
                    const bool isRegistered = below(2) != 0;
                    const std::uint8_t high = pick({0, 0, 1, 127});
                    add(0xB0, isRegistered ? 101 : 99, high);
                    add(0xB0, isRegistered ? 100 : 98, high == 127 ? 127 : below(2));
                    break;
                }
                default:
                    add(0xB0, pick({6, 38, 96, 97}), below(3));
                    break;
            }
        }
    }
    return phrase;
}

TEST(JournalProof, EveryLossOfEveryPhraseIsPutRight) {
    for (const auto& phrase : kPhrases) {
        ASSERT_EQ(phrase.size(), 12U);
        EXPECT_THAT(JournalProof{}.Run(PhraseOf(phrase)), IsEmpty()) << phrase.front();
    }
}

TEST(JournalProof, EveryLossOfRandomPhrasesIsPutRight) {
    for (unsigned seed = 1; seed <= VEXIL_JOURNAL_PHRASES; ++seed) {
        EXPECT_THAT(JournalProof{}.Run(RandomPhrase(seed)), IsEmpty()) << seed;
    }
}

TEST(JournalProof, EveryLossIsPutRightWhileThePeerSaysWhatItHas) {
    JournalProof proof;
    proof.confirms = [](std::size_t) { return true; };
    EXPECT_THAT(proof.Run(PhraseOf(kNotes)), IsEmpty());
    EXPECT_THAT(proof.Run(RandomPhrase(1)), IsEmpty());
    proof.confirms = [](std::size_t packet) { return packet % 3 == 1; };
    EXPECT_THAT(proof.Run(PhraseOf(kMoreParameters)), IsEmpty());
}

// A fault, and a phrase that shows it.
bool IsCaught(const JournalProof& fault, const std::vector<std::string>& phrase) {
    return !fault.Run(PhraseOf(phrase)).empty();
}

TEST(JournalProof, ASenderThatForgetsAnyKindOfMessageIsCaught) {
    const auto controller = [](int number) {
        return [number](const Message& message) { return message[0] >> 4 == 0xB && message[1] == number; };
    };
    const auto kind = [](int status) {
        return [status](const Message& message) { return message[0] >> 4 == status; };
    };
    const auto system = [](int status) {
        return [status](const Message& message) { return message[0] == status; };
    };
    struct Forgotten {
        std::function<bool(const Message&)> message;
        const std::vector<std::string>* phrase;
    };
    const std::vector<Forgotten> forgotten = {{controller(1), &kControllers},
                                              {controller(6), &kParameters},
                                              {controller(7), &kControllers},
                                              {controller(38), &kParameters},
                                              {controller(64), &kPedals},
                                              {controller(66), &kPedals},
                                              {controller(96), &kParameters},
                                              {controller(97), &kParameters},
                                              {controller(98), &kParameters},
                                              {controller(99), &kParameters},
                                              {controller(100), &kParameters},
                                              {controller(101), &kParameters},
                                              {controller(120), &kAllNotesOff},
                                              {controller(121), &kResetAllControllers},
                                              {controller(122), &kControllers},
                                              {controller(123), &kAllNotesOff},
                                              {kind(8), &kNotes},
                                              {kind(9), &kNotes},
                                              {kind(0xA), &kBendAndPressure},
                                              {kind(0xC), &kProgramsAndBanks},
                                              {kind(0xD), &kBendAndPressure},
                                              {kind(0xE), &kBendAndPressure},
                                              {system(0xFF), &kResets},
                                              {system(0xF3), &kResets}};
    for (std::size_t place = 0; place < forgotten.size(); ++place) {
        JournalProof fault;
        fault.hiddenFromSender = forgotten[place].message;
        EXPECT_TRUE(IsCaught(fault, *forgotten[place].phrase)) << place;
    }
}

TEST(JournalProof, AReceiverThatForgetsNotesIsCaught) {
    JournalProof fault;
    fault.hiddenFromReceiver = [](const Message& message) { return message[0] >> 4 == 9; };
    std::vector<std::string> heldNote(12, "B0 07 11");
    heldNote.front() = "90 3C 64";
    EXPECT_THAT(fault.Run(PhraseOf(heldNote)), testing::StartsWith("a note is played twice"));
    fault.hiddenFromReceiver = [](const Message& message) { return message[0] >> 4 == 8; };
    EXPECT_TRUE(IsCaught(fault, kNotes));
}

TEST(JournalProof, JournalsThatAreEmptyOrChangedAreCaught) {
    JournalProof fault;
    fault.spoils = [](std::vector<std::uint8_t>& journal) {
        journal.resize(kSmallestJournal);
        journal[0] = 0x80;
    };
    EXPECT_TRUE(IsCaught(fault, kNotes));
    fault.spoils = [](std::vector<std::uint8_t>& journal) {
        journal.back() = static_cast<std::uint8_t>(journal.back() ^ (journal.size() > 3 ? 0x10 : 0));
    };
    EXPECT_TRUE(IsCaught(fault, kNotes));
}

TEST(JournalProof, ACheckpointThatMovesOverLostPacketsIsCaught) {
    JournalProof fault;
    fault.confirmsLost = true;
    EXPECT_TRUE(IsCaught(fault, kNotes));
}

}  // namespace
}  // namespace vexil::test
