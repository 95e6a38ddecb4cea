#include "ui/controls/LLTextFieldCell.h"

#include "ui/controls/LLDrakMode.h"

#include <QEvent>
#include <QFontMetricsF>
#include <QPainter>
#include <QPainterPath>

#include <cmath>

namespace {

const QColor kDarkBackground = QColor::fromRgbF(29 / 255.0f, 29 / 255.0f, 31 / 255.0f, 1.0f);
const QColor kLightBackground(Qt::white);
const QColor kDarkText(235, 235, 240);
const QColor kLightText(24, 24, 26);
constexpr double kCornerRadius = 3.0;
constexpr int kHorizontalPadding = 6;

} // namespace

LLTextFieldCell::LLTextFieldCell(QWidget *parent)
    : QLineEdit(parent) {
    // The rounded background below is the frame.
    setFrame(false);
    applyTheme();
    connect(LLDrakMode::shared(), &LLDrakMode::themeChanged, this, &LLTextFieldCell::applyTheme);
}

QRectF LLTextFieldCell::adjustedFrameToVerticallyCenterText(const QRectF &rect) const {
    const double h = sizeWithString(QStringLiteral("g"), font(), rect.size()).height();
    return {rect.x(), (rect.height() - h) * 0.5, rect.width(), h};
}

QColor LLTextFieldCell::backgroundColor() {
    return LLDrakMode::isDarkMode() ? kDarkBackground : kLightBackground;
}

QSizeF LLTextFieldCell::sizeWithString(const QString &text, const QFont &font,
                                       const QSizeF &maxSize) {
    return QFontMetricsF(font)
        .boundingRect(QRectF(QPointF(), maxSize), Qt::TextWordWrap, text)
        .size();
}

void LLTextFieldCell::applyTheme() {
    const bool dark = LLDrakMode::isDarkMode();
    QPalette colours = palette();
    colours.setColor(QPalette::Text, dark ? kDarkText : kLightText);
    // The rounded background is painted here; the style's square panel would cover its corners
    // and outline.
    colours.setColor(QPalette::Base, Qt::transparent);
    QColor placeholder = colours.color(QPalette::Text);
    placeholder.setAlphaF(0.55f);
    colours.setColor(QPalette::PlaceholderText, placeholder);
    setPalette(colours);
    update();
}

void LLTextFieldCell::centerText() {
    // The base class places the text in the middle of what the margins leave, so margins
    // that leave the adjusted rectangle put it where the adjusted frame says.
    const QRectF adjusted = adjustedFrameToVerticallyCenterText(rect());
    const int top = qMax(0, static_cast<int>(std::floor(adjusted.top())));
    const int bottom = qMax(0, height() - static_cast<int>(std::ceil(adjusted.bottom())));
    setTextMargins(kHorizontalPadding, top, kHorizontalPadding, bottom);
}

QSize LLTextFieldCell::withoutCentringMargins(QSize hint) const {
    const QMargins margins = textMargins();
    hint.rheight() -= margins.top() + margins.bottom();
    return hint;
}

QSize LLTextFieldCell::sizeHint() const {
    return withoutCentringMargins(QLineEdit::sizeHint());
}

QSize LLTextFieldCell::minimumSizeHint() const {
    return withoutCentringMargins(QLineEdit::minimumSizeHint());
}

void LLTextFieldCell::resizeEvent(QResizeEvent *event) {
    centerText();
    QLineEdit::resizeEvent(event);
}

void LLTextFieldCell::changeEvent(QEvent *event) {
    if (event->type() == QEvent::FontChange)
        centerText();
    QLineEdit::changeEvent(event);
}

void LLTextFieldCell::paintEvent(QPaintEvent *event) {
    {
        QPainter painter(this);
        painter.setRenderHint(QPainter::Antialiasing);
        const bool dark = LLDrakMode::isDarkMode();
        const QRectF frame = QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5);
        QPainterPath shape;
        shape.addRoundedRect(frame, kCornerRadius, kCornerRadius);
        painter.fillPath(shape, backgroundColor());
        // Without an outline a white field vanishes on a white window.
        const QColor outline = hasFocus()
                                   ? palette().color(QPalette::Highlight)
                                   : (dark ? QColor(255, 255, 255, 70) : QColor(0, 0, 0, 70));
        painter.setPen(QPen(outline, hasFocus() ? 2.0 : 1.0));
        painter.drawPath(shape);
    }
    QLineEdit::paintEvent(event);
}
