// Any datagram as reflector audio, version 2 in clear and version 3 sealed: opening,
// message parsing, Opus decoding and the conversion to 8 kHz never crash.
#include "svx/SvxAudio.h"
#include "svx/SvxUdpCipher.h"
#include "svx/SvxWire.h"

#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    using namespace zl::svx;
    static OpusDecoderPtr decoder = makeOpusDecoder();
    static const SvxUdpCipher cipher = [] {
        SvxUdpCipher c;
        c.setKey(QByteArray(16, 'k'), QByteArray(6, 'r'));
        return c;
    }();
    const QByteArray datagram(reinterpret_cast<const char*>(data), qsizetype(size));

    (void)decodeTo8k(decoder.get(), audioOfV2Datagram(datagram));
    (void)cipher.open(datagram);

    // The same bytes sealed as the reflector would, so the opened path sees them too.
    const QByteArray counter = WireWriter().u32(quint32(size)).data();
    QByteArray tag;
    const QByteArray body =
        gcmSeal(cipher.keyBytes(), cipher.ivRandBytes() + QByteArray(2, 0) + counter, counter, datagram, tag);
    const std::optional<QByteArray> inner = cipher.open(counter + tag + body);
    if (!inner || *inner != datagram)
        __builtin_trap();
    (void)decodeTo8k(decoder.get(), audioOfV3Message(*inner));
    return 0;
}
