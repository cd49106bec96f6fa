// What edit texts and combo boxes have in common: every change of the text that a person makes reaches the
// panel exactly once, and always after a control hit of that very field.
#pragma once

#include <functional>

#include <QKeyEvent>
#include <QLineEdit>

#include "platform/qt/Reporter.h"

namespace vexil {

// The field of one kind that reported a control hit last. The panel stores typed text under that one.
struct LastField {
    int control = -1;
};

class FieldEvents {
  public:
    // Watches `lineEdit`, which must outlive this object, as `lastOfKind`, shared by all fields of the kind,
    // must.
    FieldEvents(const Reporter& fieldReporter, LastField& lastOfKind, QLineEdit& lineEdit);
    FieldEvents(const FieldEvents&) = delete;
    FieldEvents& operator=(const FieldEvents&) = delete;

    void FocusGained();

    // Delivers a key press; `act` lets the widget take it and returns the result of its event function.
    // Returns what the widget's event function is to return.
    bool Key(QKeyEvent& key, const std::function<bool()>& act);
    // While the widget takes a key, what changes in it belongs to that key.
    bool IsTakingKey() const { return takingKey > 0; }

    // Makes changes of the program's own, which raise no event.
    void Quietly(const std::function<void()>& change);

    // An item was picked: delivered instead of the change of text that came with it.
    void ItemPicked(int index);

  private:
    void HitUnlessLast();
    void ReportChange();
    void TextEdited();
    void TextChanged();

    Reporter reporter;
    LastField& lastField;
    QLineEdit& line;
    int takingKey = 0;
    int quiet = 0;
    bool editedReported = false;  // the text change that follows is reported already
    QString knownText;            // as it was before a change that is not to be
    bool changePending = false;   // a change by other means than editing waits to be reported
};

}  // namespace vexil
