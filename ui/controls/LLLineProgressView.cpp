#include "ui/controls/LLLineProgressView.h"

#include <QAccessible>
#include <QAccessibleValueInterface>
#include <QAccessibleWidget>
#include <QLocale>
#include <QPainter>
#include <QPainterPath>

#include <cmath>

namespace {

constexpr double kDefaultHeight = 6.0;
// Values above this fill no more, whatever the maximum.
constexpr double kValueCap = 100.0;

class LineProgressAccessible final : public QAccessibleWidget, public QAccessibleValueInterface {
public:
    explicit LineProgressAccessible(QWidget *widget)
        : QAccessibleWidget(widget, QAccessible::ProgressBar) {}

    void *interface_cast(QAccessible::InterfaceType type) override {
        if (type == QAccessible::ValueInterface)
            return static_cast<QAccessibleValueInterface *>(this);
        return QAccessibleWidget::interface_cast(type);
    }

    QString text(QAccessible::Text t) const override {
        if (t == QAccessible::Value)
            return QLocale().toString(qRound(view()->displayedPercent())) + QLatin1Char('%');
        return QAccessibleWidget::text(t);
    }

    QVariant currentValue() const override { return view()->displayedPercent(); }
    // The bar shows a picture of a value, not one a reader could set.
    void setCurrentValue(const QVariant &) override {}
    QVariant maximumValue() const override { return 100.0; }
    QVariant minimumValue() const override { return 0.0; }
    QVariant minimumStepSize() const override { return 1.0; }

private:
    const LLLineProgressView *view() const {
        return static_cast<const LLLineProgressView *>(widget());
    }
};

QAccessibleInterface *accessibleFactory(const QString &className, QObject *object) {
    if (className == QLatin1String("LLLineProgressView") && object && object->isWidgetType())
        return new LineProgressAccessible(static_cast<QWidget *>(object));
    return nullptr;
}

} // namespace

LLLineProgressView::LLLineProgressView(QWidget *parent)
    : LLBaseProgressView(parent) {
    static const bool factoryInstalled = (QAccessible::installFactory(accessibleFactory), true);
    Q_UNUSED(factoryInstalled);
    initConfig();
}

void LLLineProgressView::initConfig() {
    m_height = height() == 0 ? kDefaultHeight : height();
    setProgressValue(0.0);
}

void LLLineProgressView::setProgressValue(double value) {
    m_fraction = static_cast<float>(qMin(value, kValueCap) / maxProgressValue());
    updateProgressRect();
    if (QAccessible::isActive()) {
        QAccessibleValueChangeEvent changed(this, displayedPercent());
        QAccessible::updateAccessibility(&changed);
    }
}

void LLLineProgressView::setBackgroundColor(const QColor &color) {
    LLBaseProgressView::setBackgroundColor(color);
    update();
}

void LLLineProgressView::setProgressColor(const QColor &color) {
    LLBaseProgressView::setProgressColor(color);
    update();
}

double LLLineProgressView::displayedPercent() const {
    if (!std::isfinite(m_fraction))
        return m_fraction > 0 ? 100.0 : 0.0;
    // The fraction is kept at float precision; readers get hundredths, not its noise.
    return std::round(qBound(0.0, m_fraction * 100.0, 100.0) * 100.0) / 100.0;
}

void LLLineProgressView::updateProgressRect() {
    m_progressRect = QRectF(0, 0, width() * m_fraction, height());
    update();
}

void LLLineProgressView::resizeEvent(QResizeEvent *event) {
    updateProgressRect();
    LLBaseProgressView::resizeEvent(event);
}

void LLLineProgressView::paintEvent(QPaintEvent *) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QRectF bounds = rect();
    const double radius = bounds.height() * 0.5;
    QPainterPath track;
    track.addRoundedRect(bounds, radius, radius);
    painter.fillPath(track, backgroundColor());
    // A negative value leaves a negative width, and a zero maximum no finite one: nothing to
    // fill then.
    if (!(m_progressRect.width() > 0))
        return;
    QPainterPath bar;
    bar.addRoundedRect(QRectF(0, 0, qMin(m_progressRect.width(), bounds.width()), bounds.height()),
                       radius, radius);
    painter.fillPath(bar.intersected(track), progressColor());
}
