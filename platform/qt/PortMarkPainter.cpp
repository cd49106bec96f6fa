#include "platform/qt/PortMarkPainter.h"

#include <QPainter>

#include "platform/qt/Shades.h"

namespace vexil {

namespace {

// Pixels.
constexpr int kTroubleWidth = 2;
constexpr int kArrowWidth = 5;
constexpr int kArrowHeight = 7;
constexpr int kMarkGap = 3;
constexpr int kPlayingHeight = 2;

// `tip`: -1: to the left, 1: to the right.
QPolygonF Arrow(const QRectF& place, int tip) {
    const double base = tip < 0 ? place.right() : place.left();
    const double point = tip < 0 ? place.left() : place.right();
    return QPolygonF({{base, place.top()}, {point, place.center().y()}, {base, place.bottom()}});
}

}  // namespace

void PortMarkPainter::paint(QPainter* painter, const QStyleOptionViewItem& option,
                            const QModelIndex& index) const {
    QStyledItemDelegate::paint(painter, option, index);
    const PortMark& mark = marks[static_cast<std::size_t>(index.row())];
    if (mark == PortMark()) {
        return;
    }
    const bool isSelected = (option.state & QStyle::State_Selected) != 0;
    const QColor text = option.palette.color(isSelected ? QPalette::HighlightedText : QPalette::Text);
    QPalette ground = option.palette;
    ground.setColor(QPalette::Window,
                    option.palette.color(isSelected ? QPalette::Highlight : QPalette::Base));
    const QRect row = option.rect;
    painter->save();
    painter->setRenderHint(QPainter::Antialiasing);
    if (mark.trouble) {
        painter->fillRect(QRect(row.left(), row.top() + 1, kTroubleWidth, row.height() - 2),
                          TroubleColour(ground));
    }
    const QColor colour = mark.playing && !isSelected ? PlayingColour(ground) : text;
    painter->setPen(QPen(colour, 1));
    painter->setBrush(mark.connected ? QBrush(colour) : QBrush(Qt::NoBrush));
    const double top = row.top() + (row.height() - kPlayingHeight - kArrowHeight) / 2.0;
    const double right = row.right() - 1.5;
    const QRectF outPlace(right - kArrowWidth, top, kArrowWidth, kArrowHeight);
    const QRectF inPlace = outPlace.translated(-kArrowWidth - kMarkGap, 0);
    if (mark.pipe) {
        painter->drawEllipse(QRectF(inPlace.left() + 3, top, kArrowHeight, kArrowHeight));
    }
    if (mark.in) {
        painter->drawPolygon(Arrow(inPlace, -1));
    }
    if (mark.out) {
        painter->drawPolygon(Arrow(outPlace, 1));
    }
    if (mark.playing) {
        painter->fillRect(QRectF(inPlace.left(), row.bottom() - kPlayingHeight,
                                 outPlace.right() - inPlace.left(), kPlayingHeight),
                          colour);
    }
    painter->restore();
}

}  // namespace vexil
