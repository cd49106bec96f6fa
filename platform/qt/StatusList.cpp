#include "platform/qt/StatusList.h"

#include <utility>

#include <QDialogButtonBox>
#include <QGridLayout>
#include <QInputDialog>
#include <QLabel>
#include <QPainter>
#include <QPushButton>
#include <QVBoxLayout>

#include "platform/qt/FieldText.h"
#include "platform/qt/StatusLine.h"

namespace vexil {

namespace {

constexpr int kWidth = 520;
constexpr int kSecretLength = 8;

class WeightMark : public QWidget {
  public:
    WeightMark(Sentence::Weight itsWeight, QWidget* parent) : QWidget(parent), weight(itsWeight) {
        setFixedSize(16, 18);
    }

  protected:
    void paintEvent(QPaintEvent* /*event*/) override {
        QPainter painter(this);
        DrawWeight(painter, weight, rect(), palette());
    }

  private:
    const Sentence::Weight weight;
};

QLabel* TextLabel(const std::string& text, QWidget* parent) {
    auto* label = new QLabel(DecodeText(text.c_str()), parent);
    label->setTextFormat(Qt::PlainText);
    label->setWordWrap(true);
    label->setTextInteractionFlags(Qt::TextSelectableByMouse);
    return label;
}

const char* WeightName(Sentence::Weight weight) {
    return weight == Sentence::Weight::Trouble ? "Trouble: " : "";
}

}  // namespace

StatusList::StatusList(QWidget* window, Ask askDriver) : QDialog(window), ask(std::move(askDriver)) {
    setObjectName("status-list");
    setWindowTitle("How things stand");
    setLayoutDirection(Qt::LeftToRight);
    setAttribute(Qt::WA_DeleteOnClose);
    layoutOfAll = new QVBoxLayout(this);
    layoutOfAll->setSizeConstraint(QLayout::SetFixedSize);
    resultLabel = TextLabel("", this);
    resultLabel->setFixedWidth(kWidth);
    resultLabel->hide();
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Close, this);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::close);
    layoutOfAll->addWidget(resultLabel);
    layoutOfAll->addWidget(buttons);
}

void StatusList::Show(const std::vector<Sentence>& sentences) {
    if (rows != nullptr && sentences == shown) {
        return;
    }
    shown = sentences;
    if (rows != nullptr) {
        layoutOfAll->removeWidget(rows);
        rows->hide();  // until it is deleted, from the event loop: one of its buttons may have called
        rows->deleteLater();
    }
    rows = new QWidget(this);
    auto* grid = new QGridLayout(rows);
    grid->setContentsMargins(0, 0, 0, 0);
    grid->setColumnStretch(1, 1);
    layoutOfAll->insertWidget(0, rows);
    rows->setFixedWidth(kWidth);
    for (const Sentence& sentence : shown) {
        AddRow(sentence);
    }
    rows->show();
}

void StatusList::AddRow(const Sentence& sentence) {
    auto* grid = static_cast<QGridLayout*>(rows->layout());
    const int row = grid->rowCount();
    grid->addWidget(new WeightMark(sentence.weight, rows), row, 0, Qt::AlignTop);
    QLabel* text = TextLabel(sentence.text + ".", rows);
    QFont bold = text->font();
    bold.setBold(true);
    text->setFont(bold);
    text->setAccessibleName(DecodeText((WeightName(sentence.weight) + sentence.text).c_str()));
    text->setAccessibleDescription(DecodeText(sentence.advice.c_str()));
    grid->addWidget(text, row, 1);
    if (!sentence.advice.empty()) {
        grid->addWidget(TextLabel(sentence.advice, rows), row + 1, 1);
    }
    if (sentence.remedy) {
        const Remedy remedy = *sentence.remedy;
        auto* button = new QPushButton(DecodeText(remedy.button.c_str()), rows);
        button->setAutoDefault(false);
        button->setAccessibleDescription(text->text());
        connect(button, &QPushButton::clicked, this, [this, remedy] { Act(remedy); });
        grid->addWidget(button, row, 2, sentence.advice.empty() ? 1 : 2, 1, Qt::AlignTop);
    }
}

void StatusList::Act(const Remedy& remedy) {
    std::vector<std::string> words = remedy.words;
    if (remedy.asksSecret) {
        bool isEntered = false;
        const QString secret = QInputDialog::getText(
            this, windowTitle(), QString("Secret, at least %1 characters:").arg(kSecretLength),
            QLineEdit::Password, "", &isEntered);
        if (!isEntered || secret.isEmpty()) {
            return;
        }
        words.push_back(secret.toStdString());
    }
    ask(words);
}

void StatusList::ShowResult(const QString& result) {
    resultLabel->setText(result);
    resultLabel->setVisible(!result.isEmpty());
}

}  // namespace vexil
