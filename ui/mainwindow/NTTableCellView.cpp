#include "ui/mainwindow/NTTableCellView.h"

#include "ui_NTTableCellView.h"

NTTableCellView::NTTableCellView(QWidget *parent)
    : QWidget(parent)
    , m_ui(std::make_unique<Ui::NTTableCellView>()) {
    m_ui->setupUi(this);
}

NTTableCellView::~NTTableCellView() = default;

NTImageView *NTTableCellView::imageView() const {
    return m_ui->imageView;
}

NTTruncatingLabel *NTTableCellView::textField() const {
    return m_ui->textField;
}
