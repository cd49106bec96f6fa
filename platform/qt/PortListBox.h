// The list of ports: rows of text, exactly one of them selected.
#pragma once

#include <QListWidget>

#include "client/PortMarks.h"
#include "platform/qt/QtControl.h"
#include "platform/qt/Reporter.h"

namespace vexil {

// A row is selected by pressing the mouse button on it, by dragging there, and by the Up and Down keys. No
// other key moves the selection, and no modifier extends it or takes it away. A press is a control hit at
// once; so is the end of a drag on another row, and a row chosen by assistive technology. A key is a key
// event. Control with Page Up and Page Down is, anywhere in the window, a press on the row before and after.
class PortListBox : public QListWidget, public QtControl {
  public:
    PortListBox(const Reporter& listReporter, int rows, int rowHeight, QWidget* parent);

    QWidget& Widget() override { return *this; }

    // Harmless when there is no such row.
    void SetRowText(int row, const QString& text);
    int SelectedRow() const { return currentRow(); }
    void SelectRow(int row);
    // Marks beside the text of each row; tips and assistive technology say the same in words.
    void SetMarks(const PortMarks::Marks& marksOfRows);

    void keyboardSearch(const QString& search) override;

  protected:
    bool event(QEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void mouseDoubleClickEvent(QMouseEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;

  private:
    int RowAt(const QPoint& point) const;
    void EndDrag();
    void ChooseNeighbour(int distance);
    void SelectionChanged();

    Reporter reporter;
    PortMarks::Marks marks;
    int selectingRow = 0;  // inside SelectRow
    int selectedRow = 0;   // what SelectRow selected last
    int reportedRow = -1;  // of a drag: the row of the last control hit; -1: no drag
};

}  // namespace vexil
