// "vexil3ctl network" against a service that writes down what it is asked.
#include <cstdlib>
#include <ctime>
#include <sstream>

#include "ctl/TerminalText.h"
#include "shared/System/PrintableText.h"
#include "tests/ctl/CtlFixture.h"

namespace vexil {
namespace {

using nlohmann::json;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using Words = std::vector<std::string>;

json SampleList() {
    return json::parse(R"({
        "speaks": "on", "port": 11188, "key": "0123456789abcdef", "allow": "any", "secret": false,
        "problem": "", "computers": [
            {"name": "stage", "address": "192.168.1.6:11188", "key": "0011223344556677",
             "since": 1795305600, "state": "up"},
            {"name": "attic", "address": "", "key": "8899aabbccddeeff", "since": 0, "state": "blocked"}]})");
}

class NetworkCommandTest : public CtlFixture {
  protected:
    NetworkCommandTest() {
        setenv("TZ", "UTC0", 1);
        tzset();
    }

    // A service that answers every network command so.
    void AnswerWith(const std::string& text) {
        service.SetHook([text](const Seen& request) {
            Answer(request, text);
            return request.kind == kControlNetwork;
        });
        service.Start();
    }
    void Accept() { AnswerWith(R"({"done": "It is done."})"); }

    void ExpectNetworkUsage(const Words& behind, const std::string& problem) {
        Words arguments = {"network"};
        arguments.insert(arguments.end(), behind.begin(), behind.end());
        ExpectUsageError(arguments, problem, "vexil3ctl network --help");
    }

    // In the order in which they came.
    std::vector<Words> Commands() const {
        std::vector<Words> commands;
        for (const Seen& request : service.Requests()) {
            commands.push_back(UnpackControlWords(request.payload).value_or(Words{"malformed"}));
        }
        return commands;
    }
};

TEST_F(NetworkCommandTest, ListsTheComputers) {
    AnswerWith(SampleList().dump());
    const CtlResult result = Run({"network"});
    EXPECT_EQ(result.status, kCtlDone) << result.errors;
    EXPECT_EQ(result.output, R"(Speaks         on every interface, UDP port 11188
Own key        0123456789abcdef
Lets in        every computer that is not blocked
Secret         not set
RTP-MIDI       off

COMPUTER               ADDRESS              KEY              SINCE      STATE
stage                  192.168.1.6:11188    0011223344556677 2026-11-22 up
attic                                       8899aabbccddeeff            blocked
)");
    EXPECT_EQ(Run({"network", "list"}).output, result.output);
    EXPECT_THAT(Commands(), ElementsAre(Words{"list"}, Words{"list"}));
}

TEST_F(NetworkCommandTest, SaysWhatHoldsForAllComputers) {
    json list = SampleList();
    list["speaks"] = "eth0,wlan0";
    list["port"] = 0;
    list["problem"] = "The port is taken.";
    list["allow"] = "known";
    list["secret"] = true;
    list["rtp"] = true;
    list["computers"] = json::array();
    AnswerWith(list.dump());
    EXPECT_EQ(Run({"network"}).output, R"(Speaks         on eth0, wlan0
               ! The port is taken.
Own key        0123456789abcdef
Lets in        computers whose key is pinned
Secret         set: everybody must know it
RTP-MIDI       on

No other computer is known.
)");
}

TEST_F(NetworkCommandTest, TheListAsJsonIsWhatTheServiceSent) {
    const std::string sent = SampleList().dump(3);
    AnswerWith(sent);
    EXPECT_EQ(Run({"network", "--json"}).output, sent + "\n");
    EXPECT_EQ(Run({"network", "list", "--json"}).output, sent + "\n");
}

TEST_F(NetworkCommandTest, AListOfSeveralAnswersIsJoined) {
    service.SetHook([](const Seen& request) {
        const Words words = UnpackControlWords(request.payload).value_or(Words{});
        json list = SampleList();
        if (words == Words{"list"}) {
            list["next"] = 2;
        } else {
            EXPECT_EQ((Words{"list", "2"}), words);
            list["computers"][0]["name"] = "cellar";
        }
        Answer(request, list.dump());
        return true;
    });
    service.Start();
    const json joined = json::parse(Run({"network", "--json"}).output);
    EXPECT_EQ(4U, joined["computers"].size());
    EXPECT_EQ("cellar", joined["computers"][2]["name"]);
    EXPECT_FALSE(joined.contains("next"));
}

TEST_F(NetworkCommandTest, WhatOthersChoseReachesNoTerminal) {
    json list = SampleList();
    const std::string evil = "x\x1b]0;y\x07\u009b\u202e\nz";
    const json flat = SampleList().flatten();
    for (const auto& [path, value] : flat.items()) {
        if (value.is_string()) {
            list[json::json_pointer(path)] = evil + std::string(100, 'n');
        }
    }
    AnswerWith(list.dump());
    const std::string text = Run({"network"}).output;
    EXPECT_EQ(text, PrintableLines(text));
    EXPECT_THAT(text, testing::Not(HasSubstr("\nz")));
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        EXPECT_LE(DisplayWidth(line), 80U) << line;
    }
    const std::string asJson = Run({"network", "--json"}).output;
    EXPECT_EQ(asJson, PrintableLines(asJson));
    EXPECT_EQ(json::parse(asJson), list) << "the meaning is the same";
}

