#include "helperclient/NTCommandHelper.h"

#include "helperclient/HelperConnection.h"
#include "util/InstallPaths.h"

#include <mutex>

// Owns the current connection; only ever touched on the channel thread.
class NTCommandHelper::Channel : public QObject {
public:
    void setup() {
        if (m_connection)
            m_connection->retire();
        auto *connection = new HelperConnection(InstallPaths::helperSocket(), this);
        m_connection = connection;
        // Replace a failed connection right away, so commands already queued behind the failure
        // go over a fresh one.
        connect(connection, &HelperConnection::failed, this, [this, connection] {
            if (m_connection == connection)
                setup();
        });
    }

    void send(quint64 code, const wire::Dictionary &parameter, ReplyHandler reply,
              ErrorHandler onError) {
        if (!m_connection)
            setup();
        m_connection->send(code, parameter, std::move(reply), std::move(onError));
    }

private:
    QPointer<HelperConnection> m_connection;
};

NTCommandHelper *NTCommandHelper::shared() {
    static std::once_flag once;
    static NTCommandHelper *instance = nullptr;
    std::call_once(once, [] { instance = new NTCommandHelper; });
    return instance;
}

NTCommandHelper::NTCommandHelper(QObject *parent)
    : QObject(parent) {
    m_thread.setObjectName(QStringLiteral("vantrelo-helper-channel"));
    m_channel = new Channel;
    m_channel->moveToThread(&m_thread);
    // Deleted on its own thread as the thread winds down, together with its sockets.
    connect(&m_thread, &QThread::finished, m_channel, &QObject::deleteLater);
    m_thread.start();
    setup();
}

NTCommandHelper::~NTCommandHelper() {
    m_thread.quit();
    m_thread.wait();
}

void NTCommandHelper::setup() {
    QMetaObject::invokeMethod(
        m_channel, [channel = m_channel] { channel->setup(); }, Qt::QueuedConnection);
}

void NTCommandHelper::sendCommand(quint64 code, const wire::Dictionary &parameter,
                                  ReplyHandler withReply) {
    sendCommand(code, parameter, std::move(withReply), {});
}

void NTCommandHelper::sendCommand(quint64 code, const wire::Dictionary &parameter,
                                  ReplyHandler withReply, ErrorHandler onError) {
    QMetaObject::invokeMethod(
        m_channel,
        [channel = m_channel, code, parameter, reply = std::move(withReply),
         error = std::move(onError)]() mutable {
            channel->send(code, parameter, std::move(reply), std::move(error));
        },
        Qt::QueuedConnection);
}
