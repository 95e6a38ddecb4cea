#include "tests/app/DesktopSession.h"

#include "tests/support/SystemCommand.h"
#include "tests/support/Wait.h"

#include <QFile>

#include <xcb/xcb.h>

#include <cstdlib>
#include <cstring>

using namespace Qt::StringLiterals;

namespace {

constexpr int kStartWaitMs = 30000;

template <typename Reply> using ReplyPtr = std::unique_ptr<Reply, decltype(&std::free)>;

template <typename Reply> ReplyPtr<Reply> owned(Reply *reply) {
    return ReplyPtr<Reply>(reply, &std::free);
}

void stop(QProcess *process) {
    if (process->state() == QProcess::NotRunning)
        return;
    process->terminate();
    if (!process->waitForFinished(10000)) {
        process->kill();
        process->waitForFinished();
    }
}

// The first line a program prints, or "" when it ends or stays silent first.
QString firstLine(QProcess *process) {
    while (!process->canReadLine() && process->waitForReadyRead(kStartWaitMs)) {
    }
    return QString::fromLocal8Bit(process->readLine()).trimmed();
}

} // namespace

QString DesktopSession::missingPrograms(bool withTray) {
    QStringList missing;
    QStringList programs{u"Xvfb"_s, u"dbus-daemon"_s, u"xdotool"_s};
    if (withTray)
        programs << u"trayer"_s;
    for (const QString &program : std::as_const(programs))
        if (!testsupport::haveProgram(program))
            missing << program;
    return missing.join(u' ');
}

DesktopSession::DesktopSession(QStringList runAs)
    : m_runAs(std::move(runAs)) {}

DesktopSession::~DesktopSession() {
    stop(&m_tray);
    if (m_connection)
        xcb_disconnect(m_connection);
    stop(&m_bus);
    stop(&m_xvfb);
}

QString DesktopSession::start(bool withTray) {
    if (!m_dir.isValid())
        return u"no temporary folder"_s;
    QString why = startDisplay();
    if (why.isEmpty())
        why = startBus();
    if (why.isEmpty() && withTray)
        why = startTray();
    return why;
}

QString DesktopSession::startDisplay() {
    m_xvfb.setStandardErrorFile(m_dir.filePath(u"xvfb.log"_s));
    // With -displayfd Xvfb picks a free display and prints its number once it accepts clients.
    m_xvfb.start(u"Xvfb"_s, {u"-displayfd"_s, u"1"_s, u"-screen"_s, u"0"_s, u"1280x800x24"_s,
                             u"-nolisten"_s, u"tcp"_s, u"-ac"_s});
    const QString number = firstLine(&m_xvfb);
    if (number.isEmpty())
        return u"Xvfb did not start"_s;
    m_display = u':' + number;
    m_connection = xcb_connect(m_display.toLatin1().constData(), nullptr);
    return xcb_connection_has_error(m_connection) ? u"cannot reach "_s + m_display : QString();
}

QString DesktopSession::startBus() {
    m_bus.setStandardErrorFile(m_dir.filePath(u"bus.log"_s));
    startAsPerson(&m_bus, u"dbus-daemon"_s, {u"--session"_s, u"--nofork"_s, u"--print-address"_s});
    m_busAddress = firstLine(&m_bus);
    return m_busAddress.isEmpty() ? u"the session bus did not start"_s : QString();
}

QString DesktopSession::startTray() {
    m_tray.setProcessEnvironment(environment(m_dir.path()));
    m_tray.setStandardOutputFile(QProcess::nullDevice());
    m_tray.setStandardErrorFile(m_dir.filePath(u"trayer.log"_s));
    m_tray.start(u"trayer"_s, {u"--edge"_s, u"top"_s, u"--align"_s, u"right"_s, u"--widthtype"_s,
                               u"request"_s, u"--height"_s, u"24"_s});
    return testsupport::waitUntil([this] { return trayIsOwned(); })
               ? QString()
               : u"trayer never took the tray"_s;
}

