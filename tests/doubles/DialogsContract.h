// What every implementation of Dialogs must do. A subject type supplies, default-constructed:
//
//   Dialogs& Seam();
//   void Use(const Script& script);            runs the script inside the event loop
//   void NextAlert(AlertHit hit, Script meanwhile);       what a person does to the next alert
//   void NextChooser(std::optional<std::string> path);    the file that a person chooses next; none: cancels
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <string>

#include "panel/Dialogs.h"
#include "tests/doubles/MemoryDialogs.h"
#include "tests/scenarios/TempFolder.h"

namespace vexil {

template <class Subject>
class DialogsContract : public ::testing::Test {
  protected:
    using Script = std::function<void()>;

    int Ask(const AlertRequest& request, AlertHit hit, const Script& meanwhile = {}) {
        int answer = 0;
        subject.NextAlert(hit, meanwhile);
        subject.Use([&] { answer = subject.Seam().RunAlert(request); });
        return answer;
    }
    std::int32_t Choose(bool save, const std::optional<std::string>& chosen, std::string& path) {
        std::int32_t status = 0;
        subject.NextChooser(chosen);
        subject.Use([&] {
            status = subject.Seam().RunFileChooser(save, save ? "default.vexil3" : "",
                                                   save ? "" : "com.sonavert.vexil3.vexp3", path);
        });
        return status;
    }
    static AlertRequest ThreeButtons() {
        AlertRequest request;
        request.message = "message";
        request.hasExplanation = true;
        request.explanation = "explanation\n\n";
        request.defaultButton = {AlertButton::Kind::Titled, "\16Apply and Quit"};
        request.cancelButton = {AlertButton::Kind::Titled, "\6Cancel"};
        request.otherButton = {AlertButton::Kind::Titled, "\4Quit"};
        request.kind = kAlertCaution;
        return request;
    }

    Subject subject;
};

TYPED_TEST_SUITE_P(DialogsContract);

TYPED_TEST_P(DialogsContract, EachButtonGivesItsNumber) {
    EXPECT_EQ(this->Ask(this->ThreeButtons(), AlertHit::Default), 1);
    EXPECT_EQ(this->Ask(this->ThreeButtons(), AlertHit::Cancel), 2);
    EXPECT_EQ(this->Ask(this->ThreeButtons(), AlertHit::Other), 3);
}

TYPED_TEST_P(DialogsContract, ReturnHitsTheDefaultButtonByItsNumber) {
    AlertRequest request = this->ThreeButtons();
    EXPECT_EQ(this->Ask(request, AlertHit::Return), 1);
    request.defaultButtonNumber = kAlertOtherButton;
    EXPECT_EQ(this->Ask(request, AlertHit::Return), 3);
}

TYPED_TEST_P(DialogsContract, EscapeHitsCancelElseOtherElseTheOnlyButton) {
    AlertRequest request = this->ThreeButtons();
    EXPECT_EQ(this->Ask(request, AlertHit::Escape), 2);
    request.cancelButton = {};
    EXPECT_EQ(this->Ask(request, AlertHit::Escape), 3);
    request.otherButton = {};
    EXPECT_EQ(this->Ask(request, AlertHit::Escape), 1);
}

TYPED_TEST_P(DialogsContract, AlertWithoutTextsHasTheToolkitsOk) {
    AlertRequest request;
    request.message = "message";
    EXPECT_EQ(this->Ask(request, AlertHit::Default), 1);
}

TYPED_TEST_P(DialogsContract, EventLoopRunsWhileAnAlertIsOpen) {
    bool ran = false;
    EXPECT_EQ(this->Ask(this->ThreeButtons(), AlertHit::Cancel, [&] { ran = true; }), 2);
    EXPECT_TRUE(ran);
}

TYPED_TEST_P(DialogsContract, ChosenFileIsGivenAsItsAbsolutePath) {
    const TempFolder folder;
    folder.Write("a.vexil3", "");
    std::string path;
    EXPECT_EQ(this->Choose(false, folder.Path("a.vexil3"), path), 0);
    EXPECT_EQ(path, folder.Path("a.vexil3"));
}

TYPED_TEST_P(DialogsContract, NewFileCanBeChosenForSaving) {
    const TempFolder folder;
    std::string path;
    EXPECT_EQ(this->Choose(true, folder.Path("new.vexil3"), path), 0);
    EXPECT_EQ(path, folder.Path("new.vexil3"));
    EXPECT_TRUE(folder.IsEmpty()) << "the dialog itself makes nothing";
}

TYPED_TEST_P(DialogsContract, CanceledChooserSaysSoAndLeavesThePath) {
    for (const bool save : {true, false}) {
        std::string path = "as it was";
        EXPECT_EQ(this->Choose(save, std::nullopt, path), kUserCanceled);
        EXPECT_EQ(path, "as it was");
    }
}

REGISTER_TYPED_TEST_SUITE_P(DialogsContract, EachButtonGivesItsNumber, ReturnHitsTheDefaultButtonByItsNumber,
                            EscapeHitsCancelElseOtherElseTheOnlyButton, AlertWithoutTextsHasTheToolkitsOk,
                            EventLoopRunsWhileAnAlertIsOpen, ChosenFileIsGivenAsItsAbsolutePath,
                            NewFileCanBeChosenForSaving, CanceledChooserSaysSoAndLeavesThePath);

}  // namespace vexil
