#include "ui/mainwindow/NTBackGroundView.h"

#include <QPaintEvent>
#include <QPainter>

NTBackGroundView::NTBackGroundView(QWidget *parent)
    : QWidget(parent) {}

void NTBackGroundView::setBackgroundColor(const QColor &color) {
    m_backgroundColor = color;
    update();
}

void NTBackGroundView::paintEvent(QPaintEvent *event) {
    QPainter painter(this);
    painter.fillRect(event->rect(), m_backgroundColor);
}
