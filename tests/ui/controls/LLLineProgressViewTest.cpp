#include "ui/controls/LLLineProgressView.h"

#include <QAccessible>
#include <QAccessibleValueInterface>
#include <QApplication>
#include <QMouseEvent>

#include <gtest/gtest.h>

namespace {

constexpr int kWidth = 200;
constexpr int kHeight = 8;

struct FillCase {
    double maximum;
    double value;
    double expectedWidth;
    double expectedPercent;
};

TEST(LLLineProgressView, FillsByTheValueCappedAtOneHundred) {
    const FillCase cases[] = {
        {1.0, 0.5, 100, 50},
        {100, 250, 200, 100},
        // The cap is 100 whatever the maximum: 150 of 200 shows half.
        {200, 150, 100, 50},
        {100, -5, kWidth * static_cast<double>(-0.05f), 0},
        // Drawn at float precision, read out in hundredths.
        {100, 100.0 / 3, kWidth * static_cast<double>(static_cast<float>(1.0 / 3)), 33.33},
    };
    for (const FillCase &c : cases) {
        SCOPED_TRACE(c.value);
        LLLineProgressView view;
        view.resize(kWidth, kHeight);
        view.setMaxProgressValue(c.maximum);
        view.setProgressValue(c.value);
        EXPECT_EQ(view.progressRect(), QRectF(0, 0, c.expectedWidth, kHeight));
        EXPECT_DOUBLE_EQ(view.displayedPercent(), c.expectedPercent);
        // The override does not store the value.
        EXPECT_EQ(view.progressValue(), 0.0);
    }
}

TEST(LLLineProgressView, PaintsOnlyTheFilledPart) {
    struct {
        double maximum;
        double value;
        bool filledAtMiddle;
    } const cases[] = {{100, -5, false}, {100, 75, true}, {100, 25, false}, {0, 0, false}};
    for (const auto &c : cases) {
        LLLineProgressView view;
        view.resize(kWidth, kHeight);
        view.setMaxProgressValue(c.maximum);
        view.setProgressValue(c.value);
        const QColor middle = view.grab().toImage().pixelColor(kWidth / 2 + 2, kHeight / 2);
        EXPECT_EQ(middle, c.filledAtMiddle ? view.progressColor() : view.backgroundColor())
            << c.value;
    }
}

TEST(LLBaseProgressView, DragMapsThePointerToAValue) {
    LLBaseProgressView view;
    view.resize(kWidth, kHeight);
    view.setMaxProgressValue(1.0);
    const std::pair<double, double> cases[] = {
        {-5, 0.0}, {0, 0.0}, {kWidth / 2.0, 0.5}, {kWidth, 1.0}, {kWidth + 40, 1.0}};
    for (const auto &[x, expected] : cases)
        EXPECT_EQ(view.valueForPosition(x), expected) << x;
}

void sendMouse(QWidget &view, QEvent::Type type, double x, Qt::MouseButtons buttons) {
    const QPointF at(x, kHeight / 2.0);
    QMouseEvent event(type, at, view.mapToGlobal(at), Qt::LeftButton, buttons, {});
    QApplication::sendEvent(&view, &event);
}

TEST(LLBaseProgressView, PressInsideStartsADragThatIsNeverEnded) {
    LLBaseProgressView view;
    view.resize(kWidth, kHeight);
    sendMouse(view, QEvent::MouseMove, 50, Qt::LeftButton);
    EXPECT_EQ(view.progressValue(), 0.0);
    sendMouse(view, QEvent::MouseButtonPress, 50, Qt::LeftButton);
    EXPECT_TRUE(view.isMouseDown());
    EXPECT_EQ(view.progressValue(), 25.0);
    sendMouse(view, QEvent::MouseButtonRelease, 50, Qt::NoButton);
    sendMouse(view, QEvent::MouseMove, -5, Qt::LeftButton);
    EXPECT_TRUE(view.isMouseDown());
    EXPECT_EQ(view.progressValue(), 0.0);
}

TEST(LLLineProgressView, DragResizesTheBarThroughTheOverride) {
    LLLineProgressView view;
    view.resize(kWidth, kHeight);
    view.setMaxProgressValue(1.0);
    sendMouse(view, QEvent::MouseButtonPress, kWidth / 2.0, Qt::LeftButton);
    EXPECT_EQ(view.progressRect().width(), kWidth / 2.0);
    EXPECT_EQ(view.progressValue(), 0.0);
}

TEST(LLLineProgressView, ReportsAProgressBarWithItsValue) {
    LLLineProgressView view;
    view.resize(kWidth, kHeight);
    view.setAccessibleName(QStringLiteral("Used space"));
    view.setMaxProgressValue(1.0);
    view.setProgressValue(0.25);
    QAccessibleInterface *accessible = QAccessible::queryAccessibleInterface(&view);
    ASSERT_NE(accessible, nullptr);
    EXPECT_EQ(accessible->role(), QAccessible::ProgressBar);
    EXPECT_EQ(accessible->text(QAccessible::Name), QStringLiteral("Used space"));
    QAccessibleValueInterface *value = accessible->valueInterface();
    ASSERT_NE(value, nullptr);
    EXPECT_EQ(value->currentValue().toDouble(), 25.0);
    EXPECT_EQ(value->minimumValue().toDouble(), 0.0);
    EXPECT_EQ(value->maximumValue().toDouble(), 100.0);
}

} // namespace
