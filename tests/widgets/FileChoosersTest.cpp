// The choosers of settings files as they are seen, and the folder that they open in.
#include <QDir>
#include <QFileDialog>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QStandardPaths>
#include <QTest>
#include <QTimer>

#include "platform/qt/QtDialogs.h"
#include "platform/qt/SettingsFolder.h"
#include "tests/doubles/LogCapture.h"
#include "tests/scenarios/TempFolder.h"
#include "tests/widgets/WindowFixture.h"

namespace vexil {
namespace {

class FileChoosers : public WindowFixture {
  protected:
    // Each test is a session of its own on a desktop that remembers nothing yet.
    FileChoosers() { qputenv("XDG_STATE_HOME", state.Path().c_str()); }

    std::int32_t Choose(bool save, std::string& path, const std::function<void(QFileDialog&)>& answer) {
        QTimer::singleShot(0, person.Window(), [answer] {
            auto* dialog = qobject_cast<QFileDialog*>(QApplication::activeModalWidget());
            ASSERT_NE(dialog, nullptr);
            answer(*dialog);
        });
        return dialogs.RunFileChooser(save, save ? "default.vexil3" : "",
                                      save ? "" : "com.sonavert.vexil3.vexp3", path);
    }
    static void Enter(QFileDialog& dialog, const std::string& name) {
        auto* line = dialog.findChild<QLineEdit*>("fileNameEdit");
        line->setText(QString::fromStdString(name));
        QTest::keyClick(line, Qt::Key_Return);
    }
    QString FolderOfTheNext(bool save) {
        QString folder;
        std::string path;
        Choose(save, path, [&folder](QFileDialog& dialog) {
            folder = dialog.directory().absolutePath();
            dialog.reject();
        });
        return folder;
    }

    TempFolder state;
    QtDialogs dialogs{widgets};
};

TEST_F(FileChoosers, SaveAddsTheSuffixThatATypedNameLacks) {
    const TempFolder folder;
    std::string path;
    EXPECT_EQ(Choose(true, path, [&](QFileDialog& dialog) { Enter(dialog, folder.Path("name")); }), 0);
    EXPECT_EQ(path, folder.Path("name.vexil3"));
}

TEST_F(FileChoosers, SaveProposesTheNameAndAsksBeforeAnExistingFileIsTaken) {
    const TempFolder folder;
    folder.Write("old.vexil3", "kept");
    std::string path = "as it was";
    bool asked = false;
    const std::int32_t status = Choose(true, path, [&](QFileDialog& dialog) {
        EXPECT_EQ(dialog.findChild<QLineEdit*>("fileNameEdit")->text(), "default.vexil3");
        QTimer::singleShot(0, &dialog, [&] {
            auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
            asked = box != nullptr;
            if (asked) {
                box->button(QMessageBox::No)->click();
            }
            dialog.reject();
        });
        Enter(dialog, folder.Path("old.vexil3"));
    });
    EXPECT_TRUE(asked);
    EXPECT_EQ(status, kUserCanceled);
    EXPECT_EQ(path, "as it was");
    EXPECT_EQ(folder.Read("old.vexil3"), "kept");
}

TEST_F(FileChoosers, LoadOffersSettingsFilesAndAllFiles) {
    std::string path;
    Choose(false, path, [](QFileDialog& dialog) {
        EXPECT_EQ(dialog.nameFilters(), (QStringList{"Vexil III settings (*.vexil3)", "All files (*)"}));
        EXPECT_EQ(dialog.fileMode(), QFileDialog::ExistingFile);
        dialog.reject();
    });
}

TEST_F(FileChoosers, OpenInTheDocumentsFolderAtFirst) {
    const QString documents = QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation);
    QDir().mkpath(documents);
    EXPECT_EQ(FolderOfTheNext(false), documents);
    EXPECT_EQ(FolderOfTheNext(true), documents);
}

TEST_F(FileChoosers, OpenWhereAFileWasChosenLast) {
    const TempFolder saved;
    const TempFolder loaded;
    loaded.Write("a.vexil3", "");
    std::string path;
    Choose(true, path, [&](QFileDialog& dialog) { Enter(dialog, saved.Path("a.vexil3")); });
    EXPECT_EQ(FolderOfTheNext(false).toStdString(), saved.Path());
    Choose(false, path, [&](QFileDialog& dialog) { Enter(dialog, loaded.Path("a.vexil3")); });
    EXPECT_EQ(FolderOfTheNext(true).toStdString(), loaded.Path());
    EXPECT_TRUE(QFile::exists(QString::fromStdString(state.Path("vexil3/panel.ini"))));
}

TEST_F(FileChoosers, CancelledChooserLeavesTheFolderAsItIs) {
    const TempFolder saved;
    std::string path;
    Choose(true, path, [&](QFileDialog& dialog) { Enter(dialog, saved.Path("a.vexil3")); });
    Choose(false, path, [&](QFileDialog& dialog) {
        dialog.setDirectory(QDir::rootPath());
        dialog.reject();
    });
    EXPECT_EQ(FolderOfTheNext(true).toStdString(), saved.Path());
}

TEST_F(FileChoosers, FolderThatHasGoneIsNotOpened) {
    {
        const TempFolder saved;
        RememberSettingsFolder(QString::fromStdString(saved.Path()));
        ASSERT_EQ(SettingsFolder().toStdString(), saved.Path());
    }
    QDir().mkpath(QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation));
    EXPECT_EQ(SettingsFolder(), QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation));
}

TEST_F(FileChoosers, FolderThatCannotBeRememberedIsOneLogLine) {
    const TempFolder blocked;
    blocked.Write("vexil3", "a file where the folder would be");
    qputenv("XDG_STATE_HOME", blocked.Path().c_str());
    const LogCapture log;
    RememberSettingsFolder("/");
    EXPECT_EQ(log.Text(),
              "Cannot remember the folder of settings files in " + blocked.Path("vexil3/panel.ini") + ".\n");
}

TEST_F(FileChoosers, FieldHasTheKeyboardFocusAgainAfterwards) {
    person.Click(kOutputName, false);
    std::string path;
    Choose(false, path, [](QFileDialog& dialog) { dialog.reject(); });
    EXPECT_TRUE(QTest::qWaitFor([&] { return person.Find(kOutputName)->hasFocus(); }));
}

}  // namespace
}  // namespace vexil
