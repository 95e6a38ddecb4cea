#pragma once

#include "ui/controls/Interaction.h"

#include <QList>
#include <QPointer>
#include <QQueue>

#include <functional>

// Stands in for Interaction::shared() while it lives: records everything the code under test
// shows or opens, answers alerts and folder choosers from queues the test fills, and hands each
// modal dialog to a test callback instead of running a modal loop.
class RecordingInteraction final : public Interaction {
public:
    struct FolderRequest {
        QPointer<QWidget> parent;
        QString title;
        QString startFolder;
    };
    struct Sheet {
        QPointer<QDialog> sheet;
        QPointer<QWidget> parent;
    };

    RecordingInteraction();
    ~RecordingInteraction() override;
    RecordingInteraction(const RecordingInteraction &) = delete;
    RecordingInteraction &operator=(const RecordingInteraction &) = delete;

    // Answers, taken from the front. An empty alert queue answers as Escape would (the last
    // button); an empty folder queue as a cancelled chooser ("").
    QQueue<int> alertAnswers;
    QQueue<QString> folderAnswers;
    // Runs on each modal dialog, shown; it may type and click. A dialog still open afterwards is
    // rejected, as if its window was closed.
    std::function<void(QDialog *)> onModal;
    // Whether openUrl reports success.
    bool urlOpens = true;

    QList<Alert> alerts;
    QList<QUrl> openedUrls;
    QList<FolderRequest> folderRequests;
    QList<Sheet> sheets;
    QList<QPointer<QDialog>> modalDialogs;
    int reviewRequests = 0;

    int runAlert(QWidget *parent, const Alert &alert) override;
    int runModalForWindow(QDialog *dialog) override;
    void beginSheet(QDialog *sheet, QWidget *parent) override;
    QString chooseFolder(QWidget *parent, const QString &title,
                         const QString &startFolder) override;
    bool openUrl(const QUrl &url) override;
    void requestReview() override;

private:
    Interaction *const m_previous;
};
