#include "ui/controls/LLButton.h"

#include "ui/controls/LLLineProgressView.h"
#include "ui_PromotedControls.h"

#include <QAccessible>
#include <QEnterEvent>
#include <QHBoxLayout>
#include <QSignalSpy>
#include <QTest>

#include <gtest/gtest.h>

namespace {

const QColor kNormal(47, 182, 179);
const QColor kHover(24, 206, 186);
const QColor kPressed(26, 155, 140);

void enter(LLButton &button) {
    const QPointF inside(5, 5);
    QEnterEvent event(inside, inside, button.mapToGlobal(inside));
    QApplication::sendEvent(&button, &event);
}

void leave(LLButton &button) {
    QEvent event(QEvent::Leave);
    QApplication::sendEvent(&button, &event);
}

struct PointerCase {
    const char *steps; // e enter, p press, r release, l leave
    QColor expected;
    int clicks;
};

class LLButtonPointer : public testing::TestWithParam<PointerCase> {};

TEST_P(LLButtonPointer, PaintsTheStateColour) {
    LLButton button;
    button.resize(80, 30);
    QColor colourDuringClick;
    QObject::connect(&button, &QPushButton::clicked, &button,
                     [&] { colourDuringClick = button.currentBackgroundColor(); });
    QSignalSpy clicks(&button, &QPushButton::clicked);
    for (const char *step = GetParam().steps; *step; ++step) {
        switch (*step) {
        case 'e':
            enter(button);
            break;
        case 'l':
            leave(button);
            break;
        case 'p':
            QTest::mousePress(&button, Qt::LeftButton, {}, QPoint(10, 10));
            break;
        case 'r':
            QTest::mouseRelease(&button, Qt::LeftButton, {}, QPoint(10, 10));
            break;
        }
    }
    EXPECT_EQ(button.currentBackgroundColor(), GetParam().expected);
    EXPECT_EQ(button.grab().toImage().pixelColor(3, 15), GetParam().expected);
    EXPECT_EQ(clicks.count(), GetParam().clicks);
    if (GetParam().clicks) {
        EXPECT_EQ(colourDuringClick, kPressed);
    }
}

INSTANTIATE_TEST_SUITE_P(Steps, LLButtonPointer,
                         testing::Values(PointerCase{"", kNormal, 0}, PointerCase{"e", kHover, 0},
                                         PointerCase{"ep", kPressed, 0},
                                         // Still inside after the click: normal, not hover.
                                         PointerCase{"epr", kNormal, 1},
                                         PointerCase{"eprl", kNormal, 1},
                                         PointerCase{"eprle", kHover, 1},
                                         PointerCase{"el", kNormal, 0}));

TEST(LLButton, StateColoursStoreAndOnlyStateZeroRepaints) {
    const QColor red(Qt::red);
    for (int state : {-1, 0, 1, 2, 3}) {
        SCOPED_TRACE(state);
        LLButton button;
        button.setBackgroundColorForSate(red, state);
        const QColor defaults[] = {kNormal, kHover, kPressed};
        for (int stored = 0; stored < 3; ++stored)
            EXPECT_EQ(button.backgroundColorForSate(stored),
                      stored == state ? red : defaults[stored]);
        EXPECT_EQ(button.currentBackgroundColor(), state == 0 ? red : kNormal);
    }
}

// Tab shows where the focus went, past a disabled button, which is greyed; a click's focus shows
// nothing.
TEST(LLButton, DisabledAndKeyboardFocusedButtonsLookSo) {
    QWidget window;
    auto *layout = new QHBoxLayout(&window);
    LLButton *buttons[3];
    for (LLButton *&button : buttons) {
        button = new LLButton(QStringLiteral("Open"));
        layout->addWidget(button);
    }
    buttons[1]->setEnabled(false);
    window.show();
    QApplication::setActiveWindow(&window);
    const auto colour = [](LLButton *button) { return button->grab().toImage().pixelColor(3, 8); };
    QTest::mouseClick(buttons[0], Qt::LeftButton, {}, QPoint(5, 5));
    EXPECT_EQ(colour(buttons[0]), kNormal);
    EXPECT_NE(colour(buttons[1]), kNormal);
    QTest::keyClick(buttons[0], Qt::Key_Tab);
    ASSERT_TRUE(buttons[2]->hasFocus());
    EXPECT_NE(colour(buttons[2]), kNormal);
}

TEST(LLButton, CornerRadiusIsOnlyStored) {
    LLButton button;
    button.resize(60, 24);
    button.setCornerRadius(12.0);
    // (2, 2) is inside a 4-point corner and outside a 12-point one.
    EXPECT_EQ(button.grab().toImage().pixelColor(2, 2), kNormal);
}

struct TitleCase {
    QRectF bounds;
    QSizeF title;
    double fontHeight;
    QRectF expected;
};

TEST(LLButton, TitleRectFollowsTheCellFormula) {
    const TitleCase cases[] = {
        // ceil((30 - 15) / 2 - (17 - 15)) = ceil(5.5); the bounds' y is not added.
        {{0, 7, 100, 30}, {40, 17}, 15, {0, 6, 100, 17}},
        {{3, 0, 50, 20}, {20, 16}, 16, {3, 2, 50, 16}},
        // A title taller than the button starts above it.
        {{0, 0, 50, 10}, {20, 20}, 16, {0, -7, 50, 20}},
    };
    for (const TitleCase &c : cases)
        EXPECT_EQ(LLButton::titleRectForBounds(c.bounds, c.title, c.fontHeight), c.expected);
}

TEST(LLButton, DefaultTitleReadsOnItsBackground) {
    LLButton button;
    for (int state = 0; state < 3; ++state) {
        button.setBackgroundColorForSate(button.backgroundColorForSate(state), 0);
        EXPECT_LT(button.titleColor().lightness(), 60) << state;
    }
    button.setBackgroundColorForSate(QColor(20, 30, 90), 0);
    EXPECT_GT(button.titleColor().lightness(), 200);
    button.setTitle(QStringLiteral("Open"), Qt::yellow, QFont());
    EXPECT_EQ(button.titleColor(), QColor(Qt::yellow));
}

TEST(LLButton, AccessibleAsAPushButtonNamedByItsTitle) {
    LLButton button;
    button.setTitle(QStringLiteral("Open"), Qt::white, QFont());
    QAccessibleInterface *accessible = QAccessible::queryAccessibleInterface(&button);
    ASSERT_NE(accessible, nullptr);
    EXPECT_EQ(accessible->role(), QAccessible::PushButton);
    EXPECT_EQ(accessible->text(QAccessible::Name), QStringLiteral("Open"));
}

TEST(PromotedControls, MatchThoseMadeInCode) {
    QWidget form;
    Ui::PromotedControls ui;
    ui.setupUi(&form);
    const LLButton button;
    for (int state = 0; state < 3; ++state)
        EXPECT_EQ(ui.button->backgroundColorForSate(state), button.backgroundColorForSate(state));
    EXPECT_EQ(ui.button->cornerRadius(), button.cornerRadius());
    EXPECT_TRUE(ui.button->isFlat());

    const LLLineProgressView progress;
    EXPECT_EQ(ui.progress->progressColor(), progress.progressColor());
    EXPECT_EQ(ui.progress->backgroundColor(), progress.backgroundColor());
    EXPECT_EQ(ui.progress->maxProgressValue(), 100.0);
}

} // namespace
