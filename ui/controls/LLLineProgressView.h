#pragma once

#include "ui/controls/LLBaseProgressView.h"

#include <QRectF>

// A rounded bar filled from the left in the progress colour over the background colour.
class LLLineProgressView : public LLBaseProgressView {
    Q_OBJECT
public:
    explicit LLLineProgressView(QWidget *parent = nullptr);

    // Resizes the filled part only; the value is not stored in progressValue().
    void setProgressValue(double value) override;
    void setBackgroundColor(const QColor &color) override;
    void setProgressColor(const QColor &color) override;

    // The filled part, in widget coordinates, as last set.
    QRectF progressRect() const { return m_progressRect; }
    double barHeight() const { return m_height; }
    // The value a screen reader reads, 0 to 100.
    double displayedPercent() const;

protected:
    void paintEvent(QPaintEvent *event) override;
    // The filled part keeps its fraction of the new width.
    void resizeEvent(QResizeEvent *event) override;

private:
    void initConfig();
    void updateProgressRect();

    double m_height = 6.0;
    double m_fraction = 0.0;
    QRectF m_progressRect;
};
