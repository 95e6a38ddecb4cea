#include "ui/mainwindow/NTBackGroundView.h"

#include <QPaintEvent>
#include <QPainter>

NTBackGroundView::NTBackGroundView(QWidget *parent)
    : QWidget(parent) {}

void NTBackGroundView::setBackgroundColor(const QColor &color) {
    m_backgroundColor = color;
    update();
}

void NTBackGroundView::setCornerRadius(double radius) {
    m_cornerRadius = radius;
    update();
}

void NTBackGroundView::paintEvent(QPaintEvent *event) {
    QPainter painter(this);
    if (m_cornerRadius <= 0.0) {
        painter.fillRect(event->rect(), m_backgroundColor);
        return;
    }
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(m_backgroundColor);
    painter.drawRoundedRect(QRectF(rect()), m_cornerRadius, m_cornerRadius);
}
