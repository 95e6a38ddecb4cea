#include "system/UserDefaults.h"
#include "ui/controls/LLButton.h"
#include "ui/controls/LLDrakMode.h"
#include "ui/controls/LLLineProgressView.h"
#include "ui/controls/LLTextFieldCell.h"

#include <QApplication>
#include <QDir>
#include <QEnterEvent>
#include <QGridLayout>
#include <QTest>

#include <gtest/gtest.h>

namespace {

// Every control in each look, drawn on a window of that theme and saved for a person to look at;
// the checks make sure each part is painted where it belongs.
class ControlPictures : public testing::TestWithParam<bool> {
protected:
    void SetUp() override {
        UserDefaults::globalDomain().setString(GetParam() ? QStringLiteral("Dark")
                                                          : QStringLiteral("Light"),
                                               QStringLiteral("AppleInterfaceStyle"));
    }
    void TearDown() override {
        UserDefaults::globalDomain().removeObjectForKey(QStringLiteral("AppleInterfaceStyle"));
    }
};

LLButton *addButton(QGridLayout *grid, const QString &title) {
    auto *button = new LLButton(title);
    button->setMinimumSize(96, 28);
    grid->addWidget(button, 0, grid->columnCount());
    return button;
}

TEST_P(ControlPictures, EachControlIsPaintedInItsState) {
    const bool dark = GetParam();
    QWidget window;
    QPalette palette = window.palette();
    palette.setColor(QPalette::Window, dark ? QColor(36, 36, 38) : QColor(Qt::white));
    window.setPalette(palette);
    window.setAutoFillBackground(true);
    auto *grid = new QGridLayout(&window);
    LLButton *normal = addButton(grid, QStringLiteral("Normal"));
    LLButton *hover = addButton(grid, QStringLiteral("Hover"));
    LLButton *pressed = addButton(grid, QStringLiteral("Pressed"));
    LLButton *disabled = addButton(grid, QStringLiteral("Disabled"));
    LLButton *focused = addButton(grid, QStringLiteral("Focused"));
    disabled->setEnabled(false);
    auto *field = new LLTextFieldCell;
    field->setText(QStringLiteral("My Passport g"));
    auto *empty = new LLTextFieldCell;
    empty->setPlaceholderText(QStringLiteral("Volume name"));
    auto *progress = new LLLineProgressView;
    progress->setFixedHeight(6);
    progress->setMaxProgressValue(1.0);
    grid->addWidget(field, 1, 0, 1, 3);
    grid->addWidget(empty, 1, 3, 1, 2);
    grid->addWidget(progress, 2, 0, 1, 5);
    window.show();
    QApplication::setActiveWindow(&window);
    progress->setProgressValue(0.4);
    const QPointF inside(5, 5);
    QEnterEvent enter(inside, inside, hover->mapToGlobal(inside));
    QApplication::sendEvent(hover, &enter);
    QTest::mousePress(pressed, Qt::LeftButton, {}, QPoint(5, 5));
    // The press took the focus without showing it; Tab moves it on, past the disabled button.
    QTest::keyClick(pressed, Qt::Key_Tab);

    const QImage picture = window.grab().toImage();
    const QString folder = QStringLiteral(VANTRELO_BINARY_DIR "/pictures/controls");
    QDir().mkpath(folder);
    picture.save(folder + (dark ? QStringLiteral("/dark.png") : QStringLiteral("/light.png")));

    const auto colourIn = [&](QWidget *widget, QPoint at) {
        return picture.pixelColor(widget->mapTo(&window, at));
    };
    const int middle = normal->height() / 2;
    EXPECT_EQ(colourIn(normal, {3, middle}), QColor(47, 182, 179));
    EXPECT_EQ(colourIn(hover, {3, middle}), QColor(24, 206, 186));
    EXPECT_EQ(colourIn(pressed, {3, middle}), QColor(26, 155, 140));
    EXPECT_NE(colourIn(disabled, {3, middle}), QColor(47, 182, 179));
    EXPECT_TRUE(focused->hasFocus());
    EXPECT_NE(colourIn(focused, {3, middle}), colourIn(normal, {3, middle}));
    EXPECT_EQ(colourIn(empty, {empty->width() - 4, empty->height() / 2}),
              LLTextFieldCell::backgroundColor());
    EXPECT_EQ(colourIn(progress, {progress->width() / 5, 3}), progress->progressColor());
    EXPECT_EQ(colourIn(progress, {progress->width() * 4 / 5, 3}), progress->backgroundColor());
}

INSTANTIATE_TEST_SUITE_P(Themes, ControlPictures, testing::Values(false, true),
                         [](const testing::TestParamInfo<bool> &theme) {
                             return theme.param ? "Dark" : "Light";
                         });

} // namespace
