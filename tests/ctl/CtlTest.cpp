// The commands of the service and of the stored configuration.
#include <filesystem>

#include "shared/System/PrintableText.h"
#include "tests/ctl/CtlFixture.h"

namespace vexil {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

class CtlTest : public CtlFixture {
  protected:
    std::vector<std::uint32_t> Kinds() const {
        std::vector<std::uint32_t> kinds;
        for (const Seen& request : service.Requests()) {
            kinds.push_back(request.kind);
        }
        return kinds;
    }

    std::string Settings(const std::string& content) const {
        CtlFolder::Put(folder.File("mine.vexil3"), content);
        return folder.File("mine.vexil3");
    }
};

TEST_F(CtlTest, WrongUsageIsSaid) {
    ExpectUsageError({}, "a command is missing");
    ExpectUsageError({"stauts"}, "there is no command 'stauts'");
    ExpectUsageError({"status", "--jsn"}, "there is no option '--jsn'");
    ExpectUsageError({"-v"}, "there is no option '-v'");
    ExpectUsageError({"reload", "--json"}, "'reload' takes no --json");
    ExpectUsageError({"defaults", "--replace"}, "'defaults' takes no --replace");
    ExpectUsageError({"panic", "11"}, "'11' is one argument too many");
    ExpectUsageError({"defaults", "a"}, "'a' is one argument too many");
    ExpectUsageError({"check"}, "'check' needs a file");
    ExpectUsageError({"load"}, "'load' needs a file");
    ExpectUsageError({"save", "a", "b"}, "'b' is one argument too many");
    ExpectUsageError({"status", "all"}, "'all' is no port: they are 11 to 18, 21 to 28, up to 81 to 88");
    ExpectUsageError({"hosts", "--json", "--watch"}, "'hosts' takes one of --json and --watch");
    ExpectUsageError({"status", "--wait=x"}, "'x' is no number for '--wait'");
    ExpectUsageError({"status", "--wait", "x"},
                     "'x' is no port: they are 11 to 18, 21 to 28, up to 81 to 88");
    ExpectUsageError({"status", "--watch=1"}, "there is no option '--watch=1'");
    ExpectUsageError({"status", "--json", "--watch"}, "'status' takes one of --json, --watch and --wait");
    ExpectUsageError({"status", "--wait", "86401"}, "--wait takes at most 86400 seconds");
    ExpectUsageError({"status", "--wait", "99999999999999999999"}, "--wait takes at most 86400 seconds");
    ExpectUsageError({"network", "secret", "--file"}, "'--file' needs a value");
    ExpectUsageError({"\x1b[2J"}, "there is no command '?[2J'");
}

TEST_F(CtlTest, HelpAndVersionNeedNothing) {
    const CtlResult help = Run({"--help"});
    EXPECT_EQ(help.status, kCtlDone);
    EXPECT_THAT(help.output, StartsWith("Usage: vexil3ctl COMMAND\n"));
    EXPECT_EQ(Run({"status", "--help"}).output, help.output);
    const CtlResult version = Run({"--version"});
    EXPECT_EQ(version.status, kCtlDone);
    EXPECT_EQ(version.output, "vexil3ctl 3.3.900\n");
}

TEST_F(CtlTest, AFileNameMayBeginWithADash) {
    EXPECT_THAT(Run({"load", "--", "--help"}).errors,
                StartsWith("vexil3ctl: --help cannot be opened for reading and writing: "));
}

TEST_F(CtlTest, StatusIsShown) {
    Serve();
    const CtlResult result = Run({"status"});
    EXPECT_EQ(result.status, kCtlDone) << result.errors;
    EXPECT_THAT(result.output, StartsWith("Vexil III 3.3.900 on studio\n"));
    EXPECT_EQ(result.errors, "");
    EXPECT_THAT(Kinds(), testing::ElementsAre(kControlStatus));
}

TEST_F(CtlTest, StatusAsJsonIsWhatTheServiceSent) {
    const std::string sent = SampleStatus().dump(3);
    Serve(sent);
    EXPECT_EQ(Run({"status", "--json"}).output, sent + "\n");
    EXPECT_EQ(Run({"--json", "status"}).output, sent + "\n");
}

TEST_F(CtlTest, HostsAreShown) {
    Serve();
    EXPECT_THAT(Run({"hosts"}).output, HasSubstr("\nstudio "));
    const CtlResult json = Run({"hosts", "--json"});
    EXPECT_EQ(nlohmann::json::parse(json.output), SampleStatus()["hosts"]);
}

TEST_F(CtlTest, WithoutAServiceThereIsAStatusOfItsOwn) {
    for (const char* command : {"status", "hosts", "panic", "reload"}) {
        const CtlResult result = Run({command});
        EXPECT_EQ(result.status, kCtlNoService) << command;
        EXPECT_EQ(result.output, "");
        EXPECT_EQ(result.errors, "vexil3ctl: no service is running at " + folder.SocketPath() + "\n");
    }
}

TEST_F(CtlTest, PanicSaysWhatTheServiceHasDone) {
    service.SetHook([](const Seen& request) {
        Answer(request,
               request.kind == kControlPanic ? R"({"done": "All notes are off at 2 inputs."})" : "{}");
        return true;
    });
    service.Start();
    const CtlResult result = Run({"panic"});
    EXPECT_EQ(result.status, kCtlDone) << result.errors;
    EXPECT_EQ(result.output, "All notes are off at 2 inputs.\n");
    EXPECT_THAT(Kinds(), testing::ElementsAre(kControlPanic));
}

TEST_F(CtlTest, APanicThatTheServiceRefusesFails) {
    Serve();
    const CtlResult result = Run({"panic"});
    EXPECT_EQ(result.status, kCtlFailed);
    EXPECT_EQ(result.errors, "vexil3ctl: the service refuses: Operation not permitted\n");
}

TEST_F(CtlTest, AStatusThatMakesNoSenseIsRefusedInBothForms) {
    Serve("{\"version\": \"3\x1b\"");
    for (const std::vector<std::string>& command :
         {std::vector<std::string>{"status"}, {"status", "--json"}, {"hosts"}, {"hosts", "--json"}}) {
        const CtlResult result = Run(command);
        EXPECT_EQ(result.status, kCtlFailed);
        EXPECT_EQ(result.output, "");
        EXPECT_EQ(result.errors, "vexil3ctl: the service's status makes no sense: it is no JSON\n");
    }
}

TEST_F(CtlTest, ControlCharactersOfTheServiceReachNoTerminal) {
    nlohmann::json status = SampleStatus();
    status["host"] = "a\x1b[2J\x7f\u009b";
    Serve(status.dump());
    for (const CtlResult& result : {Run({"status"}), Run({"status", "--json"})}) {
        EXPECT_EQ(result.status, kCtlDone);
        EXPECT_EQ(result.output, PrintableLines(result.output));
    }
    EXPECT_EQ(nlohmann::json::parse(Run({"status", "--json"}).output), status) << "the meaning is the same";
}

TEST_F(CtlTest, ReloadAsksTheService) {
    Serve();
    const CtlResult result = Run({"reload"});
    EXPECT_EQ(result.status, kCtlDone) << result.errors;
    EXPECT_THAT(Kinds(), testing::ElementsAre(kControlReload));
}

TEST_F(CtlTest, AServiceThatRefusesIsAFailure) {
    service.SetHook([](const Seen& request) {
        ControlSocketService::Reply(request, EPERM);
        return true;
    });
    service.Start();
    const CtlResult result = Run({"reload"});
    EXPECT_EQ(result.status, kCtlFailed);
    EXPECT_EQ(result.errors, "vexil3ctl: the service refuses: Operation not permitted\n");
}

TEST_F(CtlTest, LoadStoresAndTellsTheService) {
    Serve();
    const std::string path = Settings("[Port_02]\nOutName=Organ\n");
    const CtlResult result = Run({"load", path});
    EXPECT_EQ(result.status, kCtlDone) << result.errors;
    EXPECT_EQ(result.output, "The settings of " + path +
                                 " are stored.\n"
                                 "The service has taken them up.\n"
                                 "A control panel is open: it shows the settings that it had, and Apply "
                                 "there stores those.\n"
                                 "Use Wireless is not stored: the open panel stores its own choice when it "
                                 "ends.\n");
    EXPECT_EQ(result.errors, "");
    EXPECT_THAT(Kinds(), testing::ElementsAre(kControlStatus, kControlReload));
    EXPECT_THAT(CtlFolder::Content(folder.StoredFile()), HasSubstr("<string>Organ</string>"));
}

TEST_F(CtlTest, WithoutAPanelNothingIsSaidOfOne) {
    nlohmann::json status = SampleStatus();
    status["attached"] = false;
    Serve(status.dump());
    EXPECT_THAT(Run({"load", Settings("[Options]\nEnableLogging=1\n")}).output,
                testing::EndsWith("The service has taken them up.\n"));
    EXPECT_THAT(Run({"load", Settings("[Options]\nUseWireless=1\n")}).output,
                testing::EndsWith("The service has taken them up.\n"
                                  "Use Wireless takes effect when the control panel starts next.\n"));
}

TEST_F(CtlTest, UseWirelessIsNotStoredWhileAPanelIsOpen) {
    const auto options = [this](const std::string& arguments) {
        EXPECT_EQ(Run({"load", Settings("[Options]\n" + arguments)}).status, kCtlDone);
        const std::string key = "<key>MiscOptions</key>";
        const std::string content = CtlFolder::Content(folder.StoredFile());
        const std::size_t at = content.find("<integer>", content.find(key)) + 9;
        return content.substr(at, content.find('<', at) - at);
    };
    EXPECT_EQ(options("UseWireless=1\n"), "15") << "no service tells of a panel";
    Serve();
    EXPECT_EQ(options("UseWireless=1\nShowEndpoints=0\n"), "6");
    EXPECT_EQ(options("ShowEndpoints=1\n"), "7");
}

TEST_F(CtlTest, LoadTellsWhatInTheFileMeansNothing) {
    const std::string path = Settings("[Port_00]\nProperties=Outptu\nDstPort=99\nOutName=Organ\n");
    const CtlResult result = Run({"load", path});
    EXPECT_EQ(result.status, kCtlDone);
    EXPECT_THAT(result.errors, StartsWith("vexil3ctl: " + path +
                                          ":2: Properties: 'Outptu' is not Input, Output or Pipe\n"
                                          "vexil3ctl: " +
                                          path + ":3: DstPort: '99' is no port"));
    EXPECT_THAT(CtlFolder::Content(folder.StoredFile()), HasSubstr("<string>Organ</string>"));
}

TEST_F(CtlTest, CheckTellsTheSameAndChangesNothing) {
    const std::string path = Settings("[Port_00]\nProperties=Outptu\n");
    std::filesystem::permissions(path, std::filesystem::perms::owner_read);
    const CtlResult result = Run({"check", path});
    EXPECT_EQ(result.status, kCtlFailed);
    EXPECT_EQ(result.output, path + ":2: Properties: 'Outptu' is not Input, Output or Pipe\n");
    EXPECT_EQ(result.errors, "");
    EXPECT_FALSE(std::filesystem::exists(folder.StoredFile()));
    std::filesystem::permissions(path, std::filesystem::perms::owner_all);
    const CtlResult good = Run({"check", Settings("[Port_00]\nProperties=Output\n")});
    EXPECT_EQ(good.status, kCtlDone);
    EXPECT_EQ(good.output, "Everything in " + path + " is understood.\n");
}

TEST_F(CtlTest, CheckOfWhatIsNoSettingsFileFails) {
    const CtlResult missing = Run({"check", folder.File("none.vexil3")});
    EXPECT_EQ(missing.status, kCtlFailed);
    EXPECT_THAT(missing.errors, HasSubstr("No such file or directory"));
    EXPECT_FALSE(std::filesystem::exists(folder.File("none.vexil3")));
    const CtlResult empty = Run({"check", Settings("; nothing\n")});
    EXPECT_EQ(empty.status, kCtlFailed);
    EXPECT_THAT(empty.errors, testing::EndsWith(" is no settings file\n"));
}

TEST_F(CtlTest, LoadWithReplaceBeginsFromTheDefaults) {
    const std::string path = Settings("[Port_02]\nProperties=Output\nOutName=Organ\n");
    ASSERT_EQ(Run({"load", "--replace", path}).status, kCtlDone);
    const std::string first = CtlFolder::Content(folder.StoredFile());
    ASSERT_EQ(
        Run({"load", Settings("[Port_03]\nInpName=Keys\nProperties=Input\n[General]\nSendGranularity=9\n")})
            .status,
        kCtlDone);
    EXPECT_NE(CtlFolder::Content(folder.StoredFile()), first);
    Settings("[Port_02]\nProperties=Output\nOutName=Organ\n");
    ASSERT_EQ(Run({"load", path, "--replace"}).status, kCtlDone);
    EXPECT_EQ(CtlFolder::Content(folder.StoredFile()), first);
}

TEST_F(CtlTest, DefaultsAreStoredAndTakenUp) {
    ASSERT_EQ(Run({"defaults"}).output,
              "The default settings are stored.\nNo service is running; it takes them up when it starts.\n");
    const std::string defaults = CtlFolder::Content(folder.StoredFile());
    ASSERT_EQ(Run({"load", Settings("[Port_02]\nOutName=Organ\n[Options]\nUseWireless=1\n")}).status,
              kCtlDone);
    Serve();
    const CtlResult result = Run({"defaults"});
    EXPECT_EQ(result.status, kCtlDone) << result.errors;
    EXPECT_THAT(result.output,
                StartsWith("The default settings are stored.\nThe service has taken them up.\n"));
    EXPECT_EQ(CtlFolder::Content(folder.StoredFile()), defaults);
}

TEST_F(CtlTest, LoadWithoutAServiceIsNoFailure) {
    const std::string path = Settings("[Options]\nUseWireless=1\n");
    const CtlResult result = Run({"load", path});
    EXPECT_EQ(result.status, kCtlDone);
    EXPECT_EQ(result.output, "The settings of " + path +
                                 " are stored.\n"
                                 "No service is running; it takes them up when it starts.\n"
                                 "Use Wireless takes effect when the control panel starts next.\n");
    EXPECT_EQ(result.errors, "");
}

TEST_F(CtlTest, LoadSaysWhenTheServiceHasNotTakenItUp) {
    service.SetHook([](const Seen& request) {
        ControlSocketService::CutOff(request.client);
        return true;
    });
    service.Start();
    const CtlResult result = Run({"load", Settings("[Options]\nUseWireless=1\n")});
    EXPECT_EQ(result.status, kCtlFailed);
    EXPECT_THAT(result.output, HasSubstr(" are stored.\n"));
    EXPECT_EQ(result.errors,
              "vexil3ctl: the service has not taken them up: the service closed the connection without an "
              "answer\n");
    EXPECT_TRUE(std::filesystem::exists(folder.StoredFile()));
}

TEST_F(CtlTest, LoadSaysWhatItCorrected) {
    const CtlResult result = Run({"load", Settings("[Port_00]\nProperties=Pipe\n")});
    EXPECT_EQ(result.status, kCtlDone);
    EXPECT_EQ(result.errors, "vexil3ctl: no port is enabled in them, so the output of port 11 was\n");
}

TEST_F(CtlTest, AFailedLoadChangesNothingAndAsksNobody) {
    Serve();
    const CtlResult result = Run({"load", folder.File("none.vexil3")});
    EXPECT_EQ(result.status, kCtlFailed);
    EXPECT_EQ(result.output, "");
    EXPECT_THAT(result.errors, HasSubstr("No such file or directory"));
    EXPECT_FALSE(std::filesystem::exists(folder.StoredFile()));
    EXPECT_THAT(Kinds(), testing::IsEmpty());
}

TEST_F(CtlTest, WhatWasSavedCanBeLoaded) {
    ASSERT_EQ(Run({"load", Settings("[Port_01]\nProperties=Input\nSrcName=stage\n")}).status, kCtlDone);
    const std::string before = CtlFolder::Content(folder.StoredFile());
    const std::string path = folder.File("saved.vexil3");
    const CtlResult saved = Run({"save", path});
    ASSERT_EQ(saved.status, kCtlDone) << saved.errors;
    EXPECT_EQ(saved.output, "The stored settings are saved in " + path + ".\n");

    std::filesystem::remove(folder.StoredFile());
    ASSERT_EQ(Run({"load", path}).status, kCtlDone);
    EXPECT_EQ(CtlFolder::Content(folder.StoredFile()), before);
    EXPECT_THAT(before, HasSubstr("<string>stage</string>"));
}

TEST_F(CtlTest, AFailedSaveIsAFailure) {
    const CtlResult result = Run({"save", folder.File("none/saved.vexil3")});
    EXPECT_EQ(result.status, kCtlFailed);
    EXPECT_EQ(result.output, "");
    EXPECT_THAT(result.errors,
                HasSubstr("cannot be opened for reading and writing: No such file or directory"));
}

}  // namespace
}  // namespace vexil
