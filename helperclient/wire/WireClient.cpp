#include "helperclient/wire/WireClient.h"

#include "helperclient/wire/HelperCommand.h"

#include <QFile>

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

using namespace Qt::StringLiterals;

namespace wire {

std::unique_ptr<WireClient> WireClient::connectTo(const QString &path, QString *why) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const QByteArray bytes = QFile::encodeName(path);
    if (size_t(bytes.size()) >= sizeof address.sun_path) {
        if (why)
            *why = u"path too long"_s;
        return nullptr;
    }
    std::memcpy(address.sun_path, bytes.constData(), size_t(bytes.size()));
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0 || ::connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0) {
        if (why)
            *why = QString::fromLocal8Bit(std::strerror(errno));
        if (fd >= 0)
            ::close(fd);
        return nullptr;
    }
    return std::unique_ptr<WireClient>(new WireClient(fd));
}

WireClient::~WireClient() {
    ::close(m_fd);
}

bool WireClient::sendRaw(QByteArrayView bytes) {
    qsizetype offset = 0;
    while (offset < bytes.size()) {
        const ssize_t n =
            ::send(m_fd, bytes.data() + offset, size_t(bytes.size() - offset), MSG_NOSIGNAL);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        offset += n;
    }
    return true;
}

bool WireClient::send(const wire::Request &request) {
    const QByteArray frame = wire::encodeRequest(request);
    if (frame.isEmpty()) {
        m_lastError = u"the request is too large to send"_s;
        return false;
    }
    if (!sendRaw(frame)) {
        m_lastError =
            u"the request could not be sent: "_s + QString::fromLocal8Bit(std::strerror(errno));
        return false;
    }
    return true;
}

ssize_t WireClient::receiveSome(char *buffer, size_t size, int guardMs) {
    for (;;) {
        pollfd pfd{m_fd, POLLIN, 0};
        const int ready = ::poll(&pfd, 1, guardMs);
        if (ready < 0 && errno == EINTR)
            continue;
        if (ready == 0)
            errno = ETIMEDOUT;
        return ready <= 0 ? -1 : ::recv(m_fd, buffer, size, 0);
    }
}

std::optional<wire::Reply> WireClient::receive(int guardMs) {
    m_lastError.clear();
    m_timedOut = false;
    for (;;) {
        QByteArray body;
        const auto status = m_reader.next(&body);
        if (status == wire::FrameReader::Status::Frame) {
            std::optional<wire::Reply> reply = wire::decodeReply(body);
            if (!reply)
                m_lastError = u"the helper sent a malformed reply"_s;
            return reply;
        }
        if (status == wire::FrameReader::Status::Error) {
            m_lastError = u"the helper sent a malformed frame"_s;
            return std::nullopt;
        }
        char buffer[16384];
        const ssize_t n = receiveSome(buffer, sizeof buffer, guardMs);
        if (n <= 0) {
            m_timedOut = n < 0 && errno == ETIMEDOUT;
            m_lastError = n == 0 ? u"the helper closed the connection without replying"_s
                                 : QString::fromLocal8Bit(std::strerror(errno));
            return std::nullopt;
        }
        m_reader.append(QByteArrayView(buffer, n));
    }
}

std::optional<wire::Reply> WireClient::call(quint64 code, const wire::Dictionary &parameter,
                                            int guardMs) {
    const quint64 id = m_nextId++;
    if (!send({id, code, parameter}))
        return std::nullopt;
    for (;;) {
        std::optional<wire::Reply> reply = receive(guardMs);
        if (!reply || reply->id == id)
            return reply;
    }
}

QString WireClient::result(quint64 code, const wire::Dictionary &parameter, int guardMs) {
    const auto reply = call(code, parameter, guardMs);
    if (!reply)
        return u"<no reply>"_s;
    return helpercommand::resultOf(reply->reply).value_or(u"<no result>"_s);
}

bool WireClient::closedByServer(int guardMs) {
    char buffer[4096];
    for (;;) {
        const ssize_t n = receiveSome(buffer, sizeof buffer, guardMs);
        if (n == 0 || (n < 0 && errno == ECONNRESET))
            return true;
        if (n < 0)
            return false;
    }
}

} // namespace wire
