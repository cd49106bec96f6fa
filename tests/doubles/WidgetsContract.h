// What every implementation of Widgets must do, as one suite over all of them; the letters are those of
// PanelEvent.h. A subject type supplies, default-constructed:
//
//   Widgets& Seam();
//   Person& Hands();
//   void Use(const Script& script);   shows the window and runs the script inside the event loop
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "panel/Widgets.h"
#include "tests/doubles/Person.h"
#include "tests/doubles/RecordingHandlers.h"

namespace vexil {

template <class Subject>
class WidgetsContract : public ::testing::Test {
  protected:
    WidgetsContract() {
        EXPECT_EQ(Seam().CreateWindow({100, 100, 100 + kWindowHeight, 100 + kWindowWidth}), 0);
        Seam().SetWindowTitle(kWindowTitle);
        for (const ControlSpec& spec : kControlTable) {
            EXPECT_EQ(Seam().CreateControl(spec, handlers), 0) << spec.number;
        }
        for (const Embedding& embedding : kEmbeddings) {
            Seam().Embed(embedding.container, embedding.control);
        }
        Seam().SetValue(kMidiIn, 1);
        Seam().SetValue(kMidiOut, 1);
        for (int row = 0; row < 64; ++row) {
            Seam().SetRowText(row, ("Port " + std::to_string(row)).c_str());
        }
        Seam().SelectRow(0);
        Seam().InstallWindowHandler(handlers);
    }
    ~WidgetsContract() override { Seam().DisposeWindow(); }

    Widgets& Seam() { return subject.Seam(); }
    Person& Hands() { return subject.Hands(); }
    void Use(const Script& script) { subject.Use(script); }
    std::string Text(int control) {
        svString text;
        EXPECT_TRUE(Seam().GetText(control, text)) << control;
        return text.c_str();
    }
    std::vector<std::string> Items(int combo) {
        std::vector<std::string> items;
        for (int i = 0; i < Seam().ItemCount(combo); ++i) {
            svString text;
            EXPECT_TRUE(Seam().ItemText(combo, i, text)) << i;
            items.emplace_back(text.c_str());
        }
        return items;
    }
    // Gives a control the focus by a click and forgets the events of that.
    void Enter(int control) {
        Hands().Click(control);
        handlers.calls.clear();
    }

