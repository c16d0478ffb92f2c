#pragma once

#include <QByteArray>
#include <QList>
#include <QtEndian>

#include <cmath>

// 16-bit little-endian mono PCM for the voice tests: a tone, its level, and how much of a
// signal lies at one frequency.
namespace pcm {

// samples of a sine of amplitude amp at hz, sample rate rate, starting at sample start.
inline QByteArray tone(int samples, double hz, double amp = 8000, int rate = 8000, qint64 start = 0)
{
    QByteArray out(samples * 2, '\0');
    for (int i = 0; i < samples; ++i)
        qToLittleEndian<qint16>(qint16(amp * std::sin(2 * M_PI * hz * double(start + i) / rate)), out.data() + 2 * i);
    return out;
}

inline qint16 at(const QByteArray& pcm, qsizetype i)
{
    return qFromLittleEndian<qint16>(pcm.constData() + 2 * i);
}

inline double rms(const QByteArray& pcm)
{
    double sum = 0;
    const qsizetype n = pcm.size() / 2;
    for (qsizetype i = 0; i < n; ++i)
        sum += double(at(pcm, i)) * at(pcm, i);
    return n ? std::sqrt(sum / double(n)) : 0;
}

// Share of the energy of 8 kHz frames that lies at hz, phase-independent: 1 for a pure tone.
inline double toneShare(const QList<QByteArray>& frames, double hz)
{
    double corr = 0, energy = 0;
    qint64 t = 0;
    for (const QByteArray& f : frames) {
        double c = 0, q = 0;
        for (qsizetype i = 0; i < f.size() / 2; ++i, ++t) {
            c += at(f, i) * std::cos(2 * M_PI * hz * double(t) / 8000.0);
            q += at(f, i) * std::sin(2 * M_PI * hz * double(t) / 8000.0);
            energy += double(at(f, i)) * at(f, i);
        }
        corr += (c * c + q * q) / (double(f.size()) / 4.0);
    }
    return energy > 0 ? corr / energy : 0;
}

} // namespace pcm