QProcessEnvironment DesktopSession::environment(const QString &home) const {
    QProcessEnvironment environment;
    environment.insert(u"PATH"_s, qEnvironmentVariable("PATH"));
    environment.insert(u"DISPLAY"_s, m_display);
    environment.insert(u"DBUS_SESSION_BUS_ADDRESS"_s, m_busAddress);
    environment.insert(u"QT_QPA_PLATFORM"_s, u"xcb"_s);
    environment.insert(u"HOME"_s, home);
    environment.insert(u"XDG_CONFIG_HOME"_s, home + u"/.config"_s);
    environment.insert(u"XDG_DATA_HOME"_s, home + u"/.local/share"_s);
    environment.insert(u"XDG_RUNTIME_DIR"_s, home + u"/runtime"_s);
    for (auto it = m_variables.cbegin(); it != m_variables.cend(); ++it)
        environment.insert(it.key(), it.value());
    for (const char *sanitizer : {"ASAN_OPTIONS", "UBSAN_OPTIONS", "LSAN_OPTIONS"})
        if (qEnvironmentVariableIsSet(sanitizer))
            environment.insert(QString::fromLatin1(sanitizer), qEnvironmentVariable(sanitizer));
    // libxkbcommon-x11 gives strndup() key names that are not NUL-terminated, as strndup allows;
    // strict string checks would stop every program that connects to an X server.
    if (environment.contains(u"ASAN_OPTIONS"_s))
        environment.insert(u"ASAN_OPTIONS"_s,
                           environment.value(u"ASAN_OPTIONS"_s) + u":strict_string_checks=0"_s);
    return environment;
}

std::unique_ptr<QProcess> DesktopSession::launch(const QString &program,
                                                 const QString &home) const {
    auto process = std::make_unique<QProcess>();
    process->setProcessEnvironment(environment(home));
    process->setProcessChannelMode(QProcess::ForwardedChannels);
    startAsPerson(process.get(), program, {});
    return process;
}

void DesktopSession::startAsPerson(QProcess *process, const QString &program,
                                   const QStringList &arguments) const {
    const QStringList command = m_runAs + QStringList{program} + arguments;
    process->start(command.first(), command.mid(1));
}

bool DesktopSession::run(const QString &program, const QStringList &arguments) const {
    QProcess tool;
    tool.setProcessEnvironment(environment(m_dir.path()));
    tool.setProcessChannelMode(QProcess::ForwardedChannels);
    tool.start(program, arguments);
    return tool.waitForFinished(kStartWaitMs) && tool.exitStatus() == QProcess::NormalExit &&
           tool.exitCode() == 0;
}

quint32 DesktopSession::atom(const char *name) const {
    const auto reply = owned(xcb_intern_atom_reply(
        m_connection, xcb_intern_atom(m_connection, 0, uint16_t(qstrlen(name)), name), nullptr));
    return reply ? reply->atom : quint32(XCB_ATOM_NONE);
}

QByteArray DesktopSession::property(quint32 window, quint32 property) const {
    const auto reply = owned(xcb_get_property_reply(
        m_connection,
        xcb_get_property(m_connection, 0, window, property, XCB_GET_PROPERTY_TYPE_ANY, 0, 1024),
        nullptr));
    if (!reply)
        return {};
    return QByteArray(static_cast<const char *>(xcb_get_property_value(reply.get())),
                      xcb_get_property_value_length(reply.get()));
}

quint32 DesktopSession::pidOf(quint32 window) const {
    const QByteArray value = property(window, atom("_NET_WM_PID"));
    quint32 pid = 0;
    if (value.size() == sizeof pid)
        std::memcpy(&pid, value.constData(), sizeof pid);
    return pid;
}

quint32 DesktopSession::root() const {
    return xcb_setup_roots_iterator(xcb_get_setup(m_connection)).data->root;
}

