#include "helperclient/wire/WireCodec.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>

namespace {

// Anything the decoder accepts must survive a round trip unchanged.
void checkRoundTrip(QByteArrayView body) {
    if (const auto request = wire::decodeRequest(body)) {
        const QByteArray frame = wire::encodeRequest(*request);
        if (frame.isEmpty() || wire::decodeRequest(QByteArrayView(frame).sliced(4)) != request)
            std::abort();
    }
    if (const auto reply = wire::decodeReply(body)) {
        const QByteArray frame = wire::encodeReply(*reply);
        if (frame.isEmpty() || wire::decodeReply(QByteArrayView(frame).sliced(4)) != reply)
            std::abort();
    }
}

} // namespace

// The input is tried as one body and as a byte stream cut in two at a point the first byte picks.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const QByteArrayView bytes(data, qsizetype(size));
    checkRoundTrip(bytes);

    wire::FrameReader reader;
    const qsizetype cut = bytes.isEmpty() ? 0 : qsizetype(data[0]) % (bytes.size() + 1);
    reader.append(bytes.first(cut));
    for (QByteArrayView part : {bytes.sliced(cut), QByteArrayView()}) {
        QByteArray body;
        wire::FrameReader::Status status;
        while ((status = reader.next(&body)) == wire::FrameReader::Status::Frame) {
            if (body.size() > wire::kMaxMessageSize)
                std::abort();
            checkRoundTrip(body);
        }
        if (status == wire::FrameReader::Status::Error)
            break;
        reader.append(part);
    }
    return 0;
}
