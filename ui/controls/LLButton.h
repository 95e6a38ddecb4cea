#pragma once

#include <QColor>
#include <QPushButton>

// A flat push button with one background colour per state: normal (0), pointer over it (1) and
// pressed (2), on a rounded rectangle. Placed in .ui files as a promoted QPushButton.
class LLButton : public QPushButton {
    Q_OBJECT
public:
    explicit LLButton(QWidget *parent = nullptr);
    explicit LLButton(const QString &title, QWidget *parent = nullptr);

    void setTitle(const QString &title, const QColor &color, const QFont &font);
    // States other than 0, 1 and 2 are ignored; only state 0 repaints at once.
    void setBackgroundColorForSate(const QColor &color, int state);
    double cornerRadius() const { return m_cornerRadius; }
    // Stored only: the radius applied by setup() stays.
    void setCornerRadius(double radius) { m_cornerRadius = radius; }

    // The colour the button is painted with now.
    QColor currentBackgroundColor() const { return m_currentColor; }
    QColor backgroundColorForSate(int state) const;
    // The colour given to setTitle, else black or white, whichever reads better on the
    // current background.
    QColor titleColor() const;
    static QColor readableTitleColor(const QColor &background);

    // Where the title of size titleSize sits in bounds, fontHeight being the font's ascender
    // minus its descender. bounds' own y is deliberately not added.
    static QRectF titleRectForBounds(const QRectF &bounds, const QSizeF &titleSize,
                                     double fontHeight);
    QRectF titleRect() const;

protected:
    void paintEvent(QPaintEvent *event) override;
    void enterEvent(QEnterEvent *event) override;
    void leaveEvent(QEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;
    // The button text sits in LLButtonCell's title rectangle.
    QSize sizeHint() const override;

private:
    void setup();
    void paintLayer(const QColor &color);

    QColor m_backgroundColor;
    QColor m_backgroundEnterColor;
    QColor m_backgroundDownColor;
    QColor m_currentColor;
    // Invalid until setTitle gives one.
    QColor m_titleColor;
    double m_cornerRadius = 4.0;
    double m_layerCornerRadius = 4.0;
};
