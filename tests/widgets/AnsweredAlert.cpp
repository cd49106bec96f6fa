#include "tests/widgets/AnsweredAlert.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QMessageBox>
#include <QPushButton>
#include <QTest>
#include <QTimer>

namespace vexil {

void WhenAlertOpens(const std::function<void(QMessageBox&)>& answer) {
    QTimer::singleShot(0, qApp, [answer] {
        auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
        ASSERT_NE(box, nullptr) << "no alert is shown";
        EXPECT_TRUE(QTest::qWaitForWindowActive(box));
        answer(*box);
    });
}

void HitAlert(QMessageBox& box, const AlertRequest& request, AlertHit hit) {
    if (hit == AlertHit::Return || hit == AlertHit::Escape) {
        QTest::keyClick(box.windowHandle(), hit == AlertHit::Return ? Qt::Key_Return : Qt::Key_Escape);
        return;
    }
    const AlertButton& wanted = hit == AlertHit::Default  ? request.defaultButton
                                : hit == AlertHit::Cancel ? request.cancelButton
                                                          : request.otherButton;
    for (QAbstractButton* button : box.buttons()) {
        const bool isWanted = wanted.kind == AlertButton::Kind::Titled
                                  ? button->property("title").toString().toStdString() == wanted.title
                                  : box.buttonRole(button) == QMessageBox::AcceptRole;
        if (!isWanted) {
            continue;
        }
        QTest::mouseClick(box.windowHandle(), Qt::LeftButton, {},
                          button->mapTo(&box, button->rect().center()));
        return;
    }
    ADD_FAILURE() << "no button of that title";
    box.close();
}

}  // namespace vexil
