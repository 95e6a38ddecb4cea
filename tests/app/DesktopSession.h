#pragma once

#include <QHash>
#include <QProcess>
#include <QProcessEnvironment>
#include <QRect>
#include <QStringList>
#include <QTemporaryDir>

#include <memory>
#include <optional>

struct xcb_connection_t;

// A throwaway desktop for whole-program tests: Xvfb on a display it picks itself, the tray host
// trayer when asked for, and a session bus, each stopped by pid when the object goes away.
// Windows are read through the X server as any other client reads them, and input goes in
// through xdotool as a person's would.
class DesktopSession {
public:
    // Programs this machine lacks for a session (with a tray), "" when it has them all.
    static QString missingPrograms(bool withTray);

    // runAs goes before every program started for the person (the bus and the applications),
    // for example setpriv with another account's ids.
    explicit DesktopSession(QStringList runAs = {});
    ~DesktopSession();
    DesktopSession(const DesktopSession &) = delete;
    DesktopSession &operator=(const DesktopSession &) = delete;

    // "" once the display, the bus and (withTray) the tray answer, else why not.
    QString start(bool withTray);

    // Added to the environment of every program started here.
    void insertVariable(const QString &name, const QString &value) { m_variables[name] = value; }
    // Where a person's program started here finds the display and the bus, with HOME and the
    // XDG folders under home.
    QProcessEnvironment environment(const QString &home) const;
    // Starts program with environment(home) as the person.
    std::unique_ptr<QProcess> launch(const QString &program, const QString &home) const;
    // Runs an X tool on this display and waits for it; true when it exits with 0.
    bool run(const QString &program, const QStringList &arguments) const;

    // The one mapped, ordinary top-level window of process pid, 0 when there is none.
    quint32 mappedWindowOf(qint64 pid) const;
    // A mapped pop-up (menu) of process pid, 0 when there is none.
    quint32 popupOf(qint64 pid) const;
    // The window of process pid inside the tray host's panel, 0 when there is none.
    quint32 trayIconOf(qint64 pid) const;
    QString titleOf(quint32 window) const;
    // In root coordinates.
    QRect geometryOf(quint32 window) const;
    QRect screenGeometry() const;
    // What a window manager's close button does: WM_DELETE_WINDOW.
    void askToClose(quint32 window) const;
    void move(quint32 window, const QPoint &topLeft) const;

private:
    quint32 root() const;
    QList<quint32> children(quint32 window) const;
    // Whether window is mapped, and then whether it bypasses the window manager (a pop-up).
    std::optional<bool> shownAsPopup(quint32 window) const;
    quint32 mappedTopLevelOf(qint64 pid, bool popup) const;
    quint32 atom(const char *name) const;
    QByteArray property(quint32 window, quint32 property) const;
    quint32 pidOf(quint32 window) const;
    bool trayIsOwned() const;
    QString startDisplay();
    QString startBus();
    QString startTray();
    void startAsPerson(QProcess *process, const QString &program,
                       const QStringList &arguments) const;

    const QStringList m_runAs;
    QTemporaryDir m_dir;
    QString m_display;
    QString m_busAddress;
    QHash<QString, QString> m_variables;
    QProcess m_xvfb;
    QProcess m_bus;
    QProcess m_tray;
    xcb_connection_t *m_connection = nullptr;
};