    // Declared before the subject, whose window it outlives.
    RecordingHandlers handlers;
    Subject subject;
};

TYPED_TEST_SUITE_P(WidgetsContract);

TYPED_TEST_P(WidgetsContract, ASettersRaiseNoEvent) {
    this->Use([&] {
        this->handlers.calls.clear();
        Widgets& widgets = this->Seam();
        for (const ControlSpec& spec : kControlTable) {
            widgets.SetValue(spec.number, spec.maximum);
        }
        for (const int control :
             {kInputName, kOutputName, kSourceComputer, kTargetComputer, kTargetPortNumber}) {
            widgets.SetText(control, "text");
        }
        for (const int combo : {kSourceComputer, kTargetComputer}) {
            widgets.AppendItem(combo, "alpha");
            widgets.AppendItem(combo, "text");
            widgets.RemoveItem(combo, 1);
            widgets.RemoveItem(combo, 0);
        }
        for (const bool enabled : {false, true}) {
            for (const ControlSpec& spec : kControlTable) {
                widgets.SetEnabled(spec.number, enabled);
            }
        }
        widgets.SelectRow(7);
        widgets.SetRowText(7, "other");
        for (const ControlSpec& spec : kControlTable) {
            widgets.Redraw(spec.number);
        }
    });
    EXPECT_TRUE(this->handlers.calls.empty());
}

TYPED_TEST_P(WidgetsContract, BKeyReachesItsFieldOnceWhetherTheHandlerLetsItOrNot) {
    for (const RecordingHandlers::Answer answer :
         {RecordingHandlers::Answer::NotHandled, RecordingHandlers::Answer::NextThenNotHandled}) {
        this->handlers.answer = answer;
        for (const int field : {kOutputName, kTargetComputer}) {
            this->Seam().SetText(field, "");
            this->Use([&] {
                this->Enter(field);
                this->Hands().Type("ab");
            });
            EXPECT_EQ(this->Text(field), "ab") << field;
            EXPECT_EQ(this->handlers.Of(EventKind::RawKeyDown).size(), 2U) << field;
        }
    }
}

TYPED_TEST_P(WidgetsContract, BSwallowedKeyDoesNotReachItsField) {
    this->Use([&] {
        this->Enter(kOutputName);
        this->handlers.answer = RecordingHandlers::Answer::Swallow;
        this->Hands().Type("ab");
        EXPECT_EQ(this->Text(kOutputName), "");
    });
}

TYPED_TEST_P(WidgetsContract, BFieldHoldsTheNewTextOnceNextHasReturned) {
    std::vector<std::string> seen;
    this->Use([&] {
        this->Enter(kOutputName);
        this->handlers.answer = RecordingHandlers::Answer::NextThenNotHandled;
        this->handlers.during = [&](const PanelEvent&) { seen.push_back(this->Text(kOutputName)); };
        this->Hands().Type("ab");
        this->handlers.during = {};
    });
    EXPECT_EQ(seen, (std::vector<std::string>{"a", "ab"}));
}

TYPED_TEST_P(WidgetsContract, BKeyCarriesItsFieldAndItsCharactersFirstByte) {
    this->Use([&] {
        this->Enter(kTargetComputer);
        this->Hands().Type("é");
    });
    const auto keys = this->handlers.Of(EventKind::RawKeyDown);
    ASSERT_EQ(keys.size(), 1U);
    EXPECT_EQ(keys[0].handler, "combo");
    EXPECT_EQ(keys[0].event.control, kTargetComputer);
    EXPECT_TRUE(keys[0].event.hasCharacter);
    EXPECT_EQ(keys[0].event.character, 0xc3);
}

TYPED_TEST_P(WidgetsContract, BArrowKeyMovesTheSelectionOnceAndSwallowedNotAtAll) {
    this->Use([&] {
        this->Hands().ClickRow(3);
        this->handlers.answer = RecordingHandlers::Answer::NextThenNotHandled;
        this->Hands().Press(Key::Down);
        EXPECT_EQ(this->Seam().SelectedRow(), 4);
        this->handlers.answer = RecordingHandlers::Answer::NotHandled;
        this->Hands().Press(Key::Up);
        EXPECT_EQ(this->Seam().SelectedRow(), 3);
        this->handlers.answer = RecordingHandlers::Answer::Swallow;
        this->Hands().Press(Key::Up);
        EXPECT_EQ(this->Seam().SelectedRow(), 3);
    });
}

TYPED_TEST_P(WidgetsContract, BArrowKeysOfTheListCarryTheirCodes) {
    this->Use([&] {
        this->Hands().ClickRow(3);
        this->handlers.calls.clear();
        this->Hands().Press(Key::Up);
        this->Hands().Press(Key::Down);
    });
    const auto keys = this->handlers.Of(EventKind::RawKeyDown);
    ASSERT_EQ(keys.size(), 2U);
    EXPECT_EQ(keys[0].handler, "list");
    EXPECT_EQ(keys[0].event.character, kCharUpArrow);
    EXPECT_EQ(keys[1].event.character, kCharDownArrow);
}

TYPED_TEST_P(WidgetsContract, BArrowUpInTheFirstRowIsStillAnEventAndHandled) {
    this->handlers.answer = RecordingHandlers::Answer::NextThenNotHandled;
    this->Use([&] {
        this->Hands().ClickRow(0);
        this->handlers.calls.clear();
        this->Hands().Press(Key::Up);
        EXPECT_EQ(this->Seam().SelectedRow(), 0);
    });
    EXPECT_EQ(this->handlers.Of(EventKind::RawKeyDown).size(), 1U);
}

TYPED_TEST_P(WidgetsContract, BSwallowedLettersDoNotMoveTheSelection) {
    this->Use([&] {
        this->Hands().ClickRow(3);
        this->handlers.answer = RecordingHandlers::Answer::Swallow;
        this->Hands().Type("Port 9");
        EXPECT_EQ(this->Seam().SelectedRow(), 3);
    });
}

TYPED_TEST_P(WidgetsContract, BHeldLetterRepeats) {
    this->Use([&] {
        this->Enter(kOutputName);
        this->Hands().HoldLetter('z', 2);
        EXPECT_EQ(this->Text(kOutputName), "zzz");
    });
    EXPECT_EQ(this->handlers.Of(EventKind::RawKeyDown).size(), 1U);
    EXPECT_EQ(this->handlers.Of(EventKind::RawKeyRepeat).size(), 2U);
}

TYPED_TEST_P(WidgetsContract, BClickOnARowSelectsItAndReportsAHit) {
    this->Use([&] {
        this->handlers.calls.clear();
        this->Hands().ClickRow(5);
        EXPECT_EQ(this->Seam().SelectedRow(), 5);
        const auto hits = this->handlers.Of(EventKind::ControlHit);
        ASSERT_FALSE(hits.empty());
        EXPECT_EQ(hits[0].handler, "list");
        EXPECT_EQ(hits.back().handler, "window");
        EXPECT_EQ(hits.back().event.control, kPortList);
    });
}

TYPED_TEST_P(WidgetsContract, BCommandClickNeitherDeselectsNorExtends) {
    this->Use([&] {
        this->Hands().ClickRow(5);
        this->Hands().ClickRow(5, true);
        EXPECT_EQ(this->Seam().SelectedRow(), 5);
        this->Hands().ClickRow(9, true);
        EXPECT_EQ(this->Seam().SelectedRow(), 9);
    });
}

TYPED_TEST_P(WidgetsContract, BClickTogglesCheckBoxesAndReportsOneHitEach) {
    this->Use([&] {
        for (const int control : {kLocalPipe, kSendImmediatelyBox, kUseWirelessBox, kMidiIn}) {
            const int before = this->Seam().Value(control);
            this->handlers.calls.clear();
            this->Hands().Click(control);
            EXPECT_EQ(this->Seam().Value(control), 1 - before) << control;
            const auto hits = this->handlers.Of(EventKind::ControlHit);
            ASSERT_EQ(hits.size(), 1U) << control;
            EXPECT_EQ(hits[0].event.control, control);
        }
    });
}

TYPED_TEST_P(WidgetsContract, BClickOnAButtonReportsItWithTheCommandKey) {
    this->Use([&] {
        this->handlers.calls.clear();
        this->Hands().Click(kAbout);
        this->Hands().Click(kAbout, true);
    });
    const auto hits = this->handlers.Of(EventKind::ControlHit);
    ASSERT_EQ(hits.size(), 2U);
    EXPECT_EQ(hits[0].event.control, kAbout);
    EXPECT_EQ(hits[0].event.modifiers & kCommandKey, 0U);
    EXPECT_EQ(hits[1].event.modifiers & kCommandKey, kCommandKey);
}

TYPED_TEST_P(WidgetsContract, CPressEndsHoweverItEnds) {
    for (const PressEnd end : {PressEnd::ReleaseInside, PressEnd::ReleaseOutside, PressEnd::WindowDeactivated,
                               PressEnd::GrabLost}) {
        std::vector<std::string> order;
        this->handlers.answer = RecordingHandlers::Answer::NextThenNotHandled;
        this->handlers.during = [&](const PanelEvent& event) {
            if (event.kind == EventKind::MouseDown && event.control == kTestButton) {
                order.push_back("ended");
            }
        };
        this->Use(
            [&] { this->Hands().PressTestButton(kButtonCentre, end, [&] { order.push_back("held"); }); });
        this->handlers.during = {};
        EXPECT_EQ(order, (std::vector<std::string>{"held", "ended"})) << static_cast<int>(end);
    }
}

TYPED_TEST_P(WidgetsContract, CPressCarriesItsPlaceInTheStructure) {
    this->Use([&] { this->Hands().PressTestButton(kButtonCentre, PressEnd::ReleaseInside); });
    std::vector<HandlerCall> presses;
    for (const HandlerCall& call : this->handlers.Of(EventKind::MouseDown)) {
        if (call.event.control == kTestButton) {
            presses.push_back(call);
        }
    }
    ASSERT_EQ(presses.size(), 1U);
    const ControlRect& rect = kControlTable[kTestButton].rect;
    EXPECT_NEAR(presses[0].event.x, rect.left + kButtonCentre.x, 1);
    EXPECT_NEAR(presses[0].event.y, rect.top + kButtonCentre.y + this->Seam().TitleBarHeight(), 1);
}

TYPED_TEST_P(WidgetsContract, DCloseRequestIsAnEventAndLeavesTheWindow) {
    this->Use([&] {
        this->Hands().CloseWindow();
        EXPECT_EQ(this->handlers.Of(EventKind::WindowClose).size(), 1U);
        this->Hands().Click(kLocalPipe);
        EXPECT_EQ(this->Seam().Value(kLocalPipe), 1) << "the panel alone decides about closing";
    });
}

TYPED_TEST_P(WidgetsContract, EEveryChangeOfATextReachesItsFieldsHandlerAsAKey) {
    for (const int field : {kInputName, kSourceComputer}) {
        SCOPED_TRACE(field);
        this->Use([&] {
            this->Enter(field);
            const auto keys = [&] { return this->handlers.Of(EventKind::RawKeyDown).size(); };
            this->Hands().CommitText("日本");
            EXPECT_EQ(keys(), 1U);
            EXPECT_EQ(this->Text(field), "日本");
            this->Hands().SelectAll();
            this->Hands().Paste("pasted");
            EXPECT_EQ(keys(), 2U);
            EXPECT_EQ(this->Text(field), "pasted");
            this->Hands().Undo();
            EXPECT_EQ(keys(), 3U);
            EXPECT_EQ(this->Text(field), "日本");
            this->Hands().SelectAll();
            this->Hands().Press(Key::Backspace);
            EXPECT_EQ(keys(), 4U);
            EXPECT_EQ(this->Text(field), "");
            for (const HandlerCall& key : this->handlers.Of(EventKind::RawKeyDown)) {
                EXPECT_TRUE(key.event.hasCharacter);
                EXPECT_EQ(key.event.control, field);
            }
        });
    }
}

TYPED_TEST_P(WidgetsContract, ELineBreaksNeverGetIntoAField) {
    this->Use([&] {
        for (const int field : {kInputName, kSourceComputer}) {
            this->Enter(field);
            this->Hands().Paste("one\ntwo\r\nthree");
            EXPECT_EQ(this->Text(field).find_first_of("\r\n"), std::string::npos) << field;
        }
    });
}

TYPED_TEST_P(WidgetsContract, EReturnReachesTheHandlerOfBothKindsOfFields) {
    this->Use([&] {
        this->handlers.answer = RecordingHandlers::Answer::NotHandled;
        for (const int field : {kSourceComputer}) {
            this->Enter(field);
            this->Hands().Press(Key::Return);
        }
        this->Enter(kInputName);
        this->handlers.answer = RecordingHandlers::Answer::Swallow;
        this->Hands().Press(Key::Return);
        const auto keys = this->handlers.Of(EventKind::RawKeyDown);
        ASSERT_EQ(keys.size(), 1U);
        EXPECT_EQ(keys[0].event.character, kCharReturn);
        EXPECT_EQ(this->Text(kInputName), "");
    });
}

TYPED_TEST_P(WidgetsContract, FFieldReachedByClickOrTabReportsAHitFirst) {
    this->Use([&] {
        for (const int field : {kInputName, kOutputName, kSourceComputer, kTargetComputer}) {
            for (const bool byClick : {true, false}) {
                this->Hands().ClickRow(0);
                this->handlers.calls.clear();
                if (byClick) {
                    this->Hands().Click(field);
                } else {
                    this->Hands().TabTo(field);
                }
                this->Hands().Type("x");
                const auto hits = this->handlers.Of(EventKind::ControlHit);
                ASSERT_FALSE(hits.empty()) << field << byClick;
                bool hitFirst = false;
                for (const HandlerCall& call : this->handlers.calls) {
                    if (call.event.kind == EventKind::ControlHit && call.event.control == field) {
                        hitFirst = true;
                    }
                    if (call.event.kind == EventKind::RawKeyDown) {
                        EXPECT_TRUE(hitFirst) << field << byClick;
                        EXPECT_EQ(call.event.control, field);
                    }
                }
            }
        }
    });
}

TYPED_TEST_P(WidgetsContract, GEveryStepOfArrowsIsOneActionAndOneHitBehindIt) {
    for (const StepBy by : {StepBy::Mouse, StepBy::Key, StepBy::Wheel}) {
        SCOPED_TRACE(static_cast<int>(by));
        this->Use([&] {
            this->Hands().TabTo(kTargetPortArrows);
            this->handlers.calls.clear();
            this->Hands().StepArrows(kTargetPortArrows, true, by);
            this->Hands().StepArrows(kTargetPortArrows, false, by);
        });
        EXPECT_EQ(this->handlers.Order(), (std::vector<std::string>{"arrows", "window", "arrows", "window"}));
        std::vector<int> parts;
        for (const HandlerCall& call : this->handlers.calls) {
            if (call.handler == "arrows") {
                parts.push_back(call.part);
            }
        }
        EXPECT_EQ(parts, (std::vector<int>{kUpPart, kDownPart}));
        EXPECT_EQ(this->Seam().Value(kTargetPortArrows), 0) << "the panel's action alone changes the value";
    }
}

TYPED_TEST_P(WidgetsContract, GHeldArrowsStepAgainAndAgain) {
    this->Use([&] {
        this->handlers.calls.clear();
        this->Hands().HoldArrows(kTargetPortArrows, false, 3);
    });
    EXPECT_EQ(this->handlers.Order(),
              (std::vector<std::string>{"arrows", "window", "arrows", "window", "arrows", "window"}));
}

TYPED_TEST_P(WidgetsContract, HTabIsNoEventAndLeavesThePortList) {
    this->handlers.answer = RecordingHandlers::Answer::Swallow;
    this->Use([&] {
        this->Hands().ClickRow(3);
        this->handlers.calls.clear();
        this->Hands().Press(Key::Tab);
        this->Hands().Press(Key::Down);
    });
    for (const HandlerCall& call : this->handlers.Of(EventKind::RawKeyDown)) {
        EXPECT_NE(call.event.control, kPortList);
    }
}

TYPED_TEST_P(WidgetsContract, SliderFollowsThePersonAndReportsEachValue) {
    this->Use([&] {
        this->handlers.calls.clear();
        this->Hands().MoveSlider(37);
        EXPECT_EQ(this->Seam().Value(kQuantizationSlider), 37);
        ASSERT_FALSE(this->handlers.calls.empty());
        EXPECT_EQ(this->handlers.calls.back().handler, "slider");
        EXPECT_EQ(this->handlers.calls.back().control, kQuantizationSlider);
    });
}

TYPED_TEST_P(WidgetsContract, PickOfAnItemIsReportedWithItsIndexAndThenShown) {
    this->Seam().AppendItem(kTargetComputer, "alpha");
    this->Seam().AppendItem(kTargetComputer, "beta");
    this->Use([&] {
        this->handlers.calls.clear();
        this->Hands().PickItem(kTargetComputer, 1);
        EXPECT_EQ(this->Text(kTargetComputer), "beta");
    });
    const auto picks = this->handlers.Of(EventKind::ListItemSelected);
    ASSERT_EQ(picks.size(), 1U);
    EXPECT_EQ(picks[0].handler, "combo");
    EXPECT_EQ(picks[0].event.control, kTargetComputer);
    EXPECT_EQ(picks[0].event.itemIndex, 1);
    EXPECT_FALSE(this->handlers.Of(EventKind::ControlHit).empty()) << "the combo box got the focus before";
}

TYPED_TEST_P(WidgetsContract, DroppedFileIsReportedWithItsPath) {
    this->Use([&] { this->Hands().DropFile("/tmp/set tings.vexil3"); });
    const auto drops = this->handlers.Of(EventKind::SettingsDropped);
    ASSERT_EQ(drops.size(), 1U);
    EXPECT_EQ(drops[0].handler, "window");
    EXPECT_EQ(drops[0].event.path, "/tmp/set tings.vexil3");
}

TYPED_TEST_P(WidgetsContract, DisabledControlsRaiseNothing) {
    this->Use([&] {
        for (const int control : {kLocalPipe, kApply, kSendImmediatelyBox}) {
            this->Seam().SetEnabled(control, false);
        }
        this->handlers.calls.clear();
        for (const int control : {kLocalPipe, kApply, kSendImmediatelyBox}) {
            this->Hands().Click(control);
        }
        EXPECT_TRUE(this->handlers.Of(EventKind::ControlHit).empty());
        EXPECT_EQ(this->Seam().Value(kLocalPipe), 0);
    });
}

TYPED_TEST_P(WidgetsContract, DisabledGroupKeepsThePersonFromAllInIt) {
    this->Use([&] {
        this->Seam().SetEnabled(kMidiOut, false);
        this->handlers.calls.clear();
        this->Hands().Click(kMidiOut);
        this->Hands().Click(kSendImmediatelyBox);
        this->Hands().StepArrows(kTargetPortArrows, true, StepBy::Mouse);
        EXPECT_TRUE(this->handlers.Of(EventKind::ControlHit).empty());
    });
}

TYPED_TEST_P(WidgetsContract, EnablingAGroupLeavesTheOwnStateOfWhatIsInIt) {
    Widgets& widgets = this->Seam();
    widgets.SetEnabled(kOutputName, false);
    for (const bool enabled : {false, true}) {
        widgets.SetEnabled(kMidiOut, enabled);
        EXPECT_FALSE(widgets.IsEnabled(kOutputName));
        EXPECT_TRUE(widgets.IsEnabled(kSendImmediatelyBox));
        EXPECT_EQ(widgets.IsEnabled(kMidiOut), enabled);
    }
}

TYPED_TEST_P(WidgetsContract, UncheckingAGroupLeavesTheStateOfWhatIsInIt) {
    Widgets& widgets = this->Seam();
    widgets.SetEnabled(kInputName, false);
    for (const int value : {0, 1}) {
        widgets.SetValue(kMidiIn, value);
        EXPECT_EQ(widgets.Value(kMidiIn), value);
        EXPECT_TRUE(widgets.IsEnabled(kSourceComputerBox));
        EXPECT_FALSE(widgets.IsEnabled(kInputName));
    }
    widgets.SetValue(kMidiIn, 0);
    this->Use([&] {
        this->Hands().Click(kSourceComputerBox);
        EXPECT_EQ(widgets.Value(kSourceComputerBox), 1) << "the refresh rules alone decide what is enabled";
    });
}

TYPED_TEST_P(WidgetsContract, ValuesAreLimitedToTheirRange) {
    Widgets& widgets = this->Seam();
    widgets.SetValue(kQuantizationSlider, 250);
    EXPECT_EQ(widgets.Value(kQuantizationSlider), 100);
    widgets.SetValue(kSourcePortArrows, 255);
    EXPECT_EQ(widgets.Value(kSourcePortArrows), 63);
    widgets.SetValue(kTestChannelArrows, 0);
    EXPECT_EQ(widgets.Value(kTestChannelArrows), 1);
}

TYPED_TEST_P(WidgetsContract, ControlsStartWithTheTablesValuesAndTexts) {
    EXPECT_EQ(this->Seam().Value(kTestChannelArrows), 1);
    EXPECT_EQ(this->Seam().Value(kLocalPipe), 0);
    EXPECT_EQ(this->Text(kTestChannelNumber), "1");
    EXPECT_EQ(this->Text(kOutputName), "");
    EXPECT_EQ(this->Text(kTargetComputer), "");
    EXPECT_EQ(this->Seam().RowCount(), 64);
}

TYPED_TEST_P(WidgetsContract, TextsComeBackByteForByte) {
    for (const char* text : {"", "plain", "日本", "caf\xe9 \xff", "&Amp && <b>"}) {
        for (const int control : {kInputName, kTargetComputer, kTargetPortNumber}) {
            this->Seam().SetText(control, text);
            EXPECT_EQ(this->Text(control), text) << control;
        }
    }
}

TYPED_TEST_P(WidgetsContract, ListsOfComboBoxesLeaveTheTypedText) {
    Widgets& widgets = this->Seam();
    widgets.SetText(kTargetComputer, "typed");
    EXPECT_TRUE(widgets.AppendItem(kTargetComputer, "alpha"));
    EXPECT_TRUE(widgets.AppendItem(kTargetComputer, "beta"));
    EXPECT_TRUE(widgets.AppendItem(kTargetComputer, "gamma"));
    EXPECT_EQ(this->Text(kTargetComputer), "typed");
    EXPECT_EQ(this->Items(kTargetComputer), (std::vector<std::string>{"alpha", "beta", "gamma"}));
    widgets.RemoveItem(kTargetComputer, 1);
    EXPECT_EQ(this->Items(kTargetComputer), (std::vector<std::string>{"alpha", "gamma"}));
    widgets.RemoveItem(kTargetComputer, 1);
    widgets.RemoveItem(kTargetComputer, 0);
    EXPECT_EQ(this->Text(kTargetComputer), "typed");
    EXPECT_EQ(widgets.ItemCount(kTargetComputer), 0);
    EXPECT_EQ(widgets.ItemCount(kSourceComputer), 0);
}

TYPED_TEST_P(WidgetsContract, EmptyTextStaysEmptyWhenAListIsFilled) {
    this->Seam().SetText(kTargetComputer, "");
    this->Seam().AppendItem(kTargetComputer, "alpha");
    EXPECT_EQ(this->Text(kTargetComputer), "");
}

TYPED_TEST_P(WidgetsContract, ItemsThatAreNotThereCannotBeRead) {
    this->Seam().AppendItem(kTargetComputer, "alpha");
    svString text("as it was");
    EXPECT_FALSE(this->Seam().ItemText(kTargetComputer, -1, text));
    EXPECT_FALSE(this->Seam().ItemText(kTargetComputer, 1, text));
    EXPECT_STREQ(text.c_str(), "as it was");
}

TYPED_TEST_P(WidgetsContract, WindowDisposedOfTwiceIsHarmless) {
    this->Seam().DisposeWindow();
    this->Seam().DisposeWindow();
    SUCCEED();
}

REGISTER_TYPED_TEST_SUITE_P(
    WidgetsContract, ASettersRaiseNoEvent, BKeyReachesItsFieldOnceWhetherTheHandlerLetsItOrNot,
    BSwallowedKeyDoesNotReachItsField, BFieldHoldsTheNewTextOnceNextHasReturned,
    BKeyCarriesItsFieldAndItsCharactersFirstByte, BArrowKeyMovesTheSelectionOnceAndSwallowedNotAtAll,
    BArrowKeysOfTheListCarryTheirCodes, BArrowUpInTheFirstRowIsStillAnEventAndHandled,
    BSwallowedLettersDoNotMoveTheSelection, BHeldLetterRepeats, BClickOnARowSelectsItAndReportsAHit,
    BCommandClickNeitherDeselectsNorExtends, BClickTogglesCheckBoxesAndReportsOneHitEach,
    BClickOnAButtonReportsItWithTheCommandKey, CPressEndsHoweverItEnds, CPressCarriesItsPlaceInTheStructure,
    DCloseRequestIsAnEventAndLeavesTheWindow, EEveryChangeOfATextReachesItsFieldsHandlerAsAKey,
    ELineBreaksNeverGetIntoAField, EReturnReachesTheHandlerOfBothKindsOfFields,
    FFieldReachedByClickOrTabReportsAHitFirst, GEveryStepOfArrowsIsOneActionAndOneHitBehindIt,
    GHeldArrowsStepAgainAndAgain, HTabIsNoEventAndLeavesThePortList,
    SliderFollowsThePersonAndReportsEachValue, PickOfAnItemIsReportedWithItsIndexAndThenShown,
    DroppedFileIsReportedWithItsPath, DisabledControlsRaiseNothing, DisabledGroupKeepsThePersonFromAllInIt,
    EnablingAGroupLeavesTheOwnStateOfWhatIsInIt, UncheckingAGroupLeavesTheStateOfWhatIsInIt,
    ValuesAreLimitedToTheirRange, ControlsStartWithTheTablesValuesAndTexts, TextsComeBackByteForByte,
    ListsOfComboBoxesLeaveTheTypedText, EmptyTextStaysEmptyWhenAListIsFilled,
    ItemsThatAreNotThereCannotBeRead, WindowDisposedOfTwiceIsHarmless);

}  // namespace vexil
