#include "helperclient/wire/WireCodec.h"

#include <QCborStreamWriter>

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

TEST(WireCodec, RequestBytesAreExact) {
    const QByteArray frame = wire::encodeRequest({1, 7, {}});
    EXPECT_EQ(frame.toHex(), QByteArray("00000016a3626964016463"
                                        "6f64650769706172616d65746572a0"));

    const QByteArray withParameter = wire::encodeRequest({2, 1, {{u"a"_s, u"b"_s}}});
    EXPECT_EQ(bodyOf(withParameter), hex({"a3", kId, "02", kCode, "01", kParameter, "a1", kA, kB}));
}

TEST(WireCodec, ReplyBytesAreExact) {
    const QByteArray frame = wire::encodeReply({5, {{u"result"_s, QString()}}});
    EXPECT_EQ(frame.toHex(), QByteArray("00000014a2626964056572"
                                        "65706c79a166726573756c7460"));
}

TEST(WireCodec, RoundTripsKeepEverything) {
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
}

TEST(WireCodec, KeyOrderOfTheMapDoesNotMatter) {
    const auto request = wire::decodeRequest(hex({"a3", kParameter, "a0", kCode, "03", kId, "09"}));
    ASSERT_TRUE(request);
    EXPECT_EQ(request->id, 9u);
    EXPECT_EQ(request->code, 3u);
    EXPECT_TRUE(request->parameter.isEmpty());
}

TEST(WireCodec, EncodingStopsAtTheSizeLimit) {
    // Find the value length that makes the body exactly the limit, then go one over.
    const auto bodySize = [](qsizetype valueLength) {
        const QByteArray frame =
            wire::encodeReply({1, {{u"result"_s, QString(valueLength, u'x')}}});
        return frame.isEmpty() ? qsizetype(-1) : frame.size() - wire::kPrefixSize;
    };
    const qsizetype probe = 60000;
    const qsizetype fitting = probe + (wire::kMaxMessageSize - bodySize(probe));
    EXPECT_EQ(bodySize(fitting), wire::kMaxMessageSize);
    EXPECT_EQ(bodySize(fitting + 1), -1);

    const QString big(wire::kMaxMessageSize, u'y');
    EXPECT_TRUE(wire::encodeRequest({1, 0, {{u"mountPath"_s, big}}}).isEmpty());
}

TEST(WireCodec, OversizeBodyIsRejectedEvenWhenWellFormed) {
    QByteArray body;
    QCborStreamWriter writer(&body);
    writer.startMap(2);
    writer.append("id"_L1);
    writer.append(quint64(1));
    writer.append("reply"_L1);
    writer.startMap(1);
    writer.append("result"_L1);
    writer.append(QString(wire::kMaxMessageSize, u'z'));
    writer.endMap();
    writer.endMap();
    ASSERT_GT(body.size(), wire::kMaxMessageSize);
    EXPECT_EQ(wire::decodeReply(body), std::nullopt);
}

struct BadBody {
    const char *name;
    QByteArray body;
};

class WireCodecRejectsRequest : public testing::TestWithParam<BadBody> {};

TEST_P(WireCodecRejectsRequest, Case) {
    EXPECT_EQ(wire::decodeRequest(GetParam().body), std::nullopt);
}

const QByteArray kValidRequest = hex({"a3", kId, "01", kCode, "07", kParameter, "a1", kA, kB});

INSTANTIATE_TEST_SUITE_P(
    Shapes, WireCodecRejectsRequest,
    testing::Values(
        BadBody{"Empty", {}}, BadBody{"Array", hex({"83", "01", "07", "a0"})},
        BadBody{"MissingParameter", hex({"a2", kId, "01", kCode, "07"})},
        BadBody{"ExtraKey", hex({"a4", kId, "01", kCode, "07", kParameter, "a0", kA, kB})},
        BadBody{"DuplicateKey", hex({"a3", kId, "01", kId, "02", kParameter, "a0"})},
        BadBody{"UnknownKeyInsteadOfCode", hex({"a3", kId, "01", kA, "07", kParameter, "a0"})},
        BadBody{"NegativeId", hex({"a3", kId, "20", kCode, "07", kParameter, "a0"})},
        BadBody{"TextCode", hex({"a3", kId, "01", kCode, kA, kParameter, "a0"})},
        BadBody{"FloatCode", hex({"a3", kId, "01", kCode, "f93c00", kParameter, "a0"})},
        BadBody{"TaggedId", hex({"a3", kId, "c101", kCode, "07", kParameter, "a0"})},
        BadBody{"BooleanCode", hex({"a3", kId, "01", kCode, "f5", kParameter, "a0"})},
        BadBody{"ParameterIsArray", hex({"a3", kId, "01", kCode, "07", kParameter, "80"})},
        BadBody{"ParameterMissingValue", hex({"a3", kId, "01", kCode, "07", kParameter})},
        BadBody{"IntegerValue", hex({"a3", kId, "01", kCode, "07", kParameter, "a1", kA, "01"})},
        BadBody{"IntegerKey", hex({"a3", kId, "01", kCode, "07", kParameter, "a1", "01", kB})},
        BadBody{"ByteStringValue",
                hex({"a3", kId, "01", kCode, "07", kParameter, "a1", kA, "4162"})},
        BadBody{"NullValue", hex({"a3", kId, "01", kCode, "07", kParameter, "a1", kA, "f6"})},
        BadBody{"NestedMapValue", hex({"a3", kId, "01", kCode, "07", kParameter, "a1", kA, "a0"})},
        BadBody{"DuplicateParameterKey",
                hex({"a3", kId, "01", kCode, "07", kParameter, "a2", kA, kB, kA, kA})},
        BadBody{"IndefiniteTopMap", hex({"bf", kId, "01", kCode, "07", kParameter, "a0", "ff"})},
        BadBody{"IndefiniteParameter", hex({"a3", kId, "01", kCode, "07", kParameter, "bf", "ff"})},
        BadBody{"IndefiniteString",
                hex({"a3", kId, "01", kCode, "07", kParameter, "a1", kA, "7f", kB, "ff"})},
        BadBody{"InvalidUtf8", hex({"a3", kId, "01", kCode, "07", kParameter, "a1", kA, "61ff"})},
        BadBody{"HugeDeclaredCount",
                hex({"a3", kId, "01", kCode, "07", kParameter, "bb00000000ffffffff"})},
        BadBody{"TrailingByte", QByteArray(kValidRequest + QByteArray(1, '\0'))},
        BadBody{"TrailingMap", QByteArray(kValidRequest + QByteArray::fromHex("a0"))},
        BadBody{"Truncated", kValidRequest.chopped(1)},
        BadBody{"TruncatedInKey", kValidRequest.left(5)}),
    [](const testing::TestParamInfo<BadBody> &param) { return std::string(param.param.name); });

