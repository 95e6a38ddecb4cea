#pragma once

#include <QPainterPath>
#include <QPointF>
#include <QVector>

#include <optional>

// A path as a list of elements, converted into a QPainterPath for drawing.
struct BezierPath {
    enum class ElementType { MoveTo, LineTo, CurveTo, ClosePath };
    struct Element {
        ElementType type;
        // MoveTo/LineTo: points[0]; CurveTo: two control points then the end point.
        QPointF points[3];
    };
    QVector<Element> elements;

    // No path for a path without elements.
    std::optional<QPainterPath> CGPath() const;
};
