#pragma once

#include <QIcon>
#include <QLabel>

// Shows one image scaled to fit the view, kept sharp on high-density screens. Screen readers
// read it as a graphic named by its accessible name.
class NTImageView : public QLabel {
    Q_OBJECT
public:
    explicit NTImageView(QWidget *parent = nullptr);

    QIcon image() const { return m_image; }
    void setImage(const QIcon &image);

protected:
    void resizeEvent(QResizeEvent *event) override;

private:
    void render();

    QIcon m_image;
};