TEST(WireCodec, ValidRequestFixtureIsAccepted) {
    // Guards the rejection table above: its cases differ from this body in one point each.
    const auto request = wire::decodeRequest(kValidRequest);
    ASSERT_TRUE(request);
    EXPECT_EQ(request->parameter.value(u"a"_s), u"b"_s);
}

TEST(WireCodec, ReplyShapeIsStrict) {
    EXPECT_TRUE(wire::decodeReply(hex({"a2", kId, "01", kReplyKey, "a0"})));
    EXPECT_FALSE(wire::decodeReply(hex({"a1", kId, "01"})));
    EXPECT_FALSE(wire::decodeReply(hex({"a2", kId, "01", kParameter, "a0"})));
    EXPECT_FALSE(wire::decodeReply(hex({"a3", kId, "01", kReplyKey, "a0", kCode, "01"})));
    EXPECT_FALSE(wire::decodeReply(hex({"a2", kId, "01", kReplyKey, "a1", kA, "f4"})));
}

TEST(FrameReader, ReassemblesFramesFedByteByByte) {
    const QByteArray stream =
        wire::encodeRequest({1, 7, {}}) + wire::encodeRequest({2, 3, {{u"bsdName"_s, u"sdb1"_s}}});
    wire::FrameReader reader;
    QList<QByteArray> bodies;
    for (char byte : stream) {
        reader.append(QByteArrayView(&byte, 1));
        QByteArray body;
        while (reader.next(&body) == wire::FrameReader::Status::Frame)
            bodies.append(body);
    }
    ASSERT_EQ(bodies.size(), 2);
    EXPECT_EQ(wire::decodeRequest(bodies[0])->code, 7u);
    EXPECT_EQ(wire::decodeRequest(bodies[1])->parameter.value(u"bsdName"_s), u"sdb1"_s);
    EXPECT_EQ(reader.pending(), 0);
}

TEST(FrameReader, SplitsSeveralFramesFromOneRead) {
    wire::FrameReader reader;
    const QByteArray first = wire::encodeReply({1, {}});
    const QByteArray second = wire::encodeReply({2, {}});
    reader.append(QByteArray(first + second + second.left(3)));
    QByteArray body;
    ASSERT_EQ(reader.next(&body), wire::FrameReader::Status::Frame);
    EXPECT_EQ(body, bodyOf(first));
    ASSERT_EQ(reader.next(&body), wire::FrameReader::Status::Frame);
    EXPECT_EQ(body, bodyOf(second));
    EXPECT_EQ(reader.next(&body), wire::FrameReader::Status::NeedMore);
    reader.append(second.mid(3));
    ASSERT_EQ(reader.next(&body), wire::FrameReader::Status::Frame);
    EXPECT_EQ(wire::decodeReply(body)->id, 2u);
}

TEST(FrameReader, LengthPrefixAtTheLimitWaitsForTheBody) {
    wire::FrameReader reader;
    reader.append(QByteArray::fromHex("00010000"));
    QByteArray body;
    EXPECT_EQ(reader.next(&body), wire::FrameReader::Status::NeedMore);
    reader.append(QByteArray(wire::kMaxMessageSize, 'x'));
    EXPECT_EQ(reader.next(&body), wire::FrameReader::Status::Frame);
    EXPECT_EQ(body.size(), wire::kMaxMessageSize);
}

TEST(FrameReader, OversizePrefixIsAnErrorThatStays) {
    for (const char *prefix : {"00010001", "ffffffff", "80000000"}) {
        wire::FrameReader reader;
        reader.append(QByteArray(QByteArray::fromHex(prefix) + QByteArray(16, 'x')));
        QByteArray body;
        EXPECT_EQ(reader.next(&body), wire::FrameReader::Status::Error) << prefix;
        reader.append(wire::encodeReply({1, {}}));
        EXPECT_EQ(reader.next(&body), wire::FrameReader::Status::Error) << prefix;
    }
}

TEST(FrameReader, ZeroLengthFrameIsHandedOutAndFailsToDecode) {
    wire::FrameReader reader;
    reader.append(QByteArray(4, '\0'));
    QByteArray body("stale");
    ASSERT_EQ(reader.next(&body), wire::FrameReader::Status::Frame);
    EXPECT_TRUE(body.isEmpty());
    EXPECT_EQ(wire::decodeReply(body), std::nullopt);
}

} // namespace
