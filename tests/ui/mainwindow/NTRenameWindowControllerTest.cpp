#include "ui/mainwindow/NTRenameWindowController.h"

#include "tests/support/QtPrinters.h"
#include "tests/support/RecordingInteraction.h"
#include "ui/controls/LLButton.h"
#include "ui/controls/LLTextFieldCell.h"

#include <QAccessible>
#include <QLabel>
#include <QTest>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

using Step = std::function<void(NTRenameWindowController &)>;

void type(NTRenameWindowController &dialog, const QString &text) {
    QTest::keyClicks(dialog.inputField(), text);
}

void click(QAbstractButton *button) {
    QTest::mouseClick(button, Qt::LeftButton);
}

TEST(NTRenameWindowController, EmptyOkShowsTheErrorAndTypingClearsIt) {
    NTRenameWindowController dialog;
    dialog.show();
    click(dialog.okButton());
    EXPECT_TRUE(dialog.isVisible());
    EXPECT_EQ(dialog.response(), 0);
    EXPECT_EQ(dialog.tipField()->text(), qtTrId("rename_error_empty"));
    EXPECT_EQ(QAccessible::queryAccessibleInterface(dialog.tipField())->text(QAccessible::Name),
              qtTrId("rename_error_empty"));
    EXPECT_EQ(dialog.inputField()->accessibleDescription(), qtTrId("rename_error_empty"));
    type(dialog, u"x"_s);
    EXPECT_TRUE(dialog.tipField()->text().isEmpty());
    EXPECT_TRUE(dialog.inputField()->accessibleDescription().isEmpty());
    EXPECT_EQ(QAccessible::queryAccessibleInterface(dialog.inputField())->text(QAccessible::Name),
              qtTrId("rename_newname_input"));
}

TEST(NTRenameWindowController, PresentHandsOnTheNameOnlyAfterOk) {
    struct Case {
        const char *what;
        QString typed;
        Step step;
        int response;
    };
    const Case cases[] = {
        {"blanks only are a name", u"   "_s, [](auto &d) { click(d.okButton()); }, 1},
        {"Enter is OK", u"Daten 2"_s,
         [](auto &d) { QTest::keyClick(d.inputField(), Qt::Key_Return); }, 1},
        {"Cancel", u"Data"_s, [](auto &d) { click(d.cancelButton()); }, 0},
        {"Escape", u"Data"_s, [](auto &d) { QTest::keyClick(d.inputField(), Qt::Key_Escape); }, 0},
        {"close box", u"Data"_s, [](auto &d) { d.close(); }, 0},
        {"another window closes", u"Data"_s,
         [](auto &d) {
             QWidget other;
             other.show();
             other.close();
             EXPECT_FALSE(d.isVisible()) << "the modal session did not end";
         },
         0},
    };
    QWidget parent;
    parent.setGeometry(200, 150, 900, 700);
    parent.show();
    for (const Case &c : cases) {
        RecordingInteraction interaction;
        interaction.onModal = [&](QDialog *dialog) {
            EXPECT_LE((dialog->frameGeometry().center() - parent.frameGeometry().center())
                          .manhattanLength(),
                      2)
                << "not centred on the window";
            auto *rename = qobject_cast<NTRenameWindowController *>(dialog);
            ASSERT_NE(rename, nullptr);
            type(*rename, c.typed);
            c.step(*rename);
            EXPECT_FALSE(dialog->isVisible()) << c.what;
        };
        int calls = 0;
        NTRenameWindowController::present(&parent, [&](int response, std::optional<QString> name) {
            ++calls;
            EXPECT_EQ(response, c.response) << c.what;
            EXPECT_EQ(name, c.response ? std::optional(c.typed) : std::nullopt) << c.what;
        });
        EXPECT_EQ(calls, 1) << c.what;
        EXPECT_EQ(interaction.modalDialogs.size(), 1) << c.what;
    }
}

} // namespace