TEST_F(NetworkCommandTest, ChangesArePassedOnAndTheirAnswersShown) {
    Accept();
    for (const Words& words : {Words{"speak", "eth0,wlan0"},
                               {"pin", "the stage"},
                               {"pin", "stage", "0011223344556677"},
                               {"forget", "stage"},
                               {"block", "stage"},
                               {"unblock", "stage"},
                               {"no-secret"},
                               {"allow", "known"},
                               {"new-key"}}) {
        Words arguments = {"network"};
        arguments.insert(arguments.end(), words.begin(), words.end());
        const CtlResult result = Run(arguments);
        EXPECT_EQ(result.status, kCtlDone) << words[0] << ": " << result.errors;
        EXPECT_EQ(result.output, "It is done.\n");
        EXPECT_EQ(Commands().back(), words);
    }
}

TEST_F(NetworkCommandTest, WhereToSpeakNeedsNoCommand) {
    Accept();
    for (const std::string where : {"on", "off", "lo", "lo,lo"}) {
        EXPECT_EQ(Run({"network", where}).status, kCtlDone);
        EXPECT_EQ(Commands().back(), (Words{"speak", where}));
    }
}

TEST_F(NetworkCommandTest, ACommandThatIsMisspeltIsNoInterface) {
    for (const std::string word : {"bolck", "lo,no-such-if", "lo,", ""}) {
        ExpectNetworkUsage({word},
                           "'" + word + "' is neither a network command nor an interface of this computer");
    }
    EXPECT_THAT(service.Requests(), IsEmpty());
}

TEST_F(NetworkCommandTest, WrongUsageIsSaid) {
    ExpectNetworkUsage({"pin"}, "'network pin' needs the name of a computer");
    ExpectNetworkUsage({"pin", "a", "b", "c"}, "'c' is one argument too many");
    ExpectNetworkUsage({"pin", ""}, "an argument of 'network pin' is empty");
    ExpectNetworkUsage({"forget"}, "'network forget' needs the name of a computer");
    ExpectNetworkUsage({"block"}, "'network block' needs the name or the key of a computer");
    ExpectNetworkUsage({"allow"}, "'network allow' needs any, known or secret");
    ExpectNetworkUsage({"rtp"}, "'network rtp' needs on or off");
    ExpectNetworkUsage({"speak"}, "'network speak' needs on, off, lo or names of interfaces");
    ExpectNetworkUsage({"list", "5"}, "'5' is one argument too many");
    ExpectNetworkUsage({"new-key", "--json"}, "'network new-key' takes no --json");
    ExpectNetworkUsage({"pin", "a", "--file", "b"}, "'network pin' takes no --file");
    ExpectNetworkUsage({"secret", "abcdefgh"},
                       "the secret is no argument: it is typed, piped in, or read with --file");
}

TEST_F(NetworkCommandTest, HelpTellsOfEveryCommand) {
    const CtlResult help = Run({"network", "--help"});
    EXPECT_EQ(help.status, kCtlDone);
    for (const char* command :
         {"list", "speak", "pin", "forget", "block", "unblock", "secret", "no-secret", "allow", "new-key"}) {
        EXPECT_THAT(help.output, HasSubstr("\n  " + std::string(command) + " "));
    }
    EXPECT_EQ(Run({"network", "pin", "--help"}).output, help.output);
}

TEST_F(NetworkCommandTest, ARefusalIsAFailureWithItsReason) {
    AnswerWith(R"({"problem": "No computer \"stage\u001b\" calls now."})");
    for (const Words& arguments : {Words{"network", "pin", "stage"}, {"network"}}) {
        const CtlResult result = Run(arguments);
        EXPECT_EQ(result.status, kCtlFailed);
        EXPECT_EQ(result.output, "");
        EXPECT_EQ(result.errors, "vexil3ctl: No computer \"stage?\" calls now.\n");
    }
}

