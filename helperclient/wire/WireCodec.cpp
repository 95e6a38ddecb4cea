#include "helperclient/wire/WireCodec.h"

#include <QCborStreamReader>
#include <QCborStreamWriter>
#include <QCborValue>
#include <QtEndian>

using namespace Qt::StringLiterals;

namespace wire {
namespace {

void writeValue(QCborStreamWriter &writer, const QString &value) {
    writer.append(value);
}

void writeValue(QCborStreamWriter &writer, const QVariant &value) {
    QCborValue::fromVariant(value).toCbor(writer);
}

template <typename Map> void writeMap(QCborStreamWriter &writer, const Map &map) {
    writer.startMap(quint64(map.size()));
    for (auto it = map.cbegin(); it != map.cend(); ++it) {
        writer.append(it.key());
        writeValue(writer, it.value());
    }
    writer.endMap();
}

// Prefixes the body with its length, or gives nothing when the body is too big to send.
QByteArray frame(QByteArray body) {
    if (body.size() > kMaxMessageSize)
        return {};
    QByteArray out(kPrefixSize, Qt::Uninitialized);
    qToBigEndian(quint32(body.size()), out.data());
    out.append(body);
    return out;
}

// A strict reader: definite lengths only, text keys, no tags, nothing after the map. Values are
// text too, except in a reply map, where any well-formed value is taken as it is.
class StrictReader {
public:
    explicit StrictReader(QByteArrayView body)
        : m_bytes(QByteArray::fromRawData(body.data(), body.size()))
        , m_reader(m_bytes) {}

    bool startMap(quint64 *length) {
        if (!m_reader.isMap() || !m_reader.isLengthKnown())
            return false;
        *length = m_reader.length();
        return m_reader.enterContainer();
    }

    bool leaveMap() {
        if (m_reader.lastError() != QCborError::NoError || m_reader.hasNext())
            return false;
        return m_reader.leaveContainer();
    }

    bool readText(QString *text) {
        if (!m_reader.isString() || !m_reader.isLengthKnown())
            return false;
        text->clear();
        auto chunk = m_reader.readString();
        while (chunk.status == QCborStreamReader::Ok) {
            text->append(chunk.data);
            chunk = m_reader.readString();
        }
        return chunk.status == QCborStreamReader::EndOfString;
    }

    bool readUnsigned(quint64 *value) {
        if (!m_reader.isUnsignedInteger())
            return false;
        *value = m_reader.toUnsignedInteger();
        return m_reader.next();
    }

    bool readValue(QString *text) { return readText(text); }

    bool readValue(QVariant *value) {
        const QCborValue read = QCborValue::fromCbor(m_reader);
        if (m_reader.lastError() != QCborError::NoError)
            return false;
        *value = read.toVariant();
        return true;
    }

    template <typename Map> bool readMap(Map *map) {
        quint64 count = 0;
        if (!startMap(&count))
            return false;
        // Each entry needs at least two bytes, so a count beyond the body is a lie.
        if (count > quint64(m_bytes.size()))
            return false;
        for (quint64 i = 0; i < count; ++i) {
            QString key;
            typename Map::mapped_type value;
            if (!readText(&key) || !readValue(&value))
                return false;
            if (map->contains(key))
                return false;
            map->insert(key, value);
        }
        return leaveMap();
    }

    bool atCleanEnd() {
        return m_reader.lastError() == QCborError::NoError &&
               m_reader.currentOffset() == m_bytes.size();
    }

private:
    QByteArray m_bytes; // borrows the caller's bytes
    QCborStreamReader m_reader;
};

// Walks the top-level map; `field` consumes the value for a key and says whether it fitted.
template <typename Field>
bool readTopLevel(QByteArrayView body, quint64 expectedKeys, Field field) {
    if (body.isEmpty() || body.size() > kMaxMessageSize)
        return false;
    StrictReader reader(body);
    quint64 count = 0;
    if (!reader.startMap(&count) || count != expectedKeys)
        return false;
    QStringList seen;
    for (quint64 i = 0; i < count; ++i) {
        QString key;
        if (!reader.readText(&key) || seen.contains(key))
            return false;
        seen.append(key);
        if (!field(key, reader))
            return false;
    }
    return reader.leaveMap() && reader.atCleanEnd();
}

template <typename Map> QByteArray encodeReplyMap(quint64 id, const Map &reply) {
    QByteArray body;
    QCborStreamWriter writer(&body);
    writer.startMap(2);
    writer.append("id"_L1);
    writer.append(id);
    writer.append("reply"_L1);
    writeMap(writer, reply);
    writer.endMap();
    return frame(std::move(body));
}

} // namespace

QByteArray encodeRequest(const Request &request) {
    QByteArray body;
    QCborStreamWriter writer(&body);
    writer.startMap(3);
    writer.append("id"_L1);
    writer.append(request.id);
    writer.append("code"_L1);
    writer.append(request.code);
    writer.append("parameter"_L1);
    writeMap(writer, request.parameter);
    writer.endMap();
    return frame(std::move(body));
}

QByteArray encodeReply(const Reply &reply) {
    return encodeReplyMap(reply.id, reply.reply);
}

QByteArray encodeReply(quint64 id, const Dictionary &reply) {
    return encodeReplyMap(id, reply);
}

std::optional<Request> decodeRequest(QByteArrayView body) {
    Request request;
    const bool ok = readTopLevel(body, 3, [&](const QString &key, StrictReader &reader) {
        if (key == "id"_L1)
            return reader.readUnsigned(&request.id);
        if (key == "code"_L1)
            return reader.readUnsigned(&request.code);
        if (key == "parameter"_L1)
            return reader.readMap(&request.parameter);
        return false;
    });
    if (!ok)
        return std::nullopt;
    return request;
}

std::optional<Reply> decodeReply(QByteArrayView body) {
    Reply reply;
    const bool ok = readTopLevel(body, 2, [&](const QString &key, StrictReader &reader) {
        if (key == "id"_L1)
            return reader.readUnsigned(&reply.id);
        if (key == "reply"_L1)
            return reader.readMap(&reply.reply);
        return false;
    });
    if (!ok)
        return std::nullopt;
    return reply;
}

void FrameReader::append(QByteArrayView bytes) {
    if (m_failed)
        return;
    // Drop what was handed out before growing, so a long-lived connection does not accumulate.
    if (m_offset > 0) {
        m_buffer.remove(0, m_offset);
        m_offset = 0;
    }
    m_buffer.append(bytes);
}

FrameReader::Status FrameReader::next(QByteArray *body) {
    if (m_failed)
        return Status::Error;
    if (pending() < kPrefixSize)
        return Status::NeedMore;
    const quint32 length = qFromBigEndian<quint32>(m_buffer.constData() + m_offset);
    if (length > quint32(kMaxMessageSize)) {
        m_failed = true;
        m_buffer.clear();
        m_offset = 0;
        return Status::Error;
    }
    if (pending() - kPrefixSize < qsizetype(length))
        return Status::NeedMore;
    *body = m_buffer.mid(m_offset + kPrefixSize, length);
    m_offset += kPrefixSize + length;
    if (m_offset == m_buffer.size()) {
        m_buffer.clear();
        m_offset = 0;
    }
    return Status::Frame;
}

} // namespace wire
