#pragma once

#include "helperclient/wire/WireCodec.h"

#include <QString>

#include <memory>
#include <optional>

namespace wire {

// A blocking client of the helper socket. A person at a terminal, a test or a benchmark waits
// for one answer at a time, so it needs neither an event loop nor a thread.
class WireClient {
public:
    static std::unique_ptr<WireClient> connectTo(const QString &path, QString *why = nullptr);
    ~WireClient();
    WireClient(const WireClient &) = delete;
    WireClient &operator=(const WireClient &) = delete;

    bool sendRaw(QByteArrayView bytes);
    bool send(const wire::Request &request);
    // The next reply; nullopt when the connection closed, broke, or nothing came within the guard
    // (lastError() says which).
    std::optional<wire::Reply> receive(int guardMs = 300000);
    // Sends and waits for the reply with the same id.
    std::optional<wire::Reply> call(quint64 code, const wire::Dictionary &parameter = {},
                                    int guardMs = 300000);
    // The result text of call(), "<no reply>", or "<no result>" when it is missing or not text.
    QString result(quint64 code, const wire::Dictionary &parameter = {}, int guardMs = 300000);
    // True when the server closes the connection (reads until end of stream).
    bool closedByServer(int guardMs = 30000);
    QString lastError() const { return m_lastError; }
    bool timedOut() const { return m_timedOut; }

private:
    explicit WireClient(int fd)
        : m_fd(fd) {}
    // Waits for bytes or the end of the stream; recv()'s result, or -1 when nothing came.
    ssize_t receiveSome(char *buffer, size_t size, int guardMs);
    int m_fd;
    quint64 m_nextId = 1;
    wire::FrameReader m_reader;
    QString m_lastError;
    bool m_timedOut = false;
};

} // namespace wire
