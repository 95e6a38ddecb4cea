#pragma once

#include <QLineEdit>

// A line edit drawn on a rounded background (white, or near-black in the dark theme) with its
// text centred vertically. Placed in .ui files as a promoted QLineEdit.
class LLTextFieldCell : public QLineEdit {
    Q_OBJECT
public:
    explicit LLTextFieldCell(QWidget *parent = nullptr);

    // The rectangle, inside rect, where one line of text in this font sits vertically centred.
    // rect's own y is deliberately not added.
    QRectF adjustedFrameToVerticallyCenterText(const QRectF &rect) const;
    // The colour the background is filled with for the current theme.
    static QColor backgroundColor();
    // The bounding size of text in font, wrapped within maxSize.
    static QSizeF sizeWithString(const QString &text, const QFont &font, const QSizeF &maxSize);

    // Without the margins that centre the text: they follow the height, so a layout sizing
    // the field to its hint would otherwise grow it without end.
    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

protected:
    void paintEvent(QPaintEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;
    void changeEvent(QEvent *event) override;

private:
    void applyTheme();
    void centerText();
    QSize withoutCentringMargins(QSize hint) const;
};
