#include "ui/controls/Interaction.h"

#include "tests/support/RecordingInteraction.h"

#include <QDialog>
#include <QDialogButtonBox>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QTest>
#include <QVBoxLayout>

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

TEST(RecordingInteraction, StandsInWhileItLives) {
    Interaction *real = &Interaction::shared();
    {
        RecordingInteraction recording;
        EXPECT_EQ(&Interaction::shared(), &recording);
        recording.alertAnswers.enqueue(Interaction::kFirstButtonReturn);
        recording.folderAnswers.enqueue(QStringLiteral("/media/usb"));
        Interaction &shared = Interaction::shared();
        EXPECT_EQ(shared.runAlert(nullptr, threeButtonAlert()), 1000);
        EXPECT_EQ(shared.runAlert(nullptr, threeButtonAlert()), 1002);
        EXPECT_EQ(shared.chooseFolder(nullptr, QStringLiteral("Pick"), QStringLiteral("/")),
                  QStringLiteral("/media/usb"));
        EXPECT_EQ(shared.chooseFolder(nullptr, QStringLiteral("Pick"), QStringLiteral("/")),
                  QString());
        EXPECT_TRUE(shared.openUrl(QUrl(QStringLiteral("https://example.org/guide"))));
        EXPECT_EQ(recording.alerts.size(), 2);
        EXPECT_EQ(recording.folderRequests.size(), 2);
        EXPECT_EQ(recording.openedUrls,
                  QList<QUrl>{QUrl(QStringLiteral("https://example.org/guide"))});
    }
    EXPECT_EQ(&Interaction::shared(), real);
}

TEST(RecordingInteraction, ModalDialogsRunTheTestsCallback) {
    QDialog dialog;
    auto *edit = new QLineEdit(&dialog);
    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, &dialog);
    auto *layout = new QVBoxLayout(&dialog);
    layout->addWidget(edit);
    layout->addWidget(buttons);
    QObject::connect(buttons, &QDialogButtonBox::accepted, &dialog, &QDialog::accept);
    QObject::connect(buttons, &QDialogButtonBox::rejected, &dialog, &QDialog::reject);

    RecordingInteraction recording;
    recording.onModal = [&](QDialog *shown) {
        EXPECT_TRUE(shown->isVisible());
        QTest::keyClicks(edit, QStringLiteral("Backup"));
        QTest::mouseClick(buttons->button(QDialogButtonBox::Ok), Qt::LeftButton);
    };
    EXPECT_EQ(Interaction::shared().runModalForWindow(&dialog), QDialog::Accepted);
    EXPECT_EQ(edit->text(), QStringLiteral("Backup"));
    EXPECT_FALSE(dialog.isVisible());

    // Left open, it counts as closed.
    recording.onModal = nullptr;
    EXPECT_EQ(Interaction::shared().runModalForWindow(&dialog), QDialog::Rejected);
    EXPECT_FALSE(dialog.isVisible());
    EXPECT_EQ(recording.modalDialogs.size(), 2);
}

} // namespace
