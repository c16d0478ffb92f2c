#include "svx/SvxAudio.h"

#include "svx/SvxWire.h"

#include <QtEndian>

#include <opus.h>

#include <algorithm>

namespace zl::svx {

void OpusEncoderFree::operator()(OpusEncoder* e) const
{
    opus_encoder_destroy(e);
}

void OpusDecoderFree::operator()(OpusDecoder* d) const
{
    opus_decoder_destroy(d);
}

OpusEncoderPtr makeOpusEncoder()
{
    int err = OPUS_OK;
    OpusEncoderPtr enc(opus_encoder_create(kOpusRate, 1, OPUS_APPLICATION_VOIP, &err));
    if (err != OPUS_OK)
        return nullptr;
    opus_encoder_ctl(enc.get(), OPUS_SET_BITRATE(16000));
    opus_encoder_ctl(enc.get(), OPUS_SET_COMPLEXITY(5));
    opus_encoder_ctl(enc.get(), OPUS_SET_SIGNAL(OPUS_SIGNAL_VOICE));
    opus_encoder_ctl(enc.get(), OPUS_SET_INBAND_FEC(1));
    opus_encoder_ctl(enc.get(), OPUS_SET_PACKET_LOSS_PERC(10));
    return enc;
}

OpusDecoderPtr makeOpusDecoder()
{
    int err = OPUS_OK;
    OpusDecoderPtr dec(opus_decoder_create(kOpusRate, 1, &err));
    if (err != OPUS_OK)
        return nullptr;
    return dec;
}

QByteArray downsampleTo8k(const qint16* in, int count)
{
    const int n = count / 2;
    QByteArray out(n * 2, Qt::Uninitialized);
    auto* o = reinterpret_cast<qint16*>(out.data());
    for (int i = 0; i < n; ++i)
        o[i] = qint16((int(in[2 * i]) + int(in[2 * i + 1])) / 2);
    return out;
}

QByteArray upsampleTo16k(const QByteArray& pcm8k, qint16& prev)
{
    const int n = int(pcm8k.size() / 2);
    QByteArray out(n * 4, Qt::Uninitialized);
    auto* o = reinterpret_cast<qint16*>(out.data());
    for (int i = 0; i < n; ++i) {
        qint16 x;
        memcpy(&x, pcm8k.constData() + 2 * i, 2);
        o[2 * i] = qint16((int(prev) + int(x)) / 2);
        o[2 * i + 1] = x;
        prev = x;
    }
    return out;
}

QByteArray decodeTo8k(OpusDecoder* decoder, const QByteArray& packet, int* decoded16k)
{
    qint16 pcm[kOpusDecodeCapacity];
    const int n = opus_decode(decoder, reinterpret_cast<const unsigned char*>(packet.constData()),
                              opus_int32(packet.size()), pcm, kOpusDecodeCapacity, 0);
    if (decoded16k)
        *decoded16k = n;
    if (n < 2)
        return {};
    return downsampleTo8k(pcm, n);
}

QByteArray encodeFrame16k(OpusEncoder* encoder, const qint16* pcm16k)
{
    unsigned char packet[kOpusMaxPacket];
    const int n = opus_encode(encoder, pcm16k, kOpusFrameSamples, packet, kOpusMaxPacket);
    if (n < 1)
        return {};
    return QByteArray(reinterpret_cast<const char*>(packet), n);
}

namespace {

QByteArray audioAt(const QByteArray& data, int typeOffset, int lengthOffset)
{
    if (data.size() < lengthOffset + 2 || qFromBigEndian<quint16>(data.constData() + typeOffset) != udp::Audio)
        return {};
    const qsizetype declared = qFromBigEndian<quint16>(data.constData() + lengthOffset);
    return data.mid(lengthOffset + 2, std::min(declared, data.size() - lengthOffset - 2));
}

} // namespace

QByteArray audioOfV2Datagram(const QByteArray& datagram)
{
    return audioAt(datagram, 0, 6);
}

QByteArray audioOfV3Message(const QByteArray& inner)
{
    return audioAt(inner, 0, 2);
}

QByteArray encodeUdpV2(quint16 type, quint16 clientId, quint16 seq, const QByteArray& payload)
{
    return WireWriter().u16(type).u16(clientId).u16(seq).data() + payload;
}

QByteArray audioPayload(const QByteArray& packet)
{
    return WireWriter().bytes(packet).data();
}

} // namespace zl::svx
