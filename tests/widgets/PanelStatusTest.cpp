// What the window shows around the controls of how things stand.
#include "platform/qt/PanelStatus.h"

#include <QDialog>
#include <QInputDialog>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QTest>
#include <QTimer>

#include "platform/qt/NotedDialogs.h"
#include "tests/doubles/MemoryDialogs.h"
#include "tests/widgets/WindowFixture.h"

namespace vexil {
namespace {

class PanelStatusTest : public WindowFixture {
  protected:
    void Begin() {
        widgets.SetEnabled(kApply, false);
        status.WindowShown([this] { ++begun; });
        for (int turns = 0; turns < 1000 && begun == 0; ++turns) {
            widgets.Window()->repaint();
            person.Settle();
        }
        ASSERT_EQ(begun, 1);
    }
    QPushButton* Line() const { return widgets.Window()->findChild<QPushButton*>("status-line"); }
    QDialog* List() const { return widgets.Window()->findChild<QDialog*>("status-list"); }
    void ShowAbsence() {
        status.Change([](PanelSituation& known) { known.driver = PanelSituation::Driver::Absent; });
    }
    // A driver to which a computer with another key plays, and another one that wants a secret.
    void ShowReport() {
        status.ChangeReport([](PanelSituation& known) {
            known.driver = PanelSituation::Driver::Running;
            StatusReport report;
            report.backend = "alsa";
            report.running = report.showConnectors = true;
            report.network = NetworkReport();
            report.network->refused = {{"laptop", "0123456789abcdef"}};
            SessionReport session;
            session.computer = "studio";
            session.problem = "\"studio\" wants a secret, and none is set here.";
            session.needs = "secret";
            report.sessions = {session};
            PortReport port;
            port.port = 12;
            port.output = OutputReport();
            port.output->endpoint.connections = 1;
            report.ports = {port};
            known.report = report;
        });
    }
    QPushButton* Button(const QString& title) const {
        for (QPushButton* button : List()->findChildren<QPushButton*>()) {
            if (button->text() == title && button->isVisible()) {
                return button;
            }
        }
        return nullptr;
    }
    // What stands in the list, in bold or not.
    QStringList Texts(bool bold) const {
        QStringList texts;
        for (const QLabel* label : List()->findChildren<QLabel*>()) {
            if (label->isVisible() && label->font().bold() == bold) {
                texts << label->text();
            }
        }
        return texts;
    }
    QImage Row(int row) {
        auto& list = Find<QListWidget>(kPortList);
        return list.viewport()->grab(list.visualItemRect(list.item(row))).toImage();
    }

