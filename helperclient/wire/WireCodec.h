#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QMap>
#include <QString>
#include <QVariantMap>

#include <optional>

// Messages between the application and vantrelo-helper: a 4-byte big-endian length, then one
// CBOR map. Both sides treat anything but exactly this shape as a broken connection. A reply's
// values may be of any CBOR type, as the application must still hand an odd answer to its caller.
namespace wire {

inline constexpr qsizetype kMaxMessageSize = 64 * 1024; // body bytes, without the 4-byte prefix
inline constexpr qsizetype kPrefixSize = 4;
using Dictionary = QMap<QString, QString>; // request parameters, and the helper's own answers
using ReplyDictionary = QVariantMap;       // a reply as received: text keys, values of any type

struct Request {
    quint64 id = 0;
    quint64 code = 0;
    Dictionary parameter;
    friend bool operator==(const Request &, const Request &) = default;
};

struct Reply {
    quint64 id = 0;
    ReplyDictionary reply;
    friend bool operator==(const Reply &, const Reply &) = default;
};

// Whole frames: 4-byte big-endian length, then the CBOR map. Empty QByteArray if the body would
// exceed kMaxMessageSize.
QByteArray encodeRequest(const Request &request);
QByteArray encodeReply(const Reply &reply);
QByteArray encodeReply(quint64 id, const Dictionary &reply);

// Bodies (without the prefix). std::nullopt for anything but exactly the documented shape; in a
// reply map a key that is not text counts as a broken shape, a value of any type does not.
std::optional<Request> decodeRequest(QByteArrayView body);
std::optional<Reply> decodeReply(QByteArrayView body);

// Incremental reader over a byte stream.
class FrameReader {
public:
    enum class Status { NeedMore, Frame, Error }; // Error: oversize length prefix -> close
    void append(QByteArrayView bytes);
    Status next(QByteArray *body); // one complete body per Frame
    // Bytes received but not yet handed out.
    qsizetype pending() const { return m_buffer.size() - m_offset; }

private:
    QByteArray m_buffer;
    qsizetype m_offset = 0;
    bool m_failed = false;
};

} // namespace wire
