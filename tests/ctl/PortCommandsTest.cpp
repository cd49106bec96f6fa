// The settings of single ports, standard input and output, and help.
#include "shared/System/PrintableText.h"
#include "tests/ctl/CtlFixture.h"

namespace vexil {
namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

constexpr const char* kPortDefaults =
    "in=off\nout=off\npipe=off\ntarget=\nsource=any:any\nimmediately=off\nin-name=\nout-name=\n";

class PortCommandsTest : public CtlFixture {
  protected:
    std::string Get(const std::string& port, const std::string& key) {
        const CtlResult result = Run({"get", port, key});
        EXPECT_EQ(result.status, kCtlDone) << result.errors;
        return result.output;
    }
    void Do(const std::vector<std::string>& arguments) {
        const CtlResult result = Run(arguments);
        EXPECT_EQ(result.status, kCtlDone) << result.errors;
        EXPECT_THAT(result.output, StartsWith("The settings of port " + arguments[1] + " are stored.\n"));
    }
};

TEST_F(PortCommandsTest, AllSettingsOfAPortAreShown) {
    const CtlResult result = Run({"get", "23"});
    EXPECT_EQ(result.status, kCtlDone);
    EXPECT_EQ(result.output, kPortDefaults);
}

TEST_F(PortCommandsTest, WhatIsSetIsStoredAndTheServiceIsTold) {
    Serve();
    const CtlResult result = Run({"set", "23", "in=on", "in-name=Stage piano", "source=studio:12"});
    EXPECT_EQ(result.status, kCtlDone) << result.errors;
    EXPECT_THAT(result.output,
                StartsWith("The settings of port 23 are stored.\nThe service has taken them up.\n"));
    EXPECT_EQ(Get("23", "in"), "on\n");
    EXPECT_EQ(Get("23", "in-name"), "Stage piano\n");
    EXPECT_EQ(Get("23", "source"), "studio:12\n");
    EXPECT_EQ(Run({"get", "24"}).output.substr(0, 6), "in=off") << "no other port is touched";
}

TEST_F(PortCommandsTest, EveryKeyKeepsWhatItWasSetTo) {
    for (const auto& [key, value] :
         std::vector<std::pair<std::string, std::string>>{{"in", "on"},
                                                          {"out", "on"},
                                                          {"pipe", "on"},
                                                          {"target", "fe80::1:88"},
                                                          {"source", "any:18"},
                                                          {"source", "stage:any"},
                                                          {"source", "stage:11"},
                                                          {"immediately", "on"},
                                                          {"in-name", "a = b"},
                                                          {"out-name", "B\xc3\xbchne"}}) {
        Do({"set", "88", key + "=" + value});
        EXPECT_EQ(Get("88", key), value + "\n");
    }
    Do({"set", "88", "in=off", "out-name=", "target="});
    EXPECT_EQ(Get("88", "in"), "off\n");
    EXPECT_EQ(Get("88", "out-name"), "\n");
    EXPECT_EQ(Get("88", "target"), "\n");
}

TEST_F(PortCommandsTest, SidesAreSwitchedOnAndOff) {
    Do({"enable", "12"});
    EXPECT_THAT(Run({"get", "12"}).output, StartsWith("in=on\nout=on\npipe=off\n"));
    Do({"disable", "12", "in"});
    EXPECT_THAT(Run({"get", "12"}).output, StartsWith("in=off\nout=on\npipe=off\n"));
    Do({"enable", "12", "pipe"});
    EXPECT_THAT(Run({"get", "12"}).output, StartsWith("in=off\nout=on\npipe=on\n"));
    Do({"disable", "12"});
    EXPECT_THAT(Run({"get", "12"}).output, StartsWith("in=off\nout=off\npipe=off\n"));
}

TEST_F(PortCommandsTest, ConnectSendsTheOutputThere) {
    Do({"set", "11", "pipe=on", "out=off"});
    Do({"connect", "11", "studio:12"});
    EXPECT_THAT(Run({"get", "11"}).output, StartsWith("in=off\nout=on\npipe=off\ntarget=studio:12\n"));
}

TEST_F(PortCommandsTest, WhereNoPortIsLeftTheFirstOutputIsEnabledAndThatIsSaid) {
    const CtlResult result = Run({"disable", "11"});
    EXPECT_EQ(result.status, kCtlDone);
    EXPECT_EQ(result.errors, "vexil3ctl: no port is enabled in them, so the output of port 11 was\n");
    EXPECT_EQ(Get("11", "out"), "on\n");
}

TEST_F(PortCommandsTest, WhatIsWrongIsSaidAndChangesNothing) {
    ExpectUsageError({"get"}, "'get' needs a port");
    ExpectUsageError({"get", "19"}, "'19' is no port: they are 11 to 18, 21 to 28, up to 81 to 88");
    ExpectUsageError({"get", "11", "volume"}, "there is no key 'volume'");
    ExpectUsageError({"set", "11"}, "'set' needs a port and KEY=VALUE");
    ExpectUsageError({"set", "11", "in"}, "'in' is not KEY=VALUE");
    ExpectUsageError({"set", "11", "in=on", "volume=11"}, "there is no key 'volume'");
    ExpectUsageError({"set", "11", "in=1"}, "'1' is neither on nor off");
    ExpectUsageError({"set", "11", "target=studio"},
                     "'studio' is no target: COMPUTER:PORT is, such as studio:12");
    ExpectUsageError({"set", "11", "target=:12"}, "':12' is no target: COMPUTER:PORT is, such as studio:12");
    ExpectUsageError({"set", "11", "source=studio:1"},
                     "'studio:1' is no source: COMPUTER:PORT is, such as studio:12, studio:any or any:any");
    ExpectUsageError({"set", "11", "in-name=a\nb"}, "a name has no control characters");
    ExpectUsageError({"connect", "11"}, "'connect' needs a port and COMPUTER:PORT");
    ExpectUsageError({"enable", "11", "inn"}, "'inn' is not in, out or pipe");
    EXPECT_EQ(Get("11", "in"), "off\n");
    EXPECT_EQ(CtlFolder::Content(folder.StoredFile()), "") << "nothing is stored";
}

TEST_F(PortCommandsTest, SettingsAreLoadedFromStandardInput) {
    console.input = "[Port_01]\nProperties=Input\nInpName=Strings\nSpeed=1\n";
    const CtlResult result = Run({"load", "-"});
    EXPECT_EQ(result.status, kCtlDone);
    EXPECT_THAT(result.output, StartsWith("The settings of standard input are stored.\n"));
    EXPECT_THAT(result.errors, StartsWith("vexil3ctl: standard input:4: "));
    EXPECT_EQ(Get("12", "in-name"), "Strings\n");
    console.input = "nothing";
    EXPECT_EQ(Run({"load", "-"}).errors, "vexil3ctl: standard input is no settings file\n");
    console.input.reset();
    EXPECT_EQ(Run({"load", "-"}).errors, "vexil3ctl: standard input cannot be read, or is too large\n");
}

TEST_F(PortCommandsTest, StandardInputIsChecked) {
    console.input = "[Port_01]\nProperties=Input\n";
    EXPECT_EQ(Run({"check", "-"}).output, "Everything in standard input is understood.\n");
}

TEST_F(PortCommandsTest, SettingsAreSavedToStandardOutput) {
    Do({"set", "12", "in-name=Strings"});
    const CtlResult result = Run({"save", "-"});
    EXPECT_EQ(result.status, kCtlDone) << result.errors;
    EXPECT_EQ(result.output, "");
    ASSERT_EQ(console.shown.size(), 1U);
    EXPECT_THAT(console.shown[0], HasSubstr("\nInpName=Strings\n"));
    console.input = console.shown[0];
    EXPECT_EQ(Run({"load", "-"}).errors, "");
    console.showError = ENOSPC;
    EXPECT_EQ(Run({"save", "-"}).errors, "vexil3ctl: standard output: No space left on device\n");
}

TEST_F(PortCommandsTest, TheStatusOfPortsIsShownAlone) {
    nlohmann::json status = SampleStatus();
    const std::string port = std::to_string(status["ports"][0]["port"].get<int>());
    Serve(status.dump());
    const CtlResult result = Run({"status", port, "77"});
    EXPECT_EQ(result.status, kCtlDone) << result.errors;
    EXPECT_THAT(result.output, StartsWith("PORT SIDE "));
    EXPECT_THAT(result.output, HasSubstr("\n" + port + " "));
    EXPECT_THAT(result.output, EndsWith("\nPort 77 is not in use.\n"));
    EXPECT_EQ(Run({"status", "77"}).output, "Port 77 is not in use.\n");
    const auto json = nlohmann::json::parse(Run({"status", port, "--json"}).output);
    ASSERT_EQ(json.size(), 1U);
    EXPECT_EQ(json[0], status["ports"][0]);
    ExpectUsageError({"status", "11", "--wait"}, "'status' waits for all ports");
    ExpectUsageError({"status", "9"}, "'9' is no port: they are 11 to 18, 21 to 28, up to 81 to 88");
}

TEST_F(PortCommandsTest, HelpHasShortForms) {
    const std::string help = Run({"--help"}).output;
    EXPECT_EQ(Run({"-h"}).output, help);
    EXPECT_EQ(Run({"help"}).output, help);
    EXPECT_EQ(Run({"get", "-h"}).output, help);
    EXPECT_EQ(Run({"help", "network"}).output, Run({"network", "--help"}).output);
    EXPECT_EQ(Run({"-V"}).output, Run({"--version"}).output);
    ExpectUsageError({"help", "status"}, "there is no help of its own for 'status'", "vexil3ctl help");
    for (std::size_t start = 0; start < help.size(); start = help.find('\n', start) + 1) {
        EXPECT_LE(help.find('\n', start) - start, 95U);
    }
}

}  // namespace
}  // namespace vexil
