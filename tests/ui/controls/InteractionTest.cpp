#include "ui/controls/Interaction.h"

#include <QMessageBox>
#include <QPushButton>

#include <gtest/gtest.h>

namespace {

Interaction::Alert threeButtonAlert() {
    return {QStringLiteral("Eject"),
            QStringLiteral("Eject the volume?"),
            {QStringLiteral("Eject"), QStringLiteral("Later"), QStringLiteral("Cancel")},
            Interaction::AlertStyle::Warning,
            QStringLiteral("Files still open on it may lose their last changes.")};
}

QAbstractButton *buttonNamed(const QMessageBox &box, const QString &text) {
    for (QAbstractButton *button : box.buttons())
        if (button->text() == text)
            return button;
    return nullptr;
}

TEST(Interaction, AlertAnswersByTheOrderButtonsWereGiven) {
    const Interaction::Alert alert = threeButtonAlert();
    for (qsizetype i = 0; i < alert.buttons.size(); ++i) {
        const std::unique_ptr<QMessageBox> box = Interaction::makeAlertBox(nullptr, alert);
        EXPECT_EQ(box->icon(), QMessageBox::Warning);
        EXPECT_EQ(box->informativeText(), alert.informativeText);
        EXPECT_EQ(box->defaultButton()->text(), alert.buttons.first());
        EXPECT_EQ(box->escapeButton()->text(), alert.buttons.last());
        QAbstractButton *button = buttonNamed(*box, alert.buttons.at(i));
        ASSERT_NE(button, nullptr);
        button->click();
        EXPECT_EQ(Interaction::alertReturn(*box), Interaction::kFirstButtonReturn + i);
    }
}

TEST(Interaction, AlertClosedWithoutAButtonAnswersAsItsLast) {
    const std::unique_ptr<QMessageBox> box = Interaction::makeAlertBox(nullptr, threeButtonAlert());
    EXPECT_EQ(Interaction::alertReturn(*box), Interaction::kFirstButtonReturn + 2);
    const std::unique_ptr<QMessageBox> bare = Interaction::makeAlertBox(nullptr, {});
    EXPECT_EQ(Interaction::alertReturn(*bare), Interaction::kFirstButtonReturn);
}

} // namespace
