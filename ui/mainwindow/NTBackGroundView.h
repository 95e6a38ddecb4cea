#pragma once

#include <QColor>
#include <QWidget>

// A plain area filled with the colour its owner sets (the main window colours it for the
// theme). Clear until then, whether built in code or promoted in a .ui file.
class NTBackGroundView : public QWidget {
    Q_OBJECT
    Q_PROPERTY(QColor backgroundColor READ backgroundColor WRITE setBackgroundColor)
public:
    explicit NTBackGroundView(QWidget *parent = nullptr);

    QColor backgroundColor() const { return m_backgroundColor; }
    void setBackgroundColor(const QColor &color);
    // Square corners until set.
    double cornerRadius() const { return m_cornerRadius; }
    void setCornerRadius(double radius);

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    QColor m_backgroundColor = Qt::transparent;
    double m_cornerRadius = 0.0;
};
