// Alerts as they are seen, and requests to close that come from outside.
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>
#include <QScreen>
#include <QTest>
#include <QTimer>

#include <unistd.h>
#include <csignal>

#include "platform/qt/QtDialogs.h"
#include "platform/qt/TerminationSignals.h"
#include "tests/widgets/AnsweredAlert.h"
#include "tests/widgets/WindowFixture.h"

namespace vexil {
namespace {

class Questions : public WindowFixture {
  protected:
    Questions() { request.message = "message"; }

    int Ask(const std::function<void(QMessageBox&)>& look) {
        WhenAlertOpens([look](QMessageBox& box) {
            look(box);
            box.close();
        });
        return dialogs.RunAlert(request);
    }

    QtDialogs dialogs{widgets};
    AlertRequest request;
};

TEST_F(Questions, TextsAreNeverMarkup) {
    request.message = "<b>message</b>";
    request.hasExplanation = true;
    request.explanation = "/tmp/<i>a</i><br>.vexil3 file cannot be opened";
    Ask([](QMessageBox& box) {
        for (const char* name : {"qt_msgbox_label", "qt_msgbox_informativelabel"}) {
            auto* label = box.findChild<QLabel*>(name);
            ASSERT_NE(label, nullptr) << name;
            EXPECT_EQ(label->textFormat(), Qt::PlainText) << name;
            EXPECT_TRUE(label->text().contains('<'));
        }
    });
}

TEST_F(Questions, ControlCharactersOfATitleAreKeptAndNotDrawn) {
    request.defaultButton = {AlertButton::Kind::Titled, "\16Apply && Quit"};
    Ask([](QMessageBox& box) {
        ASSERT_EQ(box.buttons().size(), 1);
        EXPECT_EQ(box.buttons()[0]->property("title").toString(), QString("\16Apply && Quit"));
        EXPECT_EQ(box.buttons()[0]->text(), QString("Apply &&&& Quit"));
    });
}

TEST_F(Questions, KindsHaveTheirIcons) {
    for (const auto& [kind, icon] :
         {std::pair{kAlertStop, QMessageBox::Critical}, std::pair{kAlertNote, QMessageBox::Information},
          std::pair{kAlertCaution, QMessageBox::Warning}, std::pair{kAlertPlain, QMessageBox::NoIcon}}) {
        request.kind = kind;
        const QMessageBox::Icon expected = icon;
        Ask([expected](QMessageBox& box) { EXPECT_EQ(box.icon(), expected); });
    }
}

TEST_F(Questions, ToolkitsOwnTitlesStandForButtonsWithoutText) {
    request.cancelButton = {AlertButton::Kind::ToolkitDefault, ""};
    Ask([](QMessageBox& box) {
        QStringList titles;
        for (const QAbstractButton* button : box.buttons()) {
            titles << button->text();
        }
        titles.sort();
        EXPECT_EQ(titles, (QStringList{"Cancel", "OK"}));
    });
}

TEST_F(Questions, ClosingAnAlertWithTwoButtonsChangesNothing) {
    request.defaultButton = {AlertButton::Kind::Titled, "Ok"};
    request.otherButton = {AlertButton::Kind::Titled, "Cancel"};
    EXPECT_EQ(Ask([](QMessageBox&) {}), kAlertOtherButton);
}

TEST_F(Questions, AlertWithALongPathStaysOnTheScreen) {
    request.hasExplanation = true;
    for (int i = 0; i < 16; ++i) {
        request.explanation += "/a long folder name " + std::to_string(i);
    }
    request.explanation += "/" + std::string(200, 'x') + ".vexil3 file cannot be opened for read access.";
    Ask([](QMessageBox& box) { EXPECT_LE(box.width(), box.screen()->availableSize().width()); });
}

TEST_F(Questions, WindowTakesNoInputWhileAQuestionIsOpen) {
    Ask([this](QMessageBox&) {
        person.Click(kLocalPipe, false);
        EXPECT_EQ(widgets.Value(kLocalPipe), 0);
        person.DropFile("/tmp/a.vexil3");
    });
    EXPECT_TRUE(handlers.calls.empty());
}

TEST_F(Questions, EndOfTheEventLoopLeavesAnOpenQuestionToBeAnswered) {
    request.defaultButton = {AlertButton::Kind::Titled, "Ok"};
    request.otherButton = {AlertButton::Kind::Titled, "Cancel"};
    int answer = 0;
    QTimer::singleShot(0, person.Window(), [&] {
        answer = Ask([this](QMessageBox& box) {
            desktop.EndEventLoop();
            QTest::qWait(20);
            EXPECT_TRUE(box.isVisible());
        });
    });
    desktop.RunEventLoop();
    EXPECT_EQ(answer, kAlertOtherButton);
}

// --- requests to close from outside ---

TEST_F(Questions, RequestFromOutsideIsACloseRequest) {
    desktop.RequestClose();
    EXPECT_EQ(Count(EventKind::WindowClose), 1);
}

TEST_F(Questions, RequestWhileAQuestionIsOpenComesAgainWhenItIsAnswered) {
    Ask([this](QMessageBox&) {
        desktop.RequestClose();
        QTest::qWait(10);
        EXPECT_EQ(Count(EventKind::WindowClose), 0);
    });
    person.Settle();
    EXPECT_EQ(Count(EventKind::WindowClose), 1);
}

TEST_F(Questions, RequestsWhileAQuestionIsOpenComeAgainAsOne) {
    Ask([this](QMessageBox&) {
        desktop.RequestClose();
        desktop.RequestClose();
    });
    person.Settle();
    EXPECT_EQ(Count(EventKind::WindowClose), 1);
    Ask([this](QMessageBox&) { desktop.RequestClose(); });
    person.Settle();
    EXPECT_EQ(Count(EventKind::WindowClose), 2) << "a later request is one of its own";
}

TEST_F(Questions, RequestsDuringTheQuestionAboutAnEndAreAnsweredByIt) {
    bool asked = false;
    handlers.during = [&](const PanelEvent& event) {
        if (event.kind != EventKind::WindowClose || asked) {
            return;
        }
        asked = true;
        Ask([this](QMessageBox&) {
            desktop.RequestClose();
            desktop.RequestClose();
        });
    };
    person.CloseWindow();
    person.Settle();
    EXPECT_TRUE(asked);
    EXPECT_EQ(Count(EventKind::WindowClose), 1) << "a request was put off";
    handlers.during = {};
    desktop.RequestClose();
    EXPECT_EQ(Count(EventKind::WindowClose), 2) << "a later request is one of its own";
}

TEST_F(Questions, RequestDuringTheQuestionAtTheEndOfTheLoopIsAnsweredByIt) {
    QTimer::singleShot(0, person.Window(), [this] { desktop.EndEventLoop(); });
    desktop.RunEventLoop();
    Ask([this](QMessageBox&) { desktop.RequestClose(); });
    person.Settle();
    EXPECT_EQ(Count(EventKind::WindowClose), 0);
}

TEST_F(Questions, LineOfAnExplanationThatHasRoomIsNotBroken) {
    request.message = "Short";
    request.hasExplanation = true;
    request.explanation = "A line that is longer than the message above it\n\n";
    Ask([](QMessageBox& box) {
        auto* label = box.findChild<QLabel*>("qt_msgbox_informativelabel");
        ASSERT_NE(label, nullptr);
        const int longest = label->fontMetrics().horizontalAdvance(label->text().split('\n')[0]);
        EXPECT_GE(label->width(), longest);
    });
}

// The desktop's own file chooser is another program's window; the toolkit's stands behind it unseen.
TEST_F(Questions, WindowComesToTheFrontWhenItsQuestionIsAnotherProgramsWindow) {
    const UnseenQuestion question(*person.Window());
    person.Window()->showMinimized();
    EXPECT_TRUE(desktop.BringToFront("", ""));
    EXPECT_FALSE(person.Window()->isMinimized());
}

// A signal may come while the window is still being filled, or while the flush before its first showing runs.
TEST_F(Questions, RequestBeforeTheWindowHasItsHandlersComesOnceItHasThem) {
    RecordingHandlers panel;
    QtWidgets starting;
    QtDesktop itsDesktop{starting};
    starting.CreateWindow({100, 100, 100 + kWindowHeight, 100 + kWindowWidth});
    itsDesktop.RequestClose();
    itsDesktop.FlushEvents();
    itsDesktop.ShowWindow();
    starting.InstallWindowHandler(panel);
    EXPECT_EQ(panel.Of(EventKind::WindowClose).size(), 0U) << "outside the event loop";
    person.Settle();
    EXPECT_EQ(panel.Of(EventKind::WindowClose).size(), 1U);
}

TEST_F(Questions, SignalsThatEndAProgramAreRequests) {
    int requests = 0;
    const TerminationSignals terminationSignals([&] { ++requests; });
    for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
        kill(getpid(), signal);
        EXPECT_TRUE(QTest::qWaitFor([&, before = requests] { return requests > before; })) << signal;
    }
    EXPECT_EQ(requests, 3);
}

TEST_F(Questions, FlushDropsWhatThePersonDidBefore) {
    person.Click(kInputName, false);
    auto* key = new QKeyEvent(QEvent::KeyPress, Qt::Key_A, {}, "a");
    QApplication::postEvent(person.Find(kInputName), key);
    desktop.FlushEvents();
    person.Settle();
    EXPECT_EQ(Text(kInputName), "");
    person.Type("b");
    EXPECT_EQ(Text(kInputName), "b");
}

}  // namespace
}  // namespace vexil
