#pragma once

#include <QString>
#include <QStringList>
#include <QUrl>

#include <memory>

class QDialog;
class QMessageBox;
class QWidget;

// Everything modal or outward-facing goes through here, so tests can answer and observe it
// instead of blocking in a modal loop or opening a browser.
class Interaction {
public:
    enum class AlertStyle { Informational, Warning, Critical };
    struct Alert {
        QString title;
        QString text;
        // The first is the affirmative one.
        QStringList buttons;
        AlertStyle style = AlertStyle::Informational;
        // Details under the message, such as the reason a helper gave; none when empty.
        QString informativeText{};
    };
    // The first button answers 1000, the second 1001, and so on.
    static constexpr int kFirstButtonReturn = 1000;

    virtual ~Interaction() = default;

    // Application-modal; Escape or closing the alert answers as its last button.
    virtual int runAlert(QWidget *parent, const Alert &alert) = 0;
    // Application-modal; returns when the dialog closes, with its result.
    virtual int runModalForWindow(QDialog *dialog) = 0;
    // Window-modal on parent; returns at once.
    virtual void beginSheet(QDialog *sheet, QWidget *parent) = 0;
    // "" when the chooser was cancelled.
    virtual QString chooseFolder(QWidget *parent, const QString &title,
                                 const QString &startFolder) = 0;
    virtual bool openUrl(const QUrl &url) = 0;
    // A place a software centre could ask for a review; nothing on Linux.
    virtual void requestReview() = 0;

    // The box runAlert shows: the buttons in order, the first the default, the last the one
    // Escape and closing the window choose.
    static std::unique_ptr<QMessageBox> makeAlertBox(QWidget *parent, const Alert &alert);
    // The answer for the button the box was closed with (1000 + its index).
    static int alertReturn(const QMessageBox &box);

    // The real one unless a test installed its own (nullptr puts the real one back).
    static Interaction &shared();
    static void setShared(Interaction *interaction);
};
