#include "ui/mainwindow/NTSpinningIndicator.h"

#include <QAccessibleWidget>
#include <QPainter>
#include <QTimerEvent>

using namespace Qt::StringLiterals;

namespace {

constexpr int kSpokes = 12;
constexpr int kStepMilliseconds = 80;

class AccessibleSpinningIndicator : public QAccessibleWidget {
public:
    explicit AccessibleSpinningIndicator(QWidget *widget)
        : QAccessibleWidget(widget, QAccessible::Animation) {}

    QAccessible::State state() const override {
        QAccessible::State state = QAccessibleWidget::state();
        state.busy = static_cast<NTSpinningIndicator *>(widget())->isAnimating();
        return state;
    }
};

QAccessibleInterface *accessibleFactory(const QString &className, QObject *object) {
    if (className == u"NTSpinningIndicator"_s && object && object->isWidgetType())
        return new AccessibleSpinningIndicator(static_cast<QWidget *>(object));
    return nullptr;
}

} // namespace

NTSpinningIndicator::NTSpinningIndicator(QWidget *parent)
    : QWidget(parent) {
    static const bool factoryInstalled = (QAccessible::installFactory(accessibleFactory), true);
    Q_UNUSED(factoryInstalled);
    setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
}

QSize NTSpinningIndicator::sizeHint() const {
    return {32, 32};
}

void NTSpinningIndicator::startAnimation() {
    m_animating = true;
    updateTimer();
}

void NTSpinningIndicator::stopAnimation() {
    m_animating = false;
    updateTimer();
}

void NTSpinningIndicator::updateTimer() {
    if (m_animating && isVisible())
        m_timer.start(kStepMilliseconds, this);
    else
        m_timer.stop();
    update();
}

void NTSpinningIndicator::showEvent(QShowEvent *event) {
    QWidget::showEvent(event);
    updateTimer();
}

void NTSpinningIndicator::hideEvent(QHideEvent *event) {
    QWidget::hideEvent(event);
    updateTimer();
}

void NTSpinningIndicator::timerEvent(QTimerEvent *event) {
    if (event->timerId() != m_timer.timerId()) {
        QWidget::timerEvent(event);
        return;
    }
    m_step = (m_step + 1) % kSpokes;
    update();
}

void NTSpinningIndicator::paintEvent(QPaintEvent *) {
    if (!m_animating)
        return;
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const double side = qMin(width(), height());
    painter.translate(width() / 2.0, height() / 2.0);
    const double outer = side / 2.0;
    const QColor ink = palette().color(QPalette::WindowText);
    QPen pen(ink, side / 11.0, Qt::SolidLine, Qt::RoundCap);
    for (int spoke = 0; spoke < kSpokes; ++spoke) {
        // The spoke the animation has reached is darkest; the ones behind it fade out.
        const int age = (m_step - spoke + kSpokes) % kSpokes;
        QColor colour = ink;
        colour.setAlphaF(1.0 - 0.75 * age / (kSpokes - 1));
        pen.setColor(colour);
        painter.setPen(pen);
        painter.save();
        painter.rotate(360.0 * spoke / kSpokes);
        painter.drawLine(QPointF(0, -outer * 0.5), QPointF(0, -outer + pen.widthF() / 2));
        painter.restore();
    }
}
