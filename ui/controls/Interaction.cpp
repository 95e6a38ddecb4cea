#include "ui/controls/Interaction.h"

#include <QAbstractButton>
#include <QDesktopServices>
#include <QDialog>
#include <QFileDialog>
#include <QMessageBox>
#include <QPushButton>

namespace {

QMessageBox::Icon iconFor(Interaction::AlertStyle style) {
    switch (style) {
    case Interaction::AlertStyle::Warning:
        return QMessageBox::Warning;
    case Interaction::AlertStyle::Critical:
        return QMessageBox::Critical;
    case Interaction::AlertStyle::Informational:
        break;
    }
    return QMessageBox::Information;
}

// The first button is the affirmative one and the last of several the one Escape picks; the
// roles let the desktop's button order place them where its users look for them.
QMessageBox::ButtonRole roleFor(qsizetype index, qsizetype count) {
    if (index == 0)
        return QMessageBox::AcceptRole;
    return index == count - 1 ? QMessageBox::RejectRole : QMessageBox::ActionRole;
}

class DesktopInteraction final : public Interaction {
public:
    int runAlert(QWidget *parent, const Alert &alert) override {
        const std::unique_ptr<QMessageBox> box = makeAlertBox(parent, alert);
        box->exec();
        return alertReturn(*box);
    }

    int runModalForWindow(QDialog *dialog) override { return dialog->exec(); }

    void beginSheet(QDialog *sheet, QWidget *parent) override {
        if (parent && sheet->parentWidget() != parent)
            sheet->setParent(parent, sheet->windowFlags() | Qt::Dialog);
        sheet->setWindowModality(Qt::WindowModal);
        sheet->open();
    }

    QString chooseFolder(QWidget *parent, const QString &title,
                         const QString &startFolder) override {
        return QFileDialog::getExistingDirectory(parent, title, startFolder);
    }

    bool openUrl(const QUrl &url) override { return QDesktopServices::openUrl(url); }

    void requestReview() override {}
};

DesktopInteraction &desktopInteraction() {
    static DesktopInteraction interaction;
    return interaction;
}

Interaction *installed = nullptr;
const char *const kButtonIndexProperty = "vantreloAlertButtonIndex";

} // namespace

std::unique_ptr<QMessageBox> Interaction::makeAlertBox(QWidget *parent, const Alert &alert) {
    auto box = std::make_unique<QMessageBox>(iconFor(alert.style), alert.title, alert.text,
                                             QMessageBox::NoButton, parent);
    box->setInformativeText(alert.informativeText);
    for (qsizetype i = 0; i < alert.buttons.size(); ++i) {
        QPushButton *button = box->addButton(alert.buttons.at(i), roleFor(i, alert.buttons.size()));
        // The desktop may show the buttons in another order than they were given in.
        button->setProperty(kButtonIndexProperty, static_cast<int>(i));
        if (i == 0)
            box->setDefaultButton(button);
        box->setEscapeButton(button);
    }
    return box;
}

int Interaction::alertReturn(const QMessageBox &box) {
    // Closing the box without a button counts as its escape button, the last one.
    const QAbstractButton *button = box.clickedButton() ? box.clickedButton() : box.escapeButton();
    return kFirstButtonReturn + (button ? button->property(kButtonIndexProperty).toInt() : 0);
}

Interaction &Interaction::shared() {
    return installed ? *installed : desktopInteraction();
}

void Interaction::setShared(Interaction *interaction) {
    installed = interaction;
}
