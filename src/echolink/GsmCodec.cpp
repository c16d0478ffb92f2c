#include "GsmCodec.h"

#include <gsm.h>

#include <QtEndian>

#include <array>

namespace zl::echolink {

GsmCodec::GsmCodec() : encoder(gsm_create()), decoder(gsm_create())
{
}

GsmCodec::~GsmCodec()
{
    gsm_destroy(encoder);
    gsm_destroy(decoder);
}

QByteArray GsmCodec::encode(const QByteArray& pcm)
{
    std::array<gsm_signal, kFrameSamples> samples{};
    const qsizetype count = qMin<qsizetype>(pcm.size() / 2, kFrameSamples);
    for (qsizetype i = 0; i < count; ++i)
        samples[size_t(i)] = qFromLittleEndian<qint16>(pcm.constData() + 2 * i);
    QByteArray frame(kFrameBytes, '\0');
    gsm_encode(encoder, samples.data(), reinterpret_cast<gsm_byte*>(frame.data()));
    return frame;
}

QByteArray GsmCodec::decode(const QByteArray& frame)
{
    std::array<gsm_signal, kFrameSamples> samples{};
    QByteArray bytes = frame.left(kFrameBytes);
    bytes.resize(kFrameBytes, '\0');
    if (gsm_decode(decoder, reinterpret_cast<gsm_byte*>(bytes.data()), samples.data()) != 0)
        samples.fill(0);
    QByteArray pcm(kPcmBytes, '\0');
    for (int i = 0; i < kFrameSamples; ++i)
        qToLittleEndian<qint16>(samples[size_t(i)], pcm.data() + 2 * i);
    return pcm;
}

} // namespace zl::echolink
