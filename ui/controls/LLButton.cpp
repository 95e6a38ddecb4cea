#include "ui/controls/LLButton.h"

#include "ui/controls/LLTextFieldCell.h"

#include <QEnterEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <QPointer>

#include <cmath>

namespace {

const QColor kNormalColor(47, 182, 179);
const QColor kEnterColor(24, 206, 186);
const QColor kDownColor(26, 155, 140);
const QColor kDarkTitle(16, 28, 28);
const QColor kLightTitle(255, 255, 255);
constexpr double kDisabledOpacity = 0.45;
constexpr double kFocusRingWidth = 2.0;
constexpr int kHorizontalPadding = 14;
constexpr int kVerticalPadding = 6;

double relativeLuminance(const QColor &color) {
    const auto channel = [](float value) {
        return value <= 0.03928f ? value / 12.92 : std::pow((value + 0.055) / 1.055, 2.4);
    };
    const QColor rgb = color.toRgb();
    return 0.2126 * channel(rgb.redF()) + 0.7152 * channel(rgb.greenF()) +
           0.0722 * channel(rgb.blueF());
}

double contrast(const QColor &a, const QColor &b) {
    const double la = relativeLuminance(a);
    const double lb = relativeLuminance(b);
    return (qMax(la, lb) + 0.05) / (qMin(la, lb) + 0.05);
}

} // namespace

LLButton::LLButton(QWidget *parent)
    : QPushButton(parent) {
    setup();
}

LLButton::LLButton(const QString &title, QWidget *parent)
    : QPushButton(parent) {
    setup();
    setText(title);
}

void LLButton::setup() {
    m_backgroundColor = kNormalColor;
    m_backgroundEnterColor = kEnterColor;
    m_backgroundDownColor = kDownColor;
    m_cornerRadius = 4.0;
    setText(QString());
    setFlat(true);
    // Enter and leave events come from Qt's hover handling, set up once here.
    setAttribute(Qt::WA_Hover);
    m_layerCornerRadius = m_cornerRadius;
    paintLayer(m_backgroundColor);
}

void LLButton::setTitle(const QString &title, const QColor &color, const QFont &font) {
    m_titleColor = color;
    setFont(font);
    setText(title);
    update();
}

QColor LLButton::titleColor() const {
    return m_titleColor.isValid() ? m_titleColor : readableTitleColor(m_currentColor);
}

QColor LLButton::readableTitleColor(const QColor &background) {
    return contrast(kDarkTitle, background) >= contrast(kLightTitle, background) ? kDarkTitle
                                                                                 : kLightTitle;
}

void LLButton::setBackgroundColorForSate(const QColor &color, int state) {
    switch (state) {
    case 0:
        m_backgroundColor = color;
        paintLayer(color);
        break;
    case 1:
        m_backgroundEnterColor = color;
        break;
    case 2:
        m_backgroundDownColor = color;
        break;
    default:
        break;
    }
}

QColor LLButton::backgroundColorForSate(int state) const {
    switch (state) {
    case 0:
        return m_backgroundColor;
    case 1:
        return m_backgroundEnterColor;
    case 2:
        return m_backgroundDownColor;
    default:
        return {};
    }
}

QRectF LLButton::titleRectForBounds(const QRectF &bounds, const QSizeF &titleSize,
                                    double fontHeight) {
    const double y =
        std::ceil(((bounds.height() - fontHeight) * 0.5) - (titleSize.height() - fontHeight));
    return {bounds.x(), y, bounds.width(), titleSize.height()};
}

QRectF LLButton::titleRect() const {
    const QFontMetricsF metrics(font());
    const QSizeF titleSize =
        LLTextFieldCell::sizeWithString(text(), font(), QSizeF(width(), QWIDGETSIZE_MAX));
    return titleRectForBounds(rect(), titleSize, metrics.ascent() + metrics.descent());
}

void LLButton::paintLayer(const QColor &color) {
    m_currentColor = color;
    update();
}

void LLButton::paintEvent(QPaintEvent *) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    if (!isEnabled())
        painter.setOpacity(kDisabledOpacity);
    const QRectF bounds = rect();
    QPainterPath shape;
    shape.addRoundedRect(bounds, m_layerCornerRadius, m_layerCornerRadius);
    painter.fillPath(shape, m_currentColor);
    // A ring for focus that came from the keyboard; a click's focus needs none.
    if (hasFocus() && window()->testAttribute(Qt::WA_KeyboardFocusChange)) {
        const double inset = kFocusRingWidth * 1.5;
        painter.setPen(QPen(titleColor(), kFocusRingWidth));
        painter.drawRoundedRect(bounds.adjusted(inset, inset, -inset, -inset), m_layerCornerRadius,
                                m_layerCornerRadius);
    }
    painter.setPen(titleColor());
    painter.setFont(font());
    painter.drawText(titleRect(), Qt::AlignHCenter | Qt::AlignTop | Qt::TextShowMnemonic, text());
}

void LLButton::enterEvent(QEnterEvent *event) {
    paintLayer(m_backgroundEnterColor);
    QPushButton::enterEvent(event);
}

void LLButton::leaveEvent(QEvent *event) {
    paintLayer(m_backgroundColor);
    QPushButton::leaveEvent(event);
}

void LLButton::mousePressEvent(QMouseEvent *event) {
    if (event->button() == Qt::LeftButton)
        paintLayer(m_backgroundDownColor);
    QPushButton::mousePressEvent(event);
}

void LLButton::mouseReleaseEvent(QMouseEvent *event) {
    const bool left = event->button() == Qt::LeftButton;
    // The click handler may close the window this button sits in.
    const QPointer<LLButton> self(this);
    QPushButton::mouseReleaseEvent(event);
    // Normal, not hover, even with the pointer still inside.
    if (self && left)
        paintLayer(m_backgroundColor);
}

QSize LLButton::sizeHint() const {
    const QFontMetricsF metrics(font());
    const QSizeF title =
        LLTextFieldCell::sizeWithString(text(), font(), QSizeF(QWIDGETSIZE_MAX, QWIDGETSIZE_MAX));
    return QSize(qCeil(title.width()) + 2 * kHorizontalPadding,
                 qCeil(qMax(title.height(), metrics.height())) + 2 * kVerticalPadding);
}
