// Any datagram as a received M17 stream frame: parsing and decoding never crash.
#include "m17/M17Callsign.h"
#include "m17/M17StreamFrame.h"
#include "m17/M17Voice.h"

#include <QCoreApplication>

#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static zl::m17::M17Voice voice;
    const QByteArray datagram(reinterpret_cast<const char*>(data), qsizetype(size));
    // Short inputs are stretched to a frame too, so the decoder sees arbitrary contents.
    QByteArray frame = QByteArray("M17 ") + datagram;
    frame.resize(zl::m17::frame::kSize);
    for (const QByteArray& d : {datagram, frame}) {
        voice.onVoiceFrame(d);
        (void)zl::m17::decodeCallsign(zl::m17::addressAt(d, zl::m17::frame::kSource));
        if (zl::m17::isStreamFrame(d))
            (void)zl::m17::sourceOf(d);
    }
    return 0;
}
