#pragma once

#include <QLabel>

// One line of plain text that ends in "…" when it does not fit; screen readers still read all of
// it.
class NTTruncatingLabel : public QLabel {
    Q_OBJECT
public:
    explicit NTTruncatingLabel(QWidget *parent = nullptr);

    QSize minimumSizeHint() const override;

protected:
    void paintEvent(QPaintEvent *event) override;
};
