// The contracts of the panel's seams, on Qt.
#include <QFileDialog>
#include <QLineEdit>
#include <QMessageBox>
#include <QTest>
#include <QTimer>

#include <utility>

#include "platform/qt/QtDesktop.h"
#include "platform/qt/QtDialogs.h"
#include "platform/qt/QtWidgets.h"
#include "tests/doubles/DesktopContract.h"
#include "tests/doubles/DialogsContract.h"
#include "tests/doubles/WidgetsContract.h"
#include "tests/widgets/AnsweredAlert.h"
#include "tests/widgets/QtPerson.h"

namespace vexil {
namespace {

class QtWindow {
  public:
    Widgets& Seam() { return widgets; }
    Person& Hands() { return person; }
    void Use(const Script& script) {
        desktop.ShowWindow();
        QTimer::singleShot(0, [&] {
            person.Activate();
            script();
            desktop.EndEventLoop();
        });
        desktop.RunEventLoop();
    }

  private:
    QtWidgets widgets;
    QtDesktop desktop{widgets};
    QtPerson person{widgets};
};

// Answers the questions that open, in turn.
class QtQuestions {
  public:
    using Script = std::function<void()>;

    QtQuestions() { widgets.CreateWindow({100, 100, 530, 680}); }
    Dialogs& Seam() { return dialogs; }
    void Use(const Script& script) {
        desktop.ShowWindow();
        QTimer::singleShot(0, [&] {
            script();
            desktop.EndEventLoop();
        });
        desktop.RunEventLoop();
    }
    void NextAlert(AlertHit hit, Script meanwhile) { next = {hit, std::move(meanwhile)}; }
    void NextChooser(const std::optional<std::string>& path) { dialogs.chosen = path; }

  private:
    class Answered : public QtDialogs {
      public:
        Answered(QtWidgets& qtWidgets, const AlertAnswer& nextAnswer)
            : QtDialogs(qtWidgets), answer(nextAnswer) {}
        std::optional<std::string> chosen;

        int RunAlert(const AlertRequest& request) override {
            WhenAlertOpens([this, &request](QMessageBox& box) {
                if (answer.meanwhile) {
                    answer.meanwhile();
                }
                HitAlert(box, request, answer.hit);
            });
            return QtDialogs::RunAlert(request);
        }

        std::int32_t RunFileChooser(bool save, const std::string& proposedName,
                                    const std::string& typeIdentifier, std::string& path) override {
            QTimer::singleShot(0, qApp, [this] {
                auto* dialog = qobject_cast<QFileDialog*>(QApplication::activeModalWidget());
                ASSERT_NE(dialog, nullptr) << "no file chooser is shown";
                EXPECT_TRUE(QTest::qWaitForWindowActive(dialog));
                if (!chosen) {
                    QTest::keyClick(dialog->windowHandle(), Qt::Key_Escape);
                    return;
                }
                auto* name = dialog->findChild<QLineEdit*>("fileNameEdit");
                name->clear();
                QTest::keyClicks(name, QString::fromStdString(*chosen));
                QTest::keyClick(name, Qt::Key_Return);
            });
            return QtDialogs::RunFileChooser(save, proposedName, typeIdentifier, path);
        }

      private:
        const AlertAnswer& answer;
    };

    QtWidgets widgets;
    QtDesktop desktop{widgets};
    AlertAnswer next;
    Answered dialogs{widgets, next};
};

class QtDesk {
  public:
    QtDesk() { widgets.CreateWindow({100, 100, 530, 680}); }
    Desktop& Seam() { return desktop; }
    // One after the other, and none after the loop has ended: those wait for its next run.
    void Post(const std::function<void()>& script) {
        QMetaObject::invokeMethod(qApp, script, Qt::QueuedConnection);
    }
    bool IsWindowVisible() const { return widgets.Window()->isVisible(); }

  private:
    QtWidgets widgets;
    QtDesktop desktop{widgets};
};

}  // namespace

INSTANTIATE_TYPED_TEST_SUITE_P(Qt, WidgetsContract, QtWindow);
INSTANTIATE_TYPED_TEST_SUITE_P(Qt, DialogsContract, QtQuestions);
INSTANTIATE_TYPED_TEST_SUITE_P(Qt, DesktopContract, QtDesk);

}  // namespace vexil
