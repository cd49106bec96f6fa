// A field whose text can also be picked from a list. The list is changed by the program alone, and changing
// it leaves the typed text.
#pragma once

#include <functional>

#include <QComboBox>

#include "platform/qt/FieldEvents.h"
#include "platform/qt/QtControl.h"

namespace vexil {

class ComboBox : public QComboBox, public QtControl {
  public:
    ComboBox(const Reporter& reporter, LastField& lastField, QWidget* parent);

    QWidget& Widget() override { return *this; }
    bool ReadText(QString& text) const override;
    void WriteText(const QString& text) override;

    // The item is PickedText of this text: what is picked is what the list shows.
    void AppendItem(const QString& text);
    // Harmless when there is no such item.
    void RemoveItem(int index);

    void showPopup() override;

  protected:
    bool event(QEvent* event) override;
    bool eventFilter(QObject* watched, QEvent* event) override;
    void wheelEvent(QWheelEvent* event) override;

  private:
    void KeepingText(const std::function<void()>& change);
    void MakeTextCurrent();

    FieldEvents fieldEvents;
};

}  // namespace vexil
