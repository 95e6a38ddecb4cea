#pragma once

#include <QColor>
#include <QWidget>

// A bar the user can also drag to set a value between 0 and the maximum. It draws nothing
// itself; LLLineProgressView does.
class LLBaseProgressView : public QWidget {
    Q_OBJECT
    Q_PROPERTY(double progressValue READ progressValue WRITE setProgressValue)
public:
    explicit LLBaseProgressView(QWidget *parent = nullptr);

    double progressValue() const { return m_progressValue; }
    virtual void setProgressValue(double value) { m_progressValue = value; }
    double maxProgressValue() const { return m_maxProgressValue; }
    void setMaxProgressValue(double value) { m_maxProgressValue = value; }
    QColor backgroundColor() const { return m_backgroundColor; }
    virtual void setBackgroundColor(const QColor &color) { m_backgroundColor = color; }
    QColor progressColor() const { return m_progressColor; }
    virtual void setProgressColor(const QColor &color) { m_progressColor = color; }
    bool isMouseDown() const { return m_isMouseDown; }

    // The value for a drag to x, against the current width.
    double valueForPosition(double x) const;

protected:
    void mousePressEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;

private:
    void setUp();

    double m_progressValue = 0.0;
    double m_maxProgressValue = 100.0;
    // Never cleared once set: later drags that start outside the bar still move it.
    bool m_isMouseDown = false;
    QColor m_backgroundColor;
    QColor m_progressColor;
};
