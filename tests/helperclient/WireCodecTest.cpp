#include "helperclient/wire/WireCodec.h"

#include "helperclient/wire/HelperCommand.h"

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

// Hex with the keys spelled out, spaces ignored.
QByteArray cbor(QByteArray text) {
    return QByteArray::fromHex(text.replace("ID", "626964")
                                   .replace("CODE", "64636f6465")
                                   .replace("PARAM", "69706172616d65746572")
                                   .replace("REPLY", "657265706c79")
                                   .replace("RESULT", "66726573756c74")
                                   .replace(" ", ""));
}

TEST(WireCodec, FramesAreExactRoundTripAndStayWithinTheLimit) {
    EXPECT_EQ(wire::encodeRequest({2, 1, {{u"a"_s, u"b"_s}}}),
              cbor("0000001a a3 ID 02 CODE 01 PARAM a1 6161 6162"));
    EXPECT_EQ(wire::encodeReply({5, {{u"result"_s, QString()}}}),
              cbor("00000014 a2 ID 05 REPLY a1 66726573756c74 60"));
    const wire::Request request{
        ~quint64(0), 8, {{u"n"_s, u"Ünïcødé 名前"_s}, {QString(), QString()}}};
    EXPECT_EQ(wire::decodeRequest(wire::encodeRequest(request).mid(4)), request);
    EXPECT_EQ(wire::decodeRequest(cbor("a3 PARAM a0 CODE 03 ID 09")), (wire::Request{9, 3, {}}));

    const auto frameOf = [](qsizetype length) {
        return wire::encodeReply({1, {{u"result"_s, QString(length, u'x')}}});
    };
    // The value length that makes the body exactly the limit, then one more.
    const qsizetype fitting = 60000 + wire::kMaxMessageSize + 4 - frameOf(60000).size();
    EXPECT_EQ(frameOf(fitting).size(), 4 + wire::kMaxMessageSize);
    EXPECT_TRUE(frameOf(fitting + 1).isEmpty());
}

TEST(WireCodec, AnythingButTheExactShapeIsRejected) {
    const QByteArray valid = cbor("a3 ID 01 CODE 07 PARAM a1 6161 6162");
    ASSERT_EQ(wire::decodeRequest(valid), (wire::Request{1, 7, {{u"a"_s, u"b"_s}}}));
    const std::pair<const char *, QByteArray> requests[] = {
        {"empty", {}},
        {"missing key", cbor("a2 ID 01 CODE 07")},
        {"extra key", cbor("a4 ID 01 CODE 07 PARAM a0 6161 6162")},
        {"unknown key", cbor("a3 ID 01 6161 07 PARAM a0")},
        {"duplicate key", cbor("a3 ID 01 ID 02 PARAM a0")},
        {"duplicate parameter key", cbor("a3 ID 01 CODE 07 PARAM a2 6161 6162 6161 6161")},
        {"text code", cbor("a3 ID 01 CODE 6161 PARAM a0")},
        {"byte string value", cbor("a3 ID 01 CODE 07 PARAM a1 6161 4162")},
        {"indefinite map", cbor("a3 ID 01 CODE 07 PARAM bfff")},
        {"invalid UTF-8", cbor("a3 ID 01 CODE 07 PARAM a1 6161 61ff")},
        {"oversize", cbor("a3 ID 01 CODE 07 PARAM a1 6161 7a00010000") + QByteArray(65536, 'z')},
        {"trailing byte", valid + '\0'},
        {"truncated", valid.chopped(1)},
    };
    for (const auto &[name, body] : requests)
        EXPECT_EQ(wire::decodeRequest(body), std::nullopt) << name;

    const std::pair<const char *, QByteArray> replies[] = {
        {"text id", cbor("a2 ID 6161 REPLY a0")},
        {"missing reply", cbor("a1 ID 01")},
        {"reply not a map", cbor("a2 ID 01 REPLY 60")},
        {"number key", cbor("a2 ID 01 REPLY a1 01 60")},
        {"duplicate reply key", cbor("a2 ID 01 REPLY a2 RESULT 01 RESULT 02")},
        {"invalid UTF-8 value", cbor("a2 ID 01 REPLY a1 RESULT 81 61ff")},
        {"truncated value", cbor("a2 ID 01 REPLY a1 RESULT a1 6161")},
    };
    for (const auto &[name, body] : replies)
        EXPECT_EQ(wire::decodeReply(body), std::nullopt) << name;
}

// Whatever a well-formed reply holds reaches the caller, but only text is a result.
TEST(WireCodec, ReplyValuesKeepTheirTypesAndOnlyTextIsAResult) {
    const std::tuple<const char *, QByteArray, QMetaType::Type> values[] = {
        {"text", cbor("62 6f6b"), QMetaType::QString},
        {"text in chunks", cbor("7f 616f 616b ff"), QMetaType::QString},
        {"number", cbor("05"), QMetaType::LongLong},
        {"true", cbor("f5"), QMetaType::Bool},
        {"null", cbor("f6"), QMetaType::Nullptr},
        {"bytes", cbor("42 6f6b"), QMetaType::QByteArray},
        {"map", cbor("a1 01 02"), QMetaType::QVariantMap},
        {"list", cbor("82 01 616f"), QMetaType::QVariantList},
    };
    for (const auto &[name, value, type] : values) {
        SCOPED_TRACE(name);
        const QByteArray body = cbor("a2 ID 03 REPLY a2 RESULT") + value + cbor("6161 f4");
        const auto reply = wire::decodeReply(body);
        ASSERT_TRUE(reply);
        EXPECT_EQ(reply->id, 3u);
        EXPECT_EQ(reply->reply.value(u"result"_s).typeId(), type);
        EXPECT_EQ(reply->reply.value(u"a"_s), QVariant(false));
        EXPECT_EQ(helpercommand::resultOf(reply->reply).has_value(), type == QMetaType::QString);
        EXPECT_EQ(wire::decodeReply(wire::encodeReply(*reply).mid(4)), reply);
    }
}

TEST(FrameReader, ReassemblesFramesUpToTheLimitAndStopsForGoodAtAnOversizeLength) {
    const QByteArray stream = wire::encodeRequest({1, 7, {}}) + QByteArray::fromHex("00010000") +
                              QByteArray(wire::kMaxMessageSize, 'x');
    for (qsizetype chunk : {qsizetype(1), qsizetype(3), stream.size()}) {
        wire::FrameReader reader;
        QList<QByteArray> bodies;
        for (qsizetype at = 0; at < stream.size(); at += chunk) {
            reader.append(stream.mid(at, chunk));
            for (QByteArray body; reader.next(&body) == wire::FrameReader::Status::Frame;)
                bodies.append(body);
        }
        ASSERT_EQ(bodies.size(), 2) << chunk;
        EXPECT_EQ(wire::decodeRequest(bodies[0]), (wire::Request{1, 7, {}}));
        EXPECT_EQ(bodies[1].size(), wire::kMaxMessageSize);
        EXPECT_EQ(reader.pending(), 0);
    }
    wire::FrameReader reader;
    QByteArray body;
    reader.append(QByteArray::fromHex("00010001"));
    EXPECT_EQ(reader.next(&body), wire::FrameReader::Status::Error);
    reader.append(wire::encodeReply({1, {}}));
    EXPECT_EQ(reader.next(&body), wire::FrameReader::Status::Error);
}

} // namespace
