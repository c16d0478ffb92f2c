#pragma once

#include <QAudioFormat>
#include <QByteArray>
#include <QtGlobal>

// Sample-level helpers of the mixer on 16-bit PCM: gain, peaks, meters and the
// conversion of 8 kHz mono speech into whatever the sound device plays.
namespace zl::audio {

inline qint16 clamp16(float v)
{
    return v >= 32767.0f ? qint16(32767) : v <= -32768.0f ? qint16(-32768) : qint16(v);
}

// Multiplies every sample, saturating at the 16-bit range.
void applyGain(qint16* samples, qsizetype count, float gain);

// Largest absolute sample value (32768 for -32768).
int peakOf(const qint16* samples, qsizetype count);

// Level in percent of full scale, falling by at most 4 points per call from the last shown value.
int meterPercent(int peak, int previousPct);

// Upsampling factor from 8 kHz: rate / 8000 in whole numbers for 16 kHz and above, 1 below
// (such a device plays speech at the wrong speed).
int upsampleFactor(int sampleRate);

// Converts count samples of 8 kHz mono into format: each sample times gain and clamped, then
// linear steps towards the next sample (the last sample is held), copied to every channel.
// out is resized to the result; its capacity is reused, so a steady stream allocates nothing.
void convertToSink(const qint16* samples, qsizetype count, float gain, const QAudioFormat& format, QByteArray& out);

// A block of random samples evenly spread over -16..16: what a muted microphone sends, so
// that the far end hears a live channel rather than digital silence.
QByteArray comfortNoise(qsizetype bytes);

} // namespace zl::audio
