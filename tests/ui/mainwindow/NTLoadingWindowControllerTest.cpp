#include "ui/mainwindow/NTLoadingWindowController.h"

#include "tests/support/QtPrinters.h"
#include "tests/support/RecordingInteraction.h"
#include "ui/mainwindow/NTSpinningIndicator.h"

#include <QAccessible>
#include <QLabel>
#include <QPointer>
#include <QTest>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

TEST(NTLoadingWindowController, SheetOnTheWindowShowsItsTipAndSpinsWhileUp) {
    RecordingInteraction interaction;
    QWidget window;
    auto *content = new QWidget(&window);
    window.show();

    QPointer<NTLoadingWindowController> sheet =
        NTLoadingWindowController::beginSheet(content, u"Repairing the disk…"_s);
    ASSERT_EQ(interaction.sheets.size(), 1);
    EXPECT_EQ(interaction.sheets.first().sheet, sheet.data());
    EXPECT_EQ(interaction.sheets.first().parent, &window);
    EXPECT_EQ(sheet->windowModality(), Qt::WindowModal);
    EXPECT_EQ(sheet->tipTextField()->text(), u"Repairing the disk…"_s);
    // Clear corners show black where nothing composites: the shape cuts them off.
    EXPECT_FALSE(sheet->mask().contains(QPoint(0, 0)));
    EXPECT_FALSE(sheet->mask().contains(QPoint(sheet->width() - 1, sheet->height() - 1)));
    EXPECT_TRUE(sheet->mask().contains(QPoint(sheet->width() / 2, 0)));

    NTSpinningIndicator *indicator = sheet->loadingIndicator();
    EXPECT_TRUE(indicator->isTurning());
    QAccessibleInterface *accessible = QAccessible::queryAccessibleInterface(indicator);
    EXPECT_EQ(accessible->role(), QAccessible::Animation);
    EXPECT_EQ(accessible->text(QAccessible::Name), u"Repairing the disk…"_s);
    EXPECT_TRUE(accessible->state().busy);

    // The owner reports the outcome, then ends the sheet: it stops turning and goes away.
    sheet->tipTextField()->setText(u"Done"_s);
    sheet->close();
    EXPECT_FALSE(indicator->isTurning());
    EXPECT_TRUE(QTest::qWaitFor([&] { return sheet.isNull(); }));
}

TEST(NTLoadingWindowController, WithoutTipTextTheLineStaysEmpty) {
    NTLoadingWindowController sheet;
    sheet.windowDidLoad();
    EXPECT_TRUE(sheet.tipTextField()->text().isEmpty());
    EXPECT_TRUE(sheet.loadingIndicator()->isAnimating());
    EXPECT_FALSE(sheet.loadingIndicator()->isTurning()) << "turning while hidden";
}

} // namespace
