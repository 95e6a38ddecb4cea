#include "ui/controls/BezierPath.h"

std::optional<QPainterPath> BezierPath::CGPath() const {
    if (elements.isEmpty())
        return std::nullopt;
    QPainterPath path;
    for (const Element &element : elements) {
        switch (element.type) {
        case ElementType::MoveTo:
            path.moveTo(element.points[0]);
            break;
        case ElementType::LineTo:
            path.lineTo(element.points[0]);
            break;
        case ElementType::CurveTo:
            path.cubicTo(element.points[0], element.points[1], element.points[2]);
            break;
        case ElementType::ClosePath:
            path.closeSubpath();
            break;
        }
    }
    return path;
}
