#include "StandInHelper.h"

void StandInHelper::serve(QLocalSocket *socket) {
    QMutexLocker counting(&m_mutex);
    ++m_seen.connections;
    counting.unlock();
    auto reader = std::make_shared<wire::FrameReader>();
    QObject::connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
    QObject::connect(socket, &QLocalSocket::readyRead, m_context, [this, socket, reader] {
        reader->append(socket->readAll());
        QByteArray body;
        while (reader->next(&body) == wire::FrameReader::Status::Frame) {
            const auto request = wire::decodeRequest(body);
            QMutexLocker lock(&m_mutex);
            if (!request)
                return socket->abort();
            m_seen.requests.append(*request);
            const Response response = m_handler(*request);
            const auto released = response.kind == Response::Kind::Release
                                      ? std::exchange(m_held, {})
                                      : decltype(m_held)();
            if (response.kind == Response::Kind::Hold)
                m_held.append({socket, *request});
            lock.unlock();
            if (response.kind == Response::Kind::Close)
                return socket->disconnectFromServer();
            socket->write(response.bytes);
            for (auto it = released.crbegin(); it != released.crend(); ++it)
                if (it->first)
                    it->first->write(
                        reply(it->second, {{QStringLiteral("result"),
                                            it->second.parameter.value(QStringLiteral("bsdName"))}})
                            .bytes);
        }
        socket->flush(); // now, not on the next turn of the event loop
    });
}
