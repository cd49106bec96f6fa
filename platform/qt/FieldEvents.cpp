#include "platform/qt/FieldEvents.h"

#include <climits>

#include <QValidator>

#include "platform/qt/FieldText.h"
#include "platform/qt/KeyEvents.h"

namespace vexil {

namespace {

// A line edit draws line breaks as blanks but keeps them in its text; as a validator this takes them out,
// whichever way they came.
class NoLineBreaks : public QValidator {
  public:
    explicit NoLineBreaks(QObject* parent) : QValidator(parent) {}

    State validate(QString& text, int& cursor) const override {
        const QString clean = WithoutLineBreaks(text, cursor);
        if (clean != text) {
            text = clean;
        }
        return Acceptable;
    }
};

class Raised {
  public:
    explicit Raised(int& counter) : level(counter) { ++level; }
    ~Raised() { --level; }
    Raised(const Raised&) = delete;
    Raised& operator=(const Raised&) = delete;

  private:
    int& level;
};

}  // namespace

FieldEvents::FieldEvents(const Reporter& fieldReporter, LastField& lastOfKind, QLineEdit& lineEdit)
    : reporter(fieldReporter), lastField(lastOfKind), line(lineEdit) {
    // The toolkit's own limit of 32767 would cut a longer stored text at the first edit.
    line.setMaxLength(INT_MAX);
    line.setValidator(new NoLineBreaks(&line));
    QObject::connect(&line, &QLineEdit::textEdited, &line, [this] { TextEdited(); });
    QObject::connect(&line, &QLineEdit::textChanged, &line, [this] { TextChanged(); });
}

void FieldEvents::FocusGained() {
    lastField.control = reporter.Control();
    reporter.Hit();
}

bool FieldEvents::Key(QKeyEvent& key, const std::function<bool()>& act) {
    HitUnlessLast();
    bool acted = false;
    bool result = true;
    reporter.Deliver(KeyPanelEvent(key), [&] {
        const Raised raised(takingKey);
        acted = true;
        result = act();
        return kNoErr;
    });
    if (!acted) {
        key.accept();  // swallowed: it must not travel on to the window either
    }
    return result;
}

void FieldEvents::Quietly(const std::function<void()>& change) {
    const Raised raised(quiet);
    change();
}

void FieldEvents::ItemPicked(int index) {
    changePending = false;
    HitUnlessLast();
    PanelEvent event{EventKind::ListItemSelected};
    event.itemIndex = index;
    reporter.Deliver(event, NothingNext);
}

// Text can change without the focus (a drop, assistive technology), and the panel stores it under the field
// that was hit last.
void FieldEvents::HitUnlessLast() {
    if (lastField.control != reporter.Control()) {
        FocusGained();
    }
}

void FieldEvents::ReportChange() {
    changePending = false;
    HitUnlessLast();
    PanelEvent event{EventKind::RawKeyDown};
    event.hasCharacter = true;
    reporter.Deliver(event, NothingNext);
}

// Paste, drop, undo, input method: the toolkit says that a person edited.
void FieldEvents::TextEdited() {
    if (takingKey > 0 || quiet > 0) {
        return;
    }
    editedReported = true;
    ReportChange();
}

// Every change. Those that are neither the program's nor reported above come from the pick of an item, which
// is reported as such right afterwards, or from assistive technology, which sets the text as a program does.
void FieldEvents::TextChanged() {
    if (!line.isEnabled() && quiet == 0) {
        Quietly([this] { line.setText(knownText); });  // assistive technology sets disabled fields too
        return;
    }
    knownText = line.text();
    if (takingKey > 0 || quiet > 0) {
        return;
    }
    if (editedReported) {
        editedReported = false;
        return;
    }
    changePending = true;
    QMetaObject::invokeMethod(
        &line,
        [this] {
            if (changePending) {
                ReportChange();
            }
        },
        Qt::QueuedConnection);
}

}  // namespace vexil