QList<quint32> DesktopSession::children(quint32 window) const {
    const auto reply =
        owned(xcb_query_tree_reply(m_connection, xcb_query_tree(m_connection, window), nullptr));
    if (!reply)
        return {};
    const xcb_window_t *first = xcb_query_tree_children(reply.get());
    return QList<quint32>(first, first + xcb_query_tree_children_length(reply.get()));
}

std::optional<bool> DesktopSession::shownAsPopup(quint32 window) const {
    const auto reply = owned(xcb_get_window_attributes_reply(
        m_connection, xcb_get_window_attributes(m_connection, window), nullptr));
    if (!reply || reply->map_state != XCB_MAP_STATE_VIEWABLE)
        return std::nullopt;
    return reply->override_redirect != 0;
}

quint32 DesktopSession::mappedTopLevelOf(qint64 pid, bool popup) const {
    for (const quint32 window : children(root()))
        if (shownAsPopup(window) == popup && pidOf(window) == pid)
            return window;
    return 0;
}

quint32 DesktopSession::mappedWindowOf(qint64 pid) const {
    return mappedTopLevelOf(pid, false);
}

quint32 DesktopSession::popupOf(qint64 pid) const {
    return mappedTopLevelOf(pid, true);
}

quint32 DesktopSession::trayIconOf(qint64 pid) const {
    for (const quint32 panel : children(root())) {
        if (!property(panel, XCB_ATOM_WM_CLASS).contains("trayer"))
            continue;
        // The icon's window sits somewhere below the panel's embedding windows.
        for (QList<quint32> below = children(panel); !below.isEmpty();) {
            const quint32 window = below.takeFirst();
            if (pidOf(window) == pid && shownAsPopup(window).has_value())
                return window;
            below << children(window);
        }
    }
    return 0;
}

QString DesktopSession::titleOf(quint32 window) const {
    const QByteArray title = property(window, atom("_NET_WM_NAME"));
    return QString::fromUtf8(title.isEmpty() ? property(window, XCB_ATOM_WM_NAME) : title);
}

QRect DesktopSession::geometryOf(quint32 window) const {
    const auto reply = owned(
        xcb_get_geometry_reply(m_connection, xcb_get_geometry(m_connection, window), nullptr));
    if (!reply)
        return {};
    const auto origin = owned(xcb_translate_coordinates_reply(
        m_connection, xcb_translate_coordinates(m_connection, window, root(), 0, 0), nullptr));
    return origin ? QRect(origin->dst_x, origin->dst_y, reply->width, reply->height) : QRect();
}

QRect DesktopSession::screenGeometry() const {
    const xcb_screen_t *screen = xcb_setup_roots_iterator(xcb_get_setup(m_connection)).data;
    return QRect(0, 0, screen->width_in_pixels, screen->height_in_pixels);
}

void DesktopSession::askToClose(quint32 window) const {
    xcb_client_message_event_t event{};
    event.response_type = XCB_CLIENT_MESSAGE;
    event.format = 32;
    event.window = window;
    event.type = atom("WM_PROTOCOLS");
    event.data.data32[0] = atom("WM_DELETE_WINDOW");
    event.data.data32[1] = XCB_CURRENT_TIME;
    xcb_send_event(m_connection, 0, window, XCB_EVENT_MASK_NO_EVENT,
                   reinterpret_cast<const char *>(&event));
    xcb_flush(m_connection);
}

void DesktopSession::move(quint32 window, const QPoint &topLeft) const {
    const uint32_t position[] = {uint32_t(topLeft.x()), uint32_t(topLeft.y())};
    xcb_configure_window(m_connection, window, XCB_CONFIG_WINDOW_X | XCB_CONFIG_WINDOW_Y, position);
    xcb_flush(m_connection);
}

bool DesktopSession::trayIsOwned() const {
    const auto reply = owned(xcb_get_selection_owner_reply(
        m_connection, xcb_get_selection_owner(m_connection, atom("_NET_SYSTEM_TRAY_S0")), nullptr));
    return reply && reply->owner != XCB_WINDOW_NONE;
}