TEST_F(NetworkCommandTest, AnAnswerThatMakesNoSenseIsRefused) {
    AnswerWith("{}");
    EXPECT_EQ(Run({"network", "new-key"}).errors,
              "vexil3ctl: the service's answer makes no sense: its done is missing\n");
    const CtlResult list = Run({"network", "--json"});
    EXPECT_EQ(list.status, kCtlFailed);
    EXPECT_EQ(list.errors, "vexil3ctl: the service's answer makes no sense: its speaks is missing\n");
}

TEST_F(NetworkCommandTest, WithoutAServiceThereIsAStatusOfItsOwn) {
    console.lines = {"a secret of ours"};
    for (const Words& arguments :
         {Words{"network"}, {"network", "off"}, {"network", "pin", "stage"}, {"network", "secret"}}) {
        const CtlResult result = Run(arguments);
        EXPECT_EQ(result.status, kCtlNoService);
        EXPECT_EQ(result.errors, "vexil3ctl: no service is running at " + folder.SocketPath() + "\n");
    }
}

TEST_F(NetworkCommandTest, AnArgumentThatIsTooLongIsSaid) {
    EXPECT_EQ(Run({"network", "pin", std::string(5000, 'x')}).errors,
              "vexil3ctl: an argument is empty or too long\n");
}

TEST_F(NetworkCommandTest, ASecretIsAskedForTwice) {
    Accept();
    console.isTyped = true;
    console.lines = {"a secret of ours", "a secret of ours"};
    EXPECT_EQ(Run({"network", "secret"}).status, kCtlDone);
    EXPECT_THAT(console.prompts, ElementsAre("Secret: ", "The same secret again: "));
    EXPECT_THAT(Commands(), ElementsAre(Words{"secret", "a secret of ours"}));
}

TEST_F(NetworkCommandTest, ASecretThatWasMistypedIsNotSet) {
    Accept();
    console.isTyped = true;
    console.lines = {"a secret of ours", "a secret of hours"};
    const CtlResult result = Run({"network", "secret"});
    EXPECT_EQ(result.status, kCtlFailed);
    EXPECT_EQ(result.errors, "vexil3ctl: the two are not the same\n");
    EXPECT_THAT(Commands(), IsEmpty());
}

TEST_F(NetworkCommandTest, ASecretThatIsPipedInIsAskedForOnce) {
    Accept();
    console.lines = {"a secret of ours\r", "more"};
    EXPECT_EQ(Run({"network", "secret"}).status, kCtlDone);
    EXPECT_THAT(Commands(), ElementsAre(Words{"secret", "a secret of ours"}));
    console.lines.clear();
    EXPECT_EQ(Run({"network", "secret"}).errors, "vexil3ctl: no secret was given\n");
}

TEST_F(NetworkCommandTest, ASecretIsTheFirstLineOfAFile) {
    Accept();
    const std::string path = folder.File("secret");
    CtlFolder::Put(path, "a secret of ours\r\nanother line\n");
    EXPECT_EQ(Run({"network", "secret", "--file", path}).status, kCtlDone);
    EXPECT_EQ(Run({"network", "secret", "--file=" + path}).status, kCtlDone);
    EXPECT_THAT(Commands(),
                ElementsAre(Words{"secret", "a secret of ours"}, Words{"secret", "a secret of ours"}));
    EXPECT_EQ(Run({"network", "secret", "--file", folder.File("none")}).errors,
              "vexil3ctl: " + folder.File("none") + " cannot be read: No such file or directory\n");
}

TEST_F(NetworkCommandTest, ASecretIsLongEnoughAndHasNoZero) {
    Accept();
    const auto errors = [this](const std::string& secret) {
        console.lines = {secret};
        return Run({"network", "secret"}).errors;
    };
    EXPECT_EQ(errors("1234567"), "vexil3ctl: a secret has at least 8 characters\n");
    EXPECT_EQ(errors("äöüß"), "vexil3ctl: a secret has at least 8 characters\n") << "8 bytes";
    EXPECT_EQ(errors(std::string(1025, 'x')), "vexil3ctl: a secret has at most 1024 bytes\n");
    EXPECT_EQ(errors(std::string("12345678\0", 9)), "vexil3ctl: there is a zero byte in the secret\n");
    EXPECT_THAT(Commands(), IsEmpty());
    EXPECT_EQ(errors("12345678"), "");
    EXPECT_EQ(errors(std::string(1024, 'x')), "");
}

}  // namespace
}  // namespace vexil
