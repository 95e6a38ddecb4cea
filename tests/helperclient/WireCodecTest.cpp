#include "helperclient/wire/WireCodec.h"

#include <QCborMap>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

// CBOR pieces, hex, for hand-built bodies.
constexpr const char *kId = "626964";
constexpr const char *kCode = "64636f6465";
constexpr const char *kParameter = "69706172616d65746572";
constexpr const char *kReplyKey = "657265706c79";
constexpr const char *kA = "6161";
constexpr const char *kB = "6162";

QByteArray hex(std::initializer_list<const char *> parts) {
    QByteArray joined;
    for (const char *part : parts)
        joined.append(part);
    return QByteArray::fromHex(joined);
}

QByteArray bodyOf(const QByteArray &frame) {
    return frame.mid(wire::kPrefixSize);
}

TEST(WireCodec, FramesAreExactAndRoundTrip) {
    EXPECT_EQ(bodyOf(wire::encodeRequest({2, 1, {{u"a"_s, u"b"_s}}})),
              hex({"a3", kId, "02", kCode, "01", kParameter, "a1", kA, kB}));
    EXPECT_EQ(wire::encodeReply({5, {{u"result"_s, QString()}}}).toHex(),
              "00000014a262696405657265706c79a166726573756c7460");

    const wire::Request requests[] = {
        {0, 0, {}},
        {std::numeric_limits<quint64>::max(),
         8,
         {{u"newName"_s, u"Ünïcødé 名前"_s}, {u"bsdName"_s, u"sdb1"_s}}},
        {42, 1u << 31, {{QString(), QString()}}},
    };
    for (const auto &request : requests) {
        const QByteArray frame = wire::encodeRequest(request);
        ASSERT_FALSE(frame.isEmpty());
        EXPECT_EQ(wire::decodeRequest(bodyOf(frame)), request);
        EXPECT_EQ(wire::decodeReply(bodyOf(frame)), std::nullopt);
    }
    const wire::Reply reply{77, {{u"result"_s, u"1.0.1"_s}, {u"extra"_s, u"x"_s}}};
    const QByteArray frame = wire::encodeReply(reply);
    EXPECT_EQ(wire::decodeReply(bodyOf(frame)), reply);
    EXPECT_EQ(wire::decodeRequest(bodyOf(frame)), std::nullopt);

    // The order of the map's keys does not matter.
    const auto reordered =
        wire::decodeRequest(hex({"a3", kParameter, "a0", kCode, "03", kId, "09"}));
    ASSERT_TRUE(reordered);
    EXPECT_EQ(*reordered, (wire::Request{9, 3, {}}));
}

TEST(WireCodec, SizeLimitHoldsBothWays) {
    // Find the value length that makes the body exactly the limit, then go one over.
    const auto bodySize = [](qsizetype valueLength) {
        const QByteArray frame =
            wire::encodeReply({1, {{u"result"_s, QString(valueLength, u'x')}}});
        return frame.isEmpty() ? qsizetype(-1) : frame.size() - wire::kPrefixSize;
    };
    const qsizetype fitting = 60000 + (wire::kMaxMessageSize - bodySize(60000));
    EXPECT_EQ(bodySize(fitting), wire::kMaxMessageSize);
    EXPECT_EQ(bodySize(fitting + 1), -1);
    EXPECT_TRUE(
        wire::encodeRequest({1, 0, {{u"mountPath"_s, QString(wire::kMaxMessageSize, u'y')}}})
            .isEmpty());

    // Decoding refuses an oversize body even when it is well formed.
    const QByteArray body =
        QCborMap{{u"id"_s, 1}, {u"reply"_s, QCborMap{{u"result"_s, QString(fitting + 1, u'z')}}}}
            .toCborValue()
            .toCbor();
    ASSERT_GT(body.size(), wire::kMaxMessageSize);
    EXPECT_EQ(wire::decodeReply(body), std::nullopt);
}

