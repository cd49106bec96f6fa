// Texts are drawn whole: in fonts with more room above and below their letters than the places were measured
// for, and numbers out of the usual range.
#include <QCheckBox>
#include <QFontDatabase>
#include <QGroupBox>
#include <QImage>
#include <QLabel>
#include <QPainter>
#include <QPushButton>
#include <QResizeEvent>

#include "tests/widgets/WindowFixture.h"

namespace vexil {
namespace {

// The ground that is given to what is drawn here; texts are black.
constexpr QRgb kGround = 0xffffffff;
// Darker is ink.
constexpr int kInkLightness = 160;

QRect InkOf(const QImage& picture) {
    QRect ink;
    for (int y = 0; y < picture.height(); ++y) {
        for (int x = 0; x < picture.width(); ++x) {
            if (picture.pixelColor(x, y).lightness() < kInkLightness) {
                ink |= QRect(x, y, 1, 1);
            }
        }
    }
    return ink;
}

// The text alone, with all the room that it needs.
QImage Drawn(const QString& text, const QFont& font) {
    QImage picture(400, 80, QImage::Format_RGB32);
    picture.fill(kGround);
    QPainter painter(&picture);
    painter.setFont(font);
    painter.drawText(10, 40, text);
    return picture;
}

class TextFit : public WindowFixture {
  protected:
    // As a person sees it, without the box of a check box.
    QImage Picture(QWidget& widget) {
        QPalette plain(Qt::white);
        plain.setColor(QPalette::All, QPalette::WindowText, Qt::black);
        plain.setColor(QPalette::All, QPalette::Window, QColor(kGround));
        widget.setPalette(plain);
        widget.setAutoFillBackground(true);
        const QImage picture = widget.grab().toImage();
        constexpr int kIndicator = 20;
        return qobject_cast<QCheckBox*>(&widget) == nullptr
                   ? picture
                   : picture.copy(kIndicator, 0, picture.width() - kIndicator, picture.height());
    }
    QImage PictureOf(int control, const char* text) {
        widgets.SetText(control, text);
        return Picture(*person.Find(control));
    }
};

class TextFitInFont : public TextFit, public testing::WithParamInterface<const char*> {};

TEST_P(TextFitInFont, NothingOfATitleIsCutAboveOrBelow) {
    if (!QFontDatabase::hasFamily(GetParam())) {
        GTEST_SKIP() << "this computer has no " << GetParam();
    }
    QFont font(GetParam());
    font.setPixelSize(13);
    person.Window()->setFont(font);
    for (const ControlSpec& spec : kControlTable) {
        QWidget* widget = person.Find(spec.number);
        QString title;
        if (auto* label = qobject_cast<QLabel*>(widget)) {
            title = label->text();
        } else if (auto* box = qobject_cast<QCheckBox*>(widget)) {
            title = box->text();
        }
        if (title.isEmpty()) {
            continue;
        }
        ASSERT_EQ(widget->fontInfo().family(), QString(GetParam()));
        EXPECT_EQ(InkOf(Picture(*widget)).height(), InkOf(Drawn(title, widget->font())).height())
            << title.toStdString();
    }
}

TEST_P(TextFitInFont, TextsOfARowStandOnOneLine) {
    if (!QFontDatabase::hasFamily(GetParam())) {
        GTEST_SKIP() << "this computer has no " << GetParam();
    }
    QFont font(GetParam());
    font.setPixelSize(13);
    person.Window()->setFont(font);
    // No digit hangs below the line. One place is lower than the other.
    const int source = InkOf(PictureOf(kSourcePortNumber, "11")).bottom();
    EXPECT_EQ(InkOf(PictureOf(kTargetPortNumber, "11")).bottom(), source);
    EXPECT_GT(source, 0);
}

INSTANTIATE_TEST_SUITE_P(Fonts, TextFitInFont,
                         testing::Values("DejaVu Sans", "Noto Sans", "Noto Sans CJK JP"),
                         [](const auto& tested) {
                             std::string name = tested.param;
                             std::erase(name, ' ');
                             return name;
                         });

TEST_F(TextFit, LastDigitOfALongNumberIsSeenWhole) {
    for (const auto& [control, number] :
         {std::pair{kSourcePortNumber, "320"}, std::pair{kTargetPortNumber, "320"},
          std::pair{kQuantizationNumber, "429496729.0"}, std::pair{kQuantizationNumber, "1000.0"}}) {
        const QImage picture = PictureOf(control, number);
        const QRect ink = InkOf(picture);
        EXPECT_LT(ink.right(), picture.width() - 1) << number;
        EXPECT_GT(ink.height(), 6) << number;
        std::string other = number;
        other.back() = '1';
        EXPECT_NE(PictureOf(control, other.c_str()), picture) << number;
    }
}

TEST_F(TextFit, DigitsOfANumberThatIsThereFromTheStartKeepTheirDistance) {
    widgets.SetText(kTargetPortNumber, "328");
    QWidget* number = person.Find(kTargetPortNumber);
    QResizeEvent first(number->size(), QSize());
    QApplication::sendEvent(number, &first);
    EXPECT_EQ(number->font().letterSpacing(), 0);
}

TEST_F(TextFit, UsualNumberIsDrawnInItsFullSize) {
    const QFont font = person.Find(kTargetPortNumber)->font();
    EXPECT_EQ(InkOf(PictureOf(kTargetPortNumber, "88")).size(), InkOf(Drawn("88", font)).size());
    EXPECT_EQ(InkOf(PictureOf(kQuantizationNumber, "10.0")).size(), InkOf(Drawn("10.0", font)).size());
}

TEST_F(TextFit, TipsAreLinesOfALengthThatIsReadAtAGlance) {
    for (const ControlSpec& spec : kControlTable) {
        const QString shown = person.Find(spec.number)->toolTip();
        EXPECT_FALSE(Qt::mightBeRichText(shown)) << "would be given room for a line that is not there";
        const QStringList lines = shown.split('\n');
        EXPECT_EQ(lines.join(' ').toStdString(), spec.tip);
        for (const QString& line : lines) {
            EXPECT_LE(line.size(), 75) << line.toStdString();
            EXPECT_GE(line.size(), lines.size() > 1 ? 15 : 1) << line.toStdString();
        }
    }
}

}  // namespace
}  // namespace vexil