    std::vector<std::vector<std::string>> asked;
    int begun = 0;
    PanelStatus status{widgets, [this](const std::vector<std::string>& words) { asked.push_back(words); }};
};

TEST_F(PanelStatusTest, TheLineComesBehindTheFirstFrameAndStandsBelowTheControls) {
    EXPECT_EQ(Line(), nullptr);
    Begin();
    ASSERT_NE(Line(), nullptr);
    EXPECT_FALSE(Line()->isVisible()) << "there is nothing to say yet";
    EXPECT_EQ(Line()->geometry(), QRect(20, 412, 540, 16));
    ShowAbsence();
    EXPECT_TRUE(Line()->isVisible());
    EXPECT_EQ(Line()->accessibleName(), "No driver is running");
    EXPECT_EQ(widgets.Window()->size(), QSize(kWindowWidth, kWindowHeight));
    EXPECT_EQ(Line()->focusPolicy(), Qt::NoFocus) << "the round of the Tab key is that of the controls";
    EXPECT_TRUE(handlers.calls.empty()) << "the panel hears nothing of it";
}

TEST_F(PanelStatusTest, TheLineSaysThatChangesAreNotApplied) {
    Begin();
    widgets.SetEnabled(kApply, false);
    EXPECT_FALSE(Line()->isVisible());
    widgets.SetEnabled(kApply, true);
    EXPECT_EQ(Line()->accessibleName(), "Changes are not applied");
    widgets.SetEnabled(kApply, false);
    EXPECT_FALSE(Line()->isVisible());
}

TEST_F(PanelStatusTest, AClickOrAKeyOpensTheListWhichStaysUpToDate) {
    Begin();
    widgets.SetEnabled(kApply, false);
    ShowAbsence();
    QTest::mouseClick(Line(), Qt::LeftButton);
    ASSERT_NE(List(), nullptr);
    EXPECT_EQ(Texts(true), QStringList{"No driver is running."});
    ShowReport();
    person.Settle();
    EXPECT_EQ(Texts(true), (QStringList{"\"studio\" wants a secret, and none is set here.",
                                        "A computer with another key than before calls itself \"laptop\".",
                                        "Driver running, ALSA, 1 port."}));
    QTest::keyClick(List(), Qt::Key_Escape);
    person.Settle();
    EXPECT_EQ(List(), nullptr);
    person.Activate();
    QTest::keyClick(widgets.Window(), Qt::Key_F1);
    EXPECT_NE(List(), nullptr);
}

TEST_F(PanelStatusTest, AButtonAsksTheDriverAndTheListShowsWhatHasBecomeOfIt) {
    Begin();
    ShowReport();
    QTest::mouseClick(Line(), Qt::LeftButton);
    ASSERT_NE(Button("Accept"), nullptr);
    Button("Accept")->click();
    EXPECT_EQ(asked, (std::vector<std::vector<std::string>>{{"pin", "laptop", "0123456789abcdef"}}));
    status.ShowResult("The key of \"laptop\" is accepted.");
    EXPECT_TRUE(Texts(false).contains("The key of \"laptop\" is accepted."));
}

TEST_F(PanelStatusTest, ASecretIsEnteredHiddenAndMayBeGivenUp) {
    Begin();
    ShowReport();
    QTest::mouseClick(Line(), Qt::LeftButton);
    for (const bool isGivenUp : {true, false}) {
        QTimer::singleShot(0, widgets.Window(), [isGivenUp] {
            auto* entry = qobject_cast<QInputDialog*>(QApplication::activeModalWidget());
            ASSERT_NE(entry, nullptr);
            EXPECT_EQ(entry->textEchoMode(), QLineEdit::Password);
            entry->setTextValue("open sesame");
            isGivenUp ? entry->reject() : entry->accept();
        });
        ASSERT_NE(Button("Enter Secret"), nullptr);
        Button("Enter Secret")->click();
    }
    EXPECT_EQ(asked, (std::vector<std::vector<std::string>>{{"secret", "open sesame"}}));
}

TEST_F(PanelStatusTest, APortIsMarkedBesideItsTextAndTheSameIsSaidInWords) {
    Begin();
    const QImage before = Row(1);
    const QImage other = Row(2);
    ShowReport();
    auto& list = Find<QListWidget>(kPortList);
    EXPECT_NE(Row(1), before);
    EXPECT_EQ(Row(2), other);
    EXPECT_EQ(list.item(1)->text(), "Port 1");
    EXPECT_EQ(list.item(1)->toolTip(), "MIDI OUT to nowhere, 1 connection.");
    EXPECT_EQ(list.item(1)->data(Qt::AccessibleDescriptionRole).toString(), list.item(1)->toolTip());
    const QRect text(3, 0, 40, kListCellHeight);
    EXPECT_EQ(Row(1).copy(text), before.copy(text)) << "the text is where it was";
    status.ChangeReport([](PanelSituation& known) { known.report.reset(); });
    EXPECT_EQ(Row(1), before);
    EXPECT_EQ(list.item(1)->toolTip(), "");
    EXPECT_TRUE(handlers.calls.empty());
}

class NotedDialogsTest : public WindowFixture {
  protected:
    MemoryDialogs dialogs;
    std::vector<std::string> used;
    NotedDialogs noted{dialogs, [this](const NotedDialogs::File& file) {
                           used.push_back((file.isSaved ? "saved " : "loaded ") + file.path);
                       }};
    std::string path;
};

TEST_F(NotedDialogsTest, AFileThatWasChosenAndUsedIsNotedOnce) {
    dialogs.fileAnswers = {{0, "/a.vexil3", {}}, {0, "/b.vexil3", {}}, {kUserCanceled, "", {}}};
    EXPECT_EQ(noted.RunFileChooser(true, "", "", path), 0);
    EXPECT_EQ(path, "/a.vexil3");
    EXPECT_TRUE(used.empty());
    person.Settle();
    EXPECT_EQ(used, std::vector<std::string>{"saved /a.vexil3"});
    noted.RunFileChooser(false, "", "", path);
    person.Settle();
    EXPECT_EQ(noted.RunFileChooser(false, "", "", path), kUserCanceled);
    person.Settle();
    EXPECT_EQ(used, (std::vector<std::string>{"saved /a.vexil3", "loaded /b.vexil3"}));
}

TEST_F(NotedDialogsTest, AFileThatAnAlertFollowsWasNotUsed) {
    dialogs.fileAnswers = {{0, "/a.vexil3", {}}};
    dialogs.alertAnswers = {{AlertHit::Default, {}}};
    noted.RunFileChooser(false, "", "", path);
    EXPECT_EQ(noted.RunAlert({}), kAlertDefaultButton);
    person.Settle();
    EXPECT_TRUE(used.empty());
}

TEST_F(NotedDialogsTest, AFileThatIsDroppedIsNotedWhenItHasBeenLoaded) {
    noted.ExpectLoad("/a.vexil3");
    person.Settle();
    EXPECT_EQ(used, std::vector<std::string>{"loaded /a.vexil3"});
}

}  // namespace
}  // namespace vexil
