#include "ui/controls/BezierPath.h"

#include <gtest/gtest.h>

TEST(BezierPath, EmptyPathGivesNoPath) {
    EXPECT_FALSE(BezierPath().CGPath().has_value());
}

TEST(BezierPath, ElementsMapInOrder) {
    using Type = BezierPath::ElementType;
    BezierPath path;
    path.elements = {{Type::MoveTo, {{0, 0}}},
                     {Type::LineTo, {{10, 0}}},
                     {Type::CurveTo, {{12, 2}, {12, 8}, {10, 10}}},
                     {Type::ClosePath, {}}};
    const std::optional<QPainterPath> converted = path.CGPath();
    ASSERT_TRUE(converted.has_value());
    QPainterPath expected(QPointF(0, 0));
    expected.lineTo(10, 0);
    expected.cubicTo(QPointF(12, 2), QPointF(12, 8), QPointF(10, 10));
    expected.closeSubpath();
    EXPECT_EQ(*converted, expected);
}
