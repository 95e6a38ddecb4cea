#include "ui/controls/LLBaseProgressView.h"

#include <QMouseEvent>

namespace {

const QColor kSystemBlue(0, 122, 255);
const QColor kSystemGray(142, 142, 147);

} // namespace

LLBaseProgressView::LLBaseProgressView(QWidget *parent)
    : QWidget(parent) {
    setUp();
}

void LLBaseProgressView::setUp() {
    m_progressColor = kSystemBlue;
    m_backgroundColor = kSystemGray;
    m_maxProgressValue = 100.0;
}

double LLBaseProgressView::valueForPosition(double x) const {
    const double w = width();
    if (x < 0)
        return 0.0;
    if (x >= w)
        return m_maxProgressValue;
    return x * m_maxProgressValue / w;
}

void LLBaseProgressView::mousePressEvent(QMouseEvent *event) {
    if (rect().contains(event->position().toPoint())) {
        m_isMouseDown = true;
        mouseMoveEvent(event);
    }
}

void LLBaseProgressView::mouseMoveEvent(QMouseEvent *event) {
    if (!m_isMouseDown)
        return;
    setProgressValue(valueForPosition(event->position().x()));
    repaint();
}
