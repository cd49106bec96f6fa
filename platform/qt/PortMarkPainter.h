// Draws a row of the list of ports, and behind its text the marks of its port.
#pragma once

#include <QStyledItemDelegate>

#include "client/PortMarks.h"

namespace vexil {

// A bar at the left end: trouble. At the right end an arrow to the left: input; to the right: output; a ring:
// local pipe. They are filled when something is connected, and green above a bar while it plays.
class PortMarkPainter : public QStyledItemDelegate {
  public:
    // `marks` are those of the rows, and must outlive this object.
    PortMarkPainter(const PortMarks::Marks& marksOfRows, QObject* parent)
        : QStyledItemDelegate(parent), marks(marksOfRows) {}

    void paint(QPainter* painter, const QStyleOptionViewItem& option,
               const QModelIndex& index) const override;

  private:
    const PortMarks::Marks& marks;
};

}  // namespace vexil
