#include "service/backends/BackendChoice.h"

#include <gtest/gtest.h>

namespace vexil {
namespace {

constexpr const char* kThere = "/dev/null";  // can be opened
constexpr const char* kMissing = "/nowhere/seq";

TEST(BackendChoiceTest, WhatIsAskedForIsChosen) {
    for (const char* name : {"alsa", "jack", "none"}) {
        EXPECT_EQ(ChooseBackend(name, kThere), name);
        EXPECT_EQ(ChooseBackend(name, kMissing), name);
    }
}

#ifdef VEXIL_ALSA
TEST(BackendChoiceTest, TheSequencerIsChosenWhereItIs) {
    EXPECT_EQ(ChooseBackend("", kThere), "alsa");
}
#endif

#ifdef VEXIL_JACK
TEST(BackendChoiceTest, JackIsChosenWhereThereIsNoSequencer) {
    EXPECT_EQ(ChooseBackend("", kMissing), "jack");
}
#endif

TEST(BackendChoiceTest, WhatIsChosenCanBeMade) {
    std::string problem;
    for (const char* device : {kThere, kMissing}) {
        const std::string name = ChooseBackend("", device);
        const std::unique_ptr<MidiBackend> backend = MakeBackend(name, problem);
        ASSERT_NE(backend, nullptr) << problem;
        EXPECT_EQ(backend->Name(), name);
    }
}

// What status says in the first moment, before the MIDI system has been begun.
TEST(BackendChoiceTest, WhatIsMadeSaysThatItIsBeingStarted) {
    std::string problem;
#ifdef VEXIL_ALSA
    EXPECT_EQ(MakeBackend("alsa", problem)->Problem(), "The ALSA sequencer is being started.");
#endif
#ifdef VEXIL_JACK
    EXPECT_EQ(MakeBackend("jack", problem)->Problem(), "JACK is being started.");
#endif
}

TEST(BackendChoiceTest, NoneCanAlwaysBeMade) {
    std::string problem;
    const std::unique_ptr<MidiBackend> backend = MakeBackend("none", problem);
    ASSERT_NE(backend, nullptr);
    EXPECT_STREQ(backend->Name(), "none");
    EXPECT_EQ(problem, "");
}

TEST(BackendChoiceTest, AnotherNameIsRefusedInWords) {
    std::string problem;
    EXPECT_EQ(MakeBackend("tape", problem), nullptr);
    EXPECT_EQ(problem, "There is no MIDI system \"tape\".");
}

}  // namespace
}  // namespace vexil
