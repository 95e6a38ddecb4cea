#pragma once

#include <QDialog>

// A dialog run application-modal, centred on the window that presents it. While it observes
// window closes, the close of any window of the application ends its modal session, its own
// close box included.
class NTModalWindowController : public QDialog {
    Q_OBJECT
public:
    // The origin that centres a window of size on parent.
    static QPoint centredOrigin(const QRect &parent, const QSize &size);

    // Moves the dialog to the centre of parent's window (when there is one) and runs it modally
    // through Interaction; returns when the session ends.
    int runModalCentredOn(QWidget *parent);

protected:
    explicit NTModalWindowController(QWidget *parent = nullptr);

    // From now on, every window that closes reaches windowWillCloseWithNotification().
    void observeWindowWillClose();
    // Ends the modal session, whichever window closed.
    void windowWillCloseWithNotification();
    bool eventFilter(QObject *watched, QEvent *event) override;
};
