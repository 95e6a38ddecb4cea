#include "ui/mainwindow/NTModalWindowController.h"

#include "ui/controls/Interaction.h"

#include <QApplication>
#include <QEvent>

NTModalWindowController::NTModalWindowController(QWidget *parent)
    : QDialog(parent) {}

QPoint NTModalWindowController::centredOrigin(const QRect &parent, const QSize &size) {
    return {qRound(parent.x() + (parent.width() - size.width()) * 0.5),
            qRound(parent.y() + (parent.height() - size.height()) * 0.5)};
}

int NTModalWindowController::runModalCentredOn(QWidget *parent) {
    if (parent) {
        adjustSize();
        // The frames are not known before the dialog shows; centring the contents centres the
        // frames as well, their edges being alike.
        setGeometry(QRect(centredOrigin(parent->window()->geometry(), size()), size()));
    }
    return Interaction::shared().runModalForWindow(this);
}

void NTModalWindowController::observeWindowWillClose() {
    qApp->installEventFilter(this);
}

void NTModalWindowController::windowWillCloseWithNotification() {
    // Closing is what ends a dialog's modal session; a hidden dialog has none to end.
    if (isVisible())
        close();
}

bool NTModalWindowController::eventFilter(QObject *watched, QEvent *event) {
    if (event->type() == QEvent::Close && watched->isWidgetType() &&
        static_cast<QWidget *>(watched)->isWindow())
        windowWillCloseWithNotification();
    return QDialog::eventFilter(watched, event);
}
