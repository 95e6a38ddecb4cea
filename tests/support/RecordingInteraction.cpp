#include "tests/support/RecordingInteraction.h"

#include <QDialog>

RecordingInteraction::RecordingInteraction()
    : m_previous(&Interaction::shared()) {
    Interaction::setShared(this);
}

RecordingInteraction::~RecordingInteraction() {
    Interaction::setShared(m_previous);
}

int RecordingInteraction::runAlert(QWidget *, const Alert &alert) {
    alerts.append(alert);
    if (!alertAnswers.isEmpty())
        return alertAnswers.dequeue();
    return kFirstButtonReturn + static_cast<int>(qMax<qsizetype>(alert.buttons.size() - 1, 0));
}

int RecordingInteraction::runModalForWindow(QDialog *dialog) {
    modalDialogs.append(dialog);
    dialog->setResult(QDialog::Rejected);
    dialog->show();
    if (onModal)
        onModal(dialog);
    if (dialog->isVisible())
        dialog->reject();
    return dialog->result();
}

void RecordingInteraction::beginSheet(QDialog *sheet, QWidget *parent) {
    sheets.append({sheet, parent});
    // A sheet does not block, so it opens for real; the test finds and answers it.
    sheet->setWindowModality(Qt::WindowModal);
    sheet->open();
}

QString RecordingInteraction::chooseFolder(QWidget *parent, const QString &title,
                                           const QString &startFolder) {
    folderRequests.append({parent, title, startFolder});
    return folderAnswers.isEmpty() ? QString() : folderAnswers.dequeue();
}

bool RecordingInteraction::openUrl(const QUrl &url) {
    openedUrls.append(url);
    return urlOpens;
}

void RecordingInteraction::requestReview() {
    ++reviewRequests;
}
