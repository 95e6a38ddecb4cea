#include "helperclient/wire/WireCodec.h"

#include <cstdint>
#include <cstdlib>

// Anything the decoder accepts must survive a round trip unchanged. Replies are compared as
// frames, since a NaN value never equals itself.
static void checkRoundTrip(QByteArrayView body) {
    const auto request = wire::decodeRequest(body);
    if (request && wire::decodeRequest(wire::encodeRequest(*request).mid(4)) != request)
        std::abort();
    const auto reply = wire::decodeReply(body);
    if (!reply)
        return;
    // Values may grow when written again (a half-precision number comes back as a double).
    const QByteArray frame = wire::encodeReply(*reply);
    if (frame.isEmpty())
        return;
    const auto again = wire::decodeReply(QByteArrayView(frame).sliced(4));
    if (!again || wire::encodeReply(*again) != frame)
        std::abort();
}

// The input is tried as one body and as a byte stream cut in two at a point the first byte picks.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const QByteArrayView bytes(data, qsizetype(size));
    checkRoundTrip(bytes);
    wire::FrameReader reader;
    const qsizetype cut = bytes.isEmpty() ? 0 : qsizetype(data[0]) % (bytes.size() + 1);
    QByteArray body;
    for (QByteArrayView part : {bytes.first(cut), bytes.sliced(cut)}) {
        reader.append(part);
        while (reader.next(&body) == wire::FrameReader::Status::Frame) {
            if (body.size() > wire::kMaxMessageSize)
                std::abort();
            checkRoundTrip(body);
        }
    }
    return 0;
}
