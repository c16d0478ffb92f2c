#include "PcmDsp.h"

#include <QRandomGenerator>

#include <cstring>

namespace zl::audio {

namespace {

// Writes one 16-bit value as one sample of the device's format to every channel of a frame.
template <typename Sample, typename Convert>
char* fillFrame(char* out, int channels, qint16 value, Convert convert)
{
    const Sample sample = convert(value);
    for (int c = 0; c < channels; ++c) {
        std::memcpy(out, &sample, sizeof sample);
        out += sizeof sample;
    }
    return out;
}

template <typename Sample, typename Convert>
void upsample(const qint16* in, qsizetype count, float gain, int factor, int channels, char* out, Convert convert)
{
    if (count == 0)
        return;
    int s = clamp16(float(in[0]) * gain);
    for (qsizetype i = 0; i < count; ++i) {
        const int n = i + 1 < count ? clamp16(float(in[i + 1]) * gain) : s;
        for (int k = 0; k < factor; ++k)
            out = fillFrame<Sample>(out, channels, qint16((s * factor + k * (n - s)) / factor), convert);
        s = n;
    }
}

} // namespace

void applyGain(qint16* samples, qsizetype count, float gain)
{
    for (qsizetype i = 0; i < count; ++i)
        samples[i] = clamp16(float(samples[i]) * gain);
}

int peakOf(const qint16* samples, qsizetype count)
{
    int peak = 0;
    for (qsizetype i = 0; i < count; ++i)
        peak = qMax(peak, qAbs(int(samples[i])));
    return peak;
}

int meterPercent(int peak, int previousPct)
{
    const int pct = qMin(peak, 32767) * 100 / 32767;
    return pct < previousPct ? qMax(previousPct - 4, 0) : pct;
}

int upsampleFactor(int sampleRate)
{
    return sampleRate >= 16000 ? sampleRate / 8000 : 1;
}

void convertToSink(const qint16* samples, qsizetype count, float gain, const QAudioFormat& format, QByteArray& out)
{
    const int factor = upsampleFactor(format.sampleRate());
    const int channels = qMax(1, format.channelCount());
    // A format without a known sample type is written as 16-bit.
    const QAudioFormat::SampleFormat type = format.sampleFormat();
    const int bytesPerSample = type == QAudioFormat::UInt8                                  ? 1
                               : type == QAudioFormat::Int32 || type == QAudioFormat::Float ? 4
                                                                                            : 2;
    out.resize(count * factor * channels * bytesPerSample);
    char* dst = out.data();
    switch (type) {
    case QAudioFormat::UInt8:
        upsample<quint8>(samples, count, gain, factor, channels, dst, [](qint16 v) { return quint8((v >> 8) + 128); });
        break;
    case QAudioFormat::Int32:
        upsample<qint32>(samples, count, gain, factor, channels, dst, [](qint16 v) { return qint32(v) * 65536; });
        break;
    case QAudioFormat::Float:
        upsample<float>(samples, count, gain, factor, channels, dst, [](qint16 v) { return float(v) / 32768.0f; });
        break;
    default:
        upsample<qint16>(samples, count, gain, factor, channels, dst, [](qint16 v) { return v; });
        break;
    }
}

QByteArray comfortNoise(qsizetype bytes)
{
    QByteArray block(bytes, Qt::Uninitialized);
    auto* samples = reinterpret_cast<qint16*>(block.data());
    for (qsizetype i = 0; i < bytes / 2; ++i)
        samples[i] = qint16(QRandomGenerator::global()->bounded(-16, 17));
    if (bytes % 2)
        block[bytes - 1] = 0;
    return block;
}

} // namespace zl::audio
