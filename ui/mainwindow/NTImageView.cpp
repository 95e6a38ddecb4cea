#include "ui/mainwindow/NTImageView.h"

NTImageView::NTImageView(QWidget *parent)
    : QLabel(parent) {
    setAlignment(Qt::AlignCenter);
}

void NTImageView::setImage(const QIcon &image) {
    m_image = image;
    render();
}

void NTImageView::resizeEvent(QResizeEvent *event) {
    QLabel::resizeEvent(event);
    render();
}

void NTImageView::render() {
    setPixmap(m_image.isNull() ? QPixmap()
                               : m_image.pixmap(contentsRect().size(), devicePixelRatioF()));
}
