#include "ui/controls/LLTextFieldCell.h"

#include <QApplication>
#include <QFontMetricsF>
#include <QVBoxLayout>

#include <gtest/gtest.h>

namespace {

TEST(LLTextFieldCell, CentresOneLineOfTextWithoutTheRectsY) {
    LLTextFieldCell field;
    const double h = QFontMetricsF(field.font()).height();
    const QRectF adjusted = field.adjustedFrameToVerticallyCenterText(QRectF(4, 50, 120, 40));
    EXPECT_EQ(adjusted, QRectF(4, (40 - h) * 0.5, 120, h));
}

// The text is centred with margins that grow with the height; the hint must not grow with them.
TEST(LLTextFieldCell, SizeHintStaysPutWhateverTheHeight) {
    LLTextFieldCell field;
    field.show();
    const QSize hint = field.sizeHint();
    const QSize minimum = field.minimumSizeHint();
    for (const int height : {10, 28, 60, 400}) {
        field.resize(300, height);
        EXPECT_EQ(field.sizeHint(), hint) << height;
        EXPECT_EQ(field.minimumSizeHint(), minimum) << height;
        const QMargins margins = field.textMargins();
        EXPECT_LE(std::abs(margins.top() - margins.bottom()), 1) << height;
    }
}

TEST(LLTextFieldCell, AFixedSizeLayoutKeepsItsMinimumHeight) {
    QWidget window;
    auto *layout = new QVBoxLayout(&window);
    layout->setSizeConstraint(QLayout::SetFixedSize);
    auto *field = new LLTextFieldCell;
    field->setMinimumSize(300, 28);
    layout->addWidget(field);
    window.show();
    for (int round = 0; round < 5; ++round) {
        layout->activate();
        QApplication::processEvents();
    }
    EXPECT_EQ(field->height(), qMax(28, field->sizeHint().height()));
}

} // namespace
