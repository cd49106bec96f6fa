// Names: every way in which a person changes a text reaches the configuration.
#include "tests/scenarios/Scenario.h"

namespace vexil {
namespace {

using Options = std::vector<int>;

// Port 11 has both sides on, with source computer and source port in use.
class Names : public Scenario {
  protected:
    Names() {
        configuration.InputPorts = 1;
        configuration.PortFlags[0].flags = 0;
        Store(configuration);
    }

    DriverConfiguration Applied() {
        EXPECT_TRUE(CanApply());
        Hands().Click(kApply);
        EXPECT_FALSE(CanApply());
        return Stored();
    }
    std::string AppliedOutputName() { return Applied().CustomNames[0].Out_CustomName.c_str(); }

    DriverConfiguration configuration;
};

TEST_F(Names, TypedOutputNameIsStoredAsTheOutputs) {
    Run([&] {
        Hands().Click(kOutputName);
        Hands().Type("Synth");
        EXPECT_EQ(Text(kOutputName), "Synth");
        const DriverConfiguration applied = Applied();
        EXPECT_STREQ(applied.CustomNames[0].Out_CustomName.c_str(), "Synth");
        EXPECT_STREQ(applied.CustomNames[0].In_CustomName.c_str(), "");
    });
}

TEST_F(Names, TypedInputNameIsStoredAsTheInputs) {
    Run([&] {
        Hands().Click(kInputName);
        Hands().Type("Keys");
        const DriverConfiguration applied = Applied();
        EXPECT_STREQ(applied.CustomNames[0].In_CustomName.c_str(), "Keys");
        EXPECT_STREQ(applied.CustomNames[0].Out_CustomName.c_str(), "");
    });
}

TEST_F(Names, TypingSendsNothing) {
    Run([&] {
        Hands().Click(kOutputName);
        Sent();
        Hands().Type("abc");
        EXPECT_EQ(Sent(), Options());
        QuitWithoutApplying();
    });
}

TEST_F(Names, FirstCharacterEnablesApply) {
    Run([&] {
        Hands().Click(kOutputName);
        EXPECT_FALSE(CanApply());
        Hands().Type("a");
        EXPECT_TRUE(CanApply());
        QuitWithoutApplying();
    });
}

TEST_F(Names, TextTypedBackToWhatItWasDisablesApply) {
    Run([&] {
        Hands().Click(kOutputName);
        Hands().Type("a");
        Hands().Press(Key::Backspace);
        EXPECT_EQ(Text(kOutputName), "");
        EXPECT_FALSE(CanApply());
    });
}

TEST_F(Names, CharactersBeyondAsciiAreKept) {
    Run([&] {
        Hands().Click(kOutputName);
        Hands().Type("Flügel ♪");
        EXPECT_EQ(AppliedOutputName(), "Flügel ♪");
    });
}

TEST_F(Names, RepeatedKeyIsStored) {
    Run([&] {
        Hands().Click(kOutputName);
        Hands().HoldLetter('a', 3);
        EXPECT_EQ(AppliedOutputName(), "aaaa");
    });
}

TEST_F(Names, SelectedTextIsReplaced) {
    configuration.CustomNames[0].Out_CustomName = "old";
    Store(configuration);
    Run([&] {
        Hands().Click(kOutputName);
        Hands().SelectAll();
        Hands().Type("n");
        EXPECT_EQ(AppliedOutputName(), "n");
    });
}

TEST_F(Names, DeletedNameIsStoredAsEmpty) {
    configuration.CustomNames[0].Out_CustomName = "old";
    Store(configuration);
    Run([&] {
        Hands().Click(kOutputName);
        Hands().SelectAll();
        Hands().Press(Key::Backspace);
        EXPECT_EQ(AppliedOutputName(), "");
    });
}

TEST_F(Names, CommittedTextOfAnInputMethodIsStored) {
    Run([&] {
        Hands().Click(kOutputName);
        Hands().CommitText("鍵盤");
        EXPECT_EQ(AppliedOutputName(), "鍵盤");
    });
}

TEST_F(Names, PastedTextIsStored) {
    Run([&] {
        Hands().Click(kInputName);
        Hands().Paste("Master keyboard");
        EXPECT_STREQ(Applied().CustomNames[0].In_CustomName.c_str(), "Master keyboard");
    });
}

TEST_F(Names, PastedLineBreaksDoNotGetIn) {
    Run([&] {
        Hands().Click(kOutputName);
        Hands().Paste("one\ntwo\r\nthree");
        EXPECT_EQ(Text(kOutputName).find_first_of("\r\n"), std::string::npos);
        EXPECT_EQ(AppliedOutputName().find_first_of("\r\n"), std::string::npos);
    });
}

TEST_F(Names, UndoneTextIsTakenBack) {
    Run([&] {
        Hands().Click(kOutputName);
        Hands().Type("a");
        EXPECT_TRUE(CanApply());
        Hands().Undo();
        EXPECT_EQ(Text(kOutputName), "");
        EXPECT_FALSE(CanApply());
    });
}

TEST_F(Names, FieldReachedByTabTakesTheTextUnderItsOwnName) {
    Run([&] {
        Hands().Click(kInputName);
        Hands().Type("i");
        Hands().TabTo(kOutputName);
        Hands().Type("o");
        const DriverConfiguration applied = Applied();
        EXPECT_STREQ(applied.CustomNames[0].In_CustomName.c_str(), "i");
        EXPECT_STREQ(applied.CustomNames[0].Out_CustomName.c_str(), "o");
    });
}

TEST_F(Names, ReturnInAFieldInsertsNothing) {
    Run([&] {
        Hands().Click(kOutputName);
        Hands().Press(Key::Return);
        EXPECT_EQ(Text(kOutputName), "");
        EXPECT_FALSE(CanApply());
        Hands().Type("ab");
        Hands().Press(Key::Return);
        EXPECT_EQ(Text(kOutputName), "ab");
        QuitWithoutApplying();
    });
}

TEST_F(Names, NameBelongsToThePortThatWasShown) {
    Run([&] {
        Hands().Click(kOutputName);
        Hands().Type("first");
        Hands().ClickRow(1);
        EXPECT_EQ(Text(kOutputName), "");
        Hands().Click(kMidiOut);
        Hands().Click(kOutputName);
        Hands().Type("second");
        const DriverConfiguration applied = Applied();
        EXPECT_STREQ(applied.CustomNames[0].Out_CustomName.c_str(), "first");
        EXPECT_STREQ(applied.CustomNames[1].Out_CustomName.c_str(), "second");
    });
}

TEST_F(Names, BytesThatAreNoUtf8SurviveAnUnrelatedEdit) {
    configuration.CustomNames[0].In_CustomName = "caf\xe9";
    Store(configuration);
    Run([&] {
        Hands().Click(kOutputName);
        Hands().Type("x");
        EXPECT_STREQ(Applied().CustomNames[0].In_CustomName.c_str(), "caf\xe9");
    });
}

TEST_F(Names, BytesThatAreNoUtf8SurviveTypingInTheirField) {
    configuration.CustomNames[0].Out_CustomName = "caf\xe9";
    Store(configuration);
    Run([&] {
        Hands().Click(kOutputName);
        Hands().Type("x");
        Hands().Press(Key::Backspace);
        EXPECT_FALSE(CanApply());
    });
}

TEST_F(Names, LetterCaseOfAComputerIsADifference) {
    configuration.Hosts[0].DstHost = "Studio";
    Store(configuration);
    Run([&] {
        Hands().Click(kTargetComputer);
        Hands().SelectAll();
        Hands().Type("studio");
        EXPECT_TRUE(CanApply());
        QuitWithoutApplying();
    });
}

TEST_F(Names, TypedTargetComputerIsStoredAndRetargetsWithEveryKey) {
    Run([&] {
        Hands().Click(kTargetComputer);
        Sent();
        Hands().Type("ab");
        const std::vector<std::uint8_t> record = LastCall(192).bytes;
        EXPECT_EQ(record, (std::vector<std::uint8_t>{0, 0, 0, 0, 'a', 'b', 0, 0, 0}));
        EXPECT_EQ(Sent(), (Options{194, 192, 193, 194, 192, 193}));
        EXPECT_STREQ(Applied().Hosts[0].DstHost.c_str(), "ab");
    });
}

TEST_F(Names, TypedSourceComputerIsStoredAndSendsNothing) {
    Run([&] {
        Hands().Click(kSourceComputer);
        Sent();
        Hands().Type("studio");
        EXPECT_EQ(Sent(), Options());
        const DriverConfiguration applied = Applied();
        EXPECT_STREQ(applied.Hosts[0].SrcHost.c_str(), "studio");
        EXPECT_STREQ(applied.Hosts[0].DstHost.c_str(), "");
    });
}

TEST_F(Names, ComputerIsPastedCommittedAndUndone) {
    Run([&] {
        Hands().Click(kSourceComputer);
        Hands().Paste("pasted");
        EXPECT_STREQ(Applied().Hosts[0].SrcHost.c_str(), "pasted");
        Hands().SelectAll();
        Hands().CommitText("台");
        EXPECT_STREQ(Applied().Hosts[0].SrcHost.c_str(), "台");
    });
}

TEST_F(Names, ReturnInAComboBoxLeavesItsText) {
    Run([&] {
        Hands().Click(kTargetComputer);
        Hands().Type("zz");
        Hands().Press(Key::Return);
        EXPECT_EQ(Text(kTargetComputer), "zz");
        EXPECT_STREQ(Applied().Hosts[0].DstHost.c_str(), "zz");
    });
}

TEST_F(Names, PickedTargetComputerIsShownStoredAndRetargets) {
    driver.hostInfos = HostInfos({"alpha", "beta"});
    Run([&] {
        Sent();
        Hands().PickItem(kTargetComputer, 1);
        EXPECT_EQ(Text(kTargetComputer), "beta");
        EXPECT_EQ(Sent(), (Options{194, 192, 193}));
        EXPECT_STREQ(Applied().Hosts[0].DstHost.c_str(), "beta");
    });
}

TEST_F(Names, PickedSourceComputerIsShownAndStored) {
    driver.hostInfos = HostInfos({"alpha", "beta"});
    Run([&] {
        Sent();
        Hands().PickItem(kSourceComputer, 0);
        EXPECT_EQ(Text(kSourceComputer), "alpha");
        EXPECT_EQ(Sent(), Options());
        EXPECT_STREQ(Applied().Hosts[0].SrcHost.c_str(), "alpha");
    });
}

TEST_F(Names, PickAfterPickGoesToTheComboBoxThatWasUsedLast) {
    driver.hostInfos = HostInfos({"alpha", "beta"});
    Run([&] {
        Hands().PickItem(kSourceComputer, 0);
        Hands().PickItem(kTargetComputer, 1);
        const DriverConfiguration applied = Applied();
        EXPECT_STREQ(applied.Hosts[0].SrcHost.c_str(), "alpha");
        EXPECT_STREQ(applied.Hosts[0].DstHost.c_str(), "beta");
    });
}

}  // namespace
}  // namespace vexil
