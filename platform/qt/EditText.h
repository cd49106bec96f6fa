// A field for one line of text.
#pragma once

#include <QLineEdit>

#include "platform/qt/FieldEvents.h"
#include "platform/qt/QtControl.h"

namespace vexil {

class EditText : public QLineEdit, public QtControl {
  public:
    EditText(const Reporter& reporter, LastField& lastField, QWidget* parent);

    QWidget& Widget() override { return *this; }
    bool ReadText(QString& read) const override;
    void WriteText(const QString& newText) override;

  protected:
    bool event(QEvent* event) override;

  private:
    FieldEvents fieldEvents;
};

}  // namespace vexil
