#include "ui/mainwindow/NTTruncatingLabel.h"

#include <QPainter>
#include <QStyle>

NTTruncatingLabel::NTTruncatingLabel(QWidget *parent)
    : QLabel(parent) {
    setTextFormat(Qt::PlainText);
}

QSize NTTruncatingLabel::minimumSizeHint() const {
    return {fontMetrics().horizontalAdvance(QChar(0x2026)), QLabel::minimumSizeHint().height()};
}

void NTTruncatingLabel::paintEvent(QPaintEvent *) {
    QPainter painter(this);
    const QRect area = contentsRect();
    const QString shown = fontMetrics().elidedText(text(), Qt::ElideRight, area.width());
    style()->drawItemText(&painter, area, QStyle::visualAlignment(layoutDirection(), alignment()),
                          palette(), isEnabled(), shown, foregroundRole());
}
