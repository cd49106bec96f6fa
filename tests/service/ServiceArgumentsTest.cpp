#include "service/ServiceArguments.h"

#include <gtest/gtest.h>

namespace vexil {
namespace {

using Task = ServiceArguments::Task;

TEST(ServiceArguments, WithoutAnyItServesWithWhatThereIs) {
    std::string problem;
    const auto arguments = ReadServiceArguments({}, problem);
    ASSERT_TRUE(arguments);
    EXPECT_EQ(Task::Serve, arguments->task);
    EXPECT_EQ("", arguments->midi);
}

TEST(ServiceArguments, MidiSystemMayFollowASpaceOrAnEqualsSign) {
    std::string problem;
    for (const char* midi : {"alsa", "jack", "none"}) {
        EXPECT_EQ(midi, ReadServiceArguments({"--midi", midi}, problem)->midi);
        EXPECT_EQ(midi, ReadServiceArguments({std::string("--midi=") + midi}, problem)->midi);
    }
}

TEST(ServiceArguments, UnknownMidiSystemIsRefused) {
    std::string problem;
    for (const std::vector<std::string>& texts :
         {std::vector<std::string>{"--midi", "oss"}, {"--midi="}, {"--midi"}, {"--midi=jackd"}}) {
        EXPECT_FALSE(ReadServiceArguments(texts, problem));
        EXPECT_EQ("--midi takes alsa, jack or none.", problem);
    }
}

TEST(ServiceArguments, TheNetworkMayFollowASpaceOrAnEqualsSign) {
    std::string problem;
    EXPECT_FALSE(ReadServiceArguments({}, problem)->network) << "as it is stored";
    for (const char* where : {"on", "off", "lo", "eth0,wlan0"}) {
        EXPECT_EQ(where, ReadServiceArguments({"--network", where}, problem)->network->Text());
        EXPECT_EQ(where, ReadServiceArguments({std::string("--network=") + where, "--midi", "none"}, problem)
                             ->network->Text());
    }
}

TEST(ServiceArguments, AnInterfaceThatCannotBeIsRefused) {
    std::string problem;
    for (const std::vector<std::string>& texts : {std::vector<std::string>{"--network", "eth0,,"},
                                                  {"--network="},
                                                  {"--network"},
                                                  {"--network=a b"}}) {
        EXPECT_FALSE(ReadServiceArguments(texts, problem));
        EXPECT_EQ("--network takes on, off, lo, or names of interfaces with commas between them.", problem);
    }
}

TEST(ServiceArguments, AnythingElseIsRefused) {
    std::string problem;
    for (const char* text : {"--midix", "midi", "-h", "", "--help=x"}) {
        EXPECT_FALSE(ReadServiceArguments({text}, problem)) << text;
        EXPECT_EQ(std::string("There is no option \"") + text + "\".", problem);
    }
}

TEST(ServiceArguments, WhatIsRefusedIsNamedWithoutCharactersThatActOnATerminal) {
    std::string problem;
    EXPECT_FALSE(ReadServiceArguments({"--\x1b[2J\u009b\u202e"}, problem));
    EXPECT_EQ("There is no option \"--?[2J??\".", problem);
}

TEST(ServiceArguments, HelpAndVersionAreTasks) {
    std::string problem;
    EXPECT_EQ(Task::Help, ReadServiceArguments({"--help"}, problem)->task);
    EXPECT_EQ(Task::Version, ReadServiceArguments({"--version"}, problem)->task);
}

}  // namespace
}  // namespace vexil
