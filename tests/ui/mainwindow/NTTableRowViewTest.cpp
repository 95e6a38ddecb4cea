#include "ui/mainwindow/NTTableRowView.h"

#include "tests/support/QtPrinters.h"
#include "ui/controls/LLImage.h"
#include "ui/mainwindow/NTBackGroundView.h"
#include "ui/mainwindow/NTImageView.h"
#include "ui/mainwindow/NTTableCellView.h"
#include "ui/mainwindow/NTTruncatingLabel.h"
#include "ui_BackGroundViewForm.h"

#include <QAbstractButton>
#include <QAccessible>
#include <QApplication>
#include <QCheckBox>
#include <QImage>
#include <QLabel>
#include <QLayout>
#include <QLineEdit>
#include <QPainter>
#include <QPushButton>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

const QColor kGrey = QColor::fromRgb(212, 212, 212);

QImage clearImage(QSize size) {
    QImage image(size, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    return image;
}

// What the widget paints itself, without a window background behind it.
QImage painted(QWidget &widget) {
    QImage image = clearImage(widget.size());
    widget.render(&image, {}, {}, QWidget::DrawChildren);
    return image;
}

QImage pictureOf(const QIcon &icon) {
    return icon.pixmap(24, 24).toImage().convertToFormat(QImage::Format_ARGB32_Premultiplied);
}

// A grey selection pixel, not a blend with the clear background.
bool isGrey(const QImage &image, int x, int y) {
    return image.pixelColor(x, y) == kGrey;
}

TEST(NTTableRowView, SelectionIsARoundedGreyShapeInsetFiveOnEachSide) {
    NTTableRowView row(QRect(0, 0, 300, 36));
    EXPECT_EQ(painted(row), clearImage(row.size())) << "an unselected row paints nothing";

    row.setSelected(true);
    const QImage image = painted(row);
    EXPECT_TRUE(isGrey(image, 5, 18));
    EXPECT_TRUE(isGrey(image, 294, 18));
    EXPECT_FALSE(isGrey(image, 4, 18));
    EXPECT_FALSE(isGrey(image, 295, 18));
    EXPECT_TRUE(isGrey(image, 150, 0));
    EXPECT_TRUE(isGrey(image, 150, 35));
    EXPECT_EQ(image.pixelColor(5, 0).alpha(), 0) << "the corners are rounded";
    EXPECT_EQ(image.pixelColor(294, 35).alpha(), 0);

    // A partial redraw keeps the absolute x of 5 and narrows by the dirty width.
    QImage partial = clearImage(row.size());
    QPainter painter(&partial);
    row.drawSelectionInRect(painter, QRectF(100, 10, 150, 20));
    painter.end();
    EXPECT_TRUE(isGrey(partial, 6, 20));
    EXPECT_TRUE(isGrey(partial, 144, 20));
    EXPECT_FALSE(isGrey(partial, 146, 20));
    EXPECT_FALSE(isGrey(partial, 100, 9));
    EXPECT_FALSE(isGrey(partial, 100, 30));
}

TEST(NTTableRowView, SelectionSwapsTheDriveImageOfTheCell) {
    struct Case {
        bool internal;
        bool selected;
        const char *image;
    };
    const Case cases[] = {{true, true, "internaldrive_selected"},
                          {true, false, "internaldrive_normal"},
                          {false, true, "externaldrive_selected"},
                          {false, false, "externaldrive_normal"}};
    for (const Case &c : cases) {
        NTTableRowView row;
        row.setInternal(c.internal);
        auto *cell = new NTTableCellView;
        row.addSubview(cell);
        // The opposite state first, so that each case really swaps.
        row.setSelected(!c.selected);
        row.setSelected(c.selected);
        for (const Case &other : cases) {
            const bool same = pictureOf(cell->imageView()->image()) ==
                              pictureOf(LLImage::imageNamed(QString::fromLatin1(other.image)));
            EXPECT_EQ(same, other.image == c.image) << c.image << " against " << other.image;
        }
    }
}

TEST(NTTableRowView, ScreenReadersReadARowAsAListItemNamedByItsDisk) {
    NTTableRowView row;
    auto *cell = new NTTableCellView;
    cell->textField()->setText(u"Windows"_s);
    row.addSubview(cell);
    QAccessibleInterface *accessible = QAccessible::queryAccessibleInterface(&row);
    ASSERT_NE(accessible, nullptr);
    EXPECT_EQ(accessible->role(), QAccessible::ListItem);
    EXPECT_EQ(accessible->text(QAccessible::Name), u"Windows"_s);
    for (const bool selected : {true, false}) {
        row.setSelected(selected);
        EXPECT_TRUE(accessible->state().selectable);
        EXPECT_EQ(accessible->state().selected, selected);
    }
    row.setAccessibleName(u"Disk"_s);
    EXPECT_EQ(accessible->text(QAccessible::Name), u"Disk"_s);
}

TEST(NTTableRowView, SelectedTextIsDarkOnTheGreyInADarkTheme) {
    const QPalette original = QApplication::palette();
    QPalette dark = original;
    dark.setColor(QPalette::Window, QColor::fromRgb(41, 41, 41));
    dark.setColor(QPalette::WindowText, Qt::white);
    QApplication::setPalette(dark);

    NTTableRowView row;
    auto *cell = new NTTableCellView;
    row.addSubview(cell);
    row.setSelected(true);
    EXPECT_LT(cell->textField()->palette().color(QPalette::WindowText).lightness(), 64);
    row.setSelected(false);
    EXPECT_EQ(cell->textField()->palette().color(QPalette::WindowText), QColor(Qt::white));

    QApplication::setPalette(original);
}

TEST(NTTableRowView, RowsWithoutATaggedImageViewKeepTheirViews) {
    NTTableRowView untagged;
    untagged.addSubview(new QLabel(u"Data"_s));
    untagged.setSelected(true);

    NTTableRowView textTagged;
    auto *label = new QLabel(u"Data"_s);
    label->setProperty("tag", NTTableRowView::kImageViewTag);
    textTagged.addSubview(label);
    textTagged.setSelected(true);
    EXPECT_EQ(label->text(), u"Data"_s);
    EXPECT_TRUE(label->pixmap().isNull());

    NTTableRowView otherTag;
    auto *imageView = new NTImageView;
    imageView->setProperty("tag", 99);
    otherTag.addSubview(imageView);
    otherTag.setSelected(true);
    EXPECT_TRUE(imageView->image().isNull());
}

class PlainButton : public QAbstractButton {
protected:
    void paintEvent(QPaintEvent *) override {}
};

TEST(NTTableRowView, ButtonsAreNeverAddedOtherViewsAre) {
    const std::pair<QWidget *, bool> views[] = {{new QPushButton, false}, {new QCheckBox, false},
                                                {new PlainButton, false}, {new QLabel, true},
                                                {new QLineEdit, true},    {new NTImageView, true}};
    NTTableRowView row;
    for (const auto &[view, added] : views) {
        row.addSubview(view);
        EXPECT_EQ(view->parentWidget() == &row, added) << view->metaObject()->className();
        EXPECT_EQ(row.layout()->indexOf(view) >= 0, added);
        if (!added)
            delete view;
    }
}

TEST(NTBackGroundView, FromAUiFileAsFromCodeClearUntilColoured) {
    QWidget form;
    Ui::BackGroundViewForm ui;
    ui.setupUi(&form);
    NTBackGroundView fromCode;
    fromCode.resize(ui.backgroundView->size());
    for (NTBackGroundView *view : {ui.backgroundView, &fromCode}) {
        EXPECT_EQ(painted(*view), clearImage(view->size()));
        view->setBackgroundColor(QColor::fromRgb(41, 41, 41));
        const QImage image = painted(*view);
        EXPECT_EQ(image.pixelColor(0, 0), QColor::fromRgb(41, 41, 41));
        EXPECT_EQ(image.pixelColor(view->width() - 1, view->height() - 1),
                  QColor::fromRgb(41, 41, 41));
    }
}

} // namespace
