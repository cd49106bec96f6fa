#include "platform/qt/PortListBox.h"

#include <algorithm>
#include <utility>

#include <QGuiApplication>
#include <QInputMethod>
#include <QItemSelectionModel>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QShortcut>

#include "platform/qt/FieldText.h"
#include "platform/qt/KeyEvents.h"
#include "platform/qt/PortMarkPainter.h"

namespace vexil {

PortListBox::PortListBox(const Reporter& listReporter, int rows, int rowHeight, QWidget* parent)
    : QListWidget(parent), reporter(listReporter) {
    setUniformItemSizes(true);
    setSelectionMode(QAbstractItemView::SingleSelection);
    setEditTriggers(QAbstractItemView::NoEditTriggers);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setTabKeyNavigation(false);
    // The window draws the frame around the list, so that the rows fill it exactly.
    setFrameShape(QFrame::NoFrame);
    // A move without a button tells of a release that went elsewhere.
    setMouseTracking(true);
    // As wide as the list has room for.
    const QSize cell(1, rowHeight);
    for (int row = 0; row < rows; ++row) {
        auto* added = new QListWidgetItem;
        added->setSizeHint(cell);
        addItem(added);
    }
    SelectRow(0);
    for (const auto& [key, distance] : {std::pair{Qt::Key_PageUp, -1}, std::pair{Qt::Key_PageDown, 1}}) {
        auto* shortcut = new QShortcut(QKeySequence(Qt::CTRL | key), this);
        connect(shortcut, &QShortcut::activated, this, [this, step = distance] { ChooseNeighbour(step); });
    }
    connect(selectionModel(), &QItemSelectionModel::selectionChanged, this, [this] { SelectionChanged(); });
}

void PortListBox::SetRowText(int row, const QString& text) {
    if (QListWidgetItem* const found = item(row)) {
        found->setText(text);
    }
}

void PortListBox::SelectRow(int row) {
    if (row < 0 || row >= count()) {
        return;
    }
    ++selectingRow;
    selectedRow = row;
    setCurrentRow(row, QItemSelectionModel::ClearAndSelect);
    --selectingRow;
}

void PortListBox::SetMarks(const PortMarks::Marks& marksOfRows) {
    // Until there are any, rows are drawn as the toolkit draws them.
    if (marks != marksOfRows && dynamic_cast<PortMarkPainter*>(itemDelegate()) == nullptr) {
        setItemDelegate(new PortMarkPainter(marks, this));
    }
    for (int row = 0; row < std::min(count(), static_cast<int>(marks.size())); ++row) {
        const auto index = static_cast<std::size_t>(row);
        const bool isSame = marks[index] == marksOfRows[index];
        const bool hasSameWords = marks[index].words == marksOfRows[index].words;
        marks[index] = marksOfRows[index];
        QListWidgetItem* const changed = item(row);
        if (!hasSameWords) {
            const QString words = DecodeText(marks[index].words.c_str());
            changed->setToolTip(words);
            changed->setData(Qt::AccessibleDescriptionRole, QString(words).replace('\n', ' '));
        } else if (!isSame) {
            viewport()->update(visualItemRect(changed));
        }
    }
}

// No selection by typing.
void PortListBox::keyboardSearch(const QString& /*search*/) {}

bool PortListBox::event(QEvent* event) {
    if (event->type() == QEvent::KeyPress) {
        auto& key = static_cast<QKeyEvent&>(*event);
        if (IsPanelKey(key)) {
            reporter.Deliver(KeyPanelEvent(key), [&] {
                keyPressEvent(&key);
                return kNoErr;
            });
            key.accept();  // nothing travels on from here: keys move this list or are swallowed
            return true;
        }
    }
    if (event->type() == QEvent::WindowDeactivate || event->type() == QEvent::WindowBlocked) {
        EndDrag();  // the release may go elsewhere
    }
    return QListWidget::event(event);
}

void PortListBox::keyPressEvent(QKeyEvent* event) {
    if (event->key() == Qt::Key_Up) {
        SelectRow(std::max(SelectedRow() - 1, 0));
    } else if (event->key() == Qt::Key_Down) {
        SelectRow(std::min(SelectedRow() + 1, count() - 1));
    } else {
        event->ignore();
    }
}

int PortListBox::RowAt(const QPoint& point) const {
    // Beyond the ends of the list a drag scrolls row by row.
    const int y = std::clamp(point.y(), -1, viewport()->height());
    if (y < 0) {
        return std::max(SelectedRow() - 1, 0);
    }
    if (y == viewport()->height()) {
        return std::min(SelectedRow() + 1, count() - 1);
    }
    const int row = indexAt(QPoint(0, y)).row();
    return row < 0 ? SelectedRow() : row;
}

void PortListBox::mousePressEvent(QMouseEvent* event) {
    if (event->button() != Qt::LeftButton) {
        return;
    }
    SelectRow(RowAt(event->position().toPoint()));
    reportedRow = SelectedRow();
    reporter.Hit();
}

void PortListBox::mouseMoveEvent(QMouseEvent* event) {
    if (reportedRow < 0) {
        return;
    }
    if ((event->buttons() & Qt::LeftButton) != 0) {
        SelectRow(RowAt(event->position().toPoint()));
    } else {
        EndDrag();  // the release went elsewhere
    }
}

void PortListBox::mouseReleaseEvent(QMouseEvent* event) {
    if (event->button() == Qt::LeftButton) {
        EndDrag();
    }
}

void PortListBox::mouseDoubleClickEvent(QMouseEvent* event) {
    mousePressEvent(event);
}

void PortListBox::EndDrag() {
    const bool moved = reportedRow >= 0 && reportedRow != SelectedRow();
    reportedRow = -1;
    if (moved) {
        reporter.Hit();
    }
}

void PortListBox::ChooseNeighbour(int distance) {
    const int row = std::clamp(SelectedRow() + distance, 0, count() - 1);
    if (row == SelectedRow()) {
        return;
    }
    // What an input method is still composing belongs to the port before.
    QGuiApplication::inputMethod()->commit();
    SelectRow(row);
    reporter.Hit();
}

// Assistive technology selects and deselects in the model itself.
void PortListBox::SelectionChanged() {
    if (selectingRow > 0 || count() == 0) {
        return;
    }
    const QModelIndexList selected = selectionModel()->selectedIndexes();
    const int row = selected.isEmpty() ? selectedRow : selected.constLast().row();
    const bool changed = row != selectedRow;
    SelectRow(row);
    if (changed) {
        reporter.Hit();
    }
}

}  // namespace vexil
