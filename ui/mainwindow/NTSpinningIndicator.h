#pragma once

#include <QBasicTimer>
#include <QWidget>

// An indeterminate spinning activity indicator. It turns only while animating and visible, so
// a hidden one costs nothing. Screen readers see a busy animation with the accessible name.
class NTSpinningIndicator : public QWidget {
    Q_OBJECT
public:
    explicit NTSpinningIndicator(QWidget *parent = nullptr);

    void startAnimation();
    void stopAnimation();
    bool isAnimating() const { return m_animating; }
    // Whether it is turning now.
    bool isTurning() const { return m_timer.isActive(); }

    QSize sizeHint() const override;

protected:
    void paintEvent(QPaintEvent *event) override;
    void showEvent(QShowEvent *event) override;
    void hideEvent(QHideEvent *event) override;
    void timerEvent(QTimerEvent *event) override;

private:
    void updateTimer();

    QBasicTimer m_timer;
    bool m_animating = false;
    int m_step = 0;
};
