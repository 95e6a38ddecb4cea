#pragma once

#include <QWidget>

#include <memory>

class NTImageView;
class NTTruncatingLabel;
namespace Ui {
class NTTableCellView;
}

// The content of a disk list row: the drive image (tagged 100, so the row view swaps it with the
// selection) and the name. The list fills both.
class NTTableCellView : public QWidget {
    Q_OBJECT
public:
    explicit NTTableCellView(QWidget *parent = nullptr);
    ~NTTableCellView() override;

    NTImageView *imageView() const;
    NTTruncatingLabel *textField() const;

private:
    std::unique_ptr<Ui::NTTableCellView> m_ui;
};