TEST(WireCodec, AnythingButTheExactShapeIsRejected) {
    const QByteArray valid = hex({"a3", kId, "01", kCode, "07", kParameter, "a1", kA, kB});
    // Each case differs from the valid body in one point.
    ASSERT_EQ(wire::decodeRequest(valid), (wire::Request{1, 7, {{u"a"_s, u"b"_s}}}));
    const auto withParameter = [](const char *parameter) {
        return hex({"a3", kId, "01", kCode, "07", kParameter, parameter});
    };
    const std::pair<const char *, QByteArray> requests[] = {
        {"empty", {}},
        {"array", hex({"83", "01", "07", "a0"})},
        {"missing parameter", hex({"a2", kId, "01", kCode, "07"})},
        {"extra key", hex({"a4", kId, "01", kCode, "07", kParameter, "a0", kA, kB})},
        {"duplicate key", hex({"a3", kId, "01", kId, "02", kParameter, "a0"})},
        {"unknown key for code", hex({"a3", kId, "01", kA, "07", kParameter, "a0"})},
        {"negative id", hex({"a3", kId, "20", kCode, "07", kParameter, "a0"})},
        {"text code", hex({"a3", kId, "01", kCode, kA, kParameter, "a0"})},
        {"float code", hex({"a3", kId, "01", kCode, "f93c00", kParameter, "a0"})},
        {"tagged id", hex({"a3", kId, "c101", kCode, "07", kParameter, "a0"})},
        {"parameter is an array", withParameter("80")},
        {"integer key", withParameter("a1016162")},
        {"byte string value", withParameter("a161614162")},
        {"nested map value", withParameter("a16161a0")},
        {"duplicate parameter key", withParameter("a26161616261616161")},
        {"indefinite top map", hex({"bf", kId, "01", kCode, "07", kParameter, "a0", "ff"})},
        {"indefinite parameter", withParameter("bfff")},
        {"indefinite string", withParameter("a161617f6162ff")},
        {"invalid UTF-8", withParameter("a1616161ff")},
        {"huge declared count", withParameter("bb00000000ffffffff")},
        {"trailing byte", valid + QByteArray(1, '\0')},
        {"truncated", valid.chopped(1)},
        {"truncated in a key", valid.left(5)},
    };
    for (const auto &[name, body] : requests)
        EXPECT_EQ(wire::decodeRequest(body), std::nullopt) << name;

    EXPECT_TRUE(wire::decodeReply(hex({"a2", kId, "01", kReplyKey, "a0"})));
    EXPECT_FALSE(wire::decodeReply(hex({"a1", kId, "01"})));
    EXPECT_FALSE(wire::decodeReply(hex({"a2", kId, "01", kParameter, "a0"})));
    EXPECT_FALSE(wire::decodeReply(hex({"a3", kId, "01", kReplyKey, "a0", kCode, "01"})));
    EXPECT_FALSE(wire::decodeReply(hex({"a2", kId, "01", kReplyKey, "a1", kA, "f4"})));
}

TEST(FrameReader, ReassemblesFramesHoweverTheBytesArrive) {
    const QByteArray stream =
        wire::encodeRequest({1, 7, {}}) + wire::encodeRequest({2, 3, {{u"bsdName"_s, u"sdb1"_s}}});
    for (qsizetype chunk : {qsizetype(1), qsizetype(3), qsizetype(29), stream.size()}) {
        wire::FrameReader reader;
        QList<QByteArray> bodies;
        for (qsizetype at = 0; at < stream.size(); at += chunk) {
            reader.append(stream.mid(at, chunk));
            QByteArray body;
            while (reader.next(&body) == wire::FrameReader::Status::Frame)
                bodies.append(body);
        }
        ASSERT_EQ(bodies.size(), 2) << chunk;
        EXPECT_EQ(wire::decodeRequest(bodies[0])->code, 7u);
        EXPECT_EQ(wire::decodeRequest(bodies[1])->parameter.value(u"bsdName"_s), u"sdb1"_s);
        EXPECT_EQ(reader.pending(), 0);
    }
}

TEST(FrameReader, LengthPrefixLimits) {
    wire::FrameReader atLimit;
    atLimit.append(QByteArray::fromHex("00010000"));
    QByteArray body("stale");
    EXPECT_EQ(atLimit.next(&body), wire::FrameReader::Status::NeedMore);
    atLimit.append(QByteArray(wire::kMaxMessageSize, 'x'));
    EXPECT_EQ(atLimit.next(&body), wire::FrameReader::Status::Frame);
    EXPECT_EQ(body.size(), wire::kMaxMessageSize);

    // An empty frame is handed out and then fails to decode.
    wire::FrameReader empty;
    empty.append(QByteArray(4, '\0'));
    ASSERT_EQ(empty.next(&body), wire::FrameReader::Status::Frame);
    EXPECT_TRUE(body.isEmpty());
    EXPECT_EQ(wire::decodeReply(body), std::nullopt);

    // Oversize is an error that stays.
    for (const char *prefix : {"00010001", "ffffffff", "80000000"}) {
        wire::FrameReader reader;
        reader.append(QByteArray(QByteArray::fromHex(prefix) + QByteArray(16, 'x')));
        EXPECT_EQ(reader.next(&body), wire::FrameReader::Status::Error) << prefix;
        reader.append(wire::encodeReply({1, {}}));
        EXPECT_EQ(reader.next(&body), wire::FrameReader::Status::Error) << prefix;
    }
}

} // namespace
