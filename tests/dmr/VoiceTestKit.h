#pragma once

// Helpers shared by the DMR voice and peer tests: calls into objects on the vocoder thread,
// hand-built DMRD frames and simulated AMBE chips.
#include "AmbeChips.h"
#include "LogCapture.h"
#include "app/ThreadHandOff.h"
#include "dmr/AmbeBurst.h"
#include "dmr/DmrPeerClient.h"

#include <QMetaObject>
#include <QtEndian>

namespace kit {

// Runs f on the thread of obj and waits for it.
template <typename F>
void onWorker(QObject* obj, F f)
{
    zl::handOff();
    QMetaObject::invokeMethod(
        obj,
        [&f] {
            f();
            zl::handOff();
        },
        Qt::BlockingQueuedConnection);
    zl::takeOver();
}

// Deletes an object of the vocoder thread on that thread and waits until it is gone.
inline void deleteOnWorker(QObject* obj)
{
    onWorker(obj, [obj] { delete obj; });
}

inline QByteArray be32(quint32 v)
{
    char b[4];
    qToBigEndian(v, b);
    return QByteArray(b, 4);
}

// A DMRD datagram of `size` bytes as a master sends it.
inline QByteArray dmrd(quint8 seq, quint32 src, quint32 dst, quint8 flags, quint32 stream, const QByteArray& burst,
                       int size = 55)
{
    QByteArray d("DMRD");
    d.append(char(seq));
    d.append(be32(src).mid(1));
    d.append(be32(dst).mid(1));
    d.append(be32(1234567));
    d.append(char(flags));
    d.append(be32(stream));
    d.append(burst.leftJustified(33, '\0', true));
    d.append(2, '\0');
    d.resize(size);
    return d;
}

// A client profile for a loopback master.
inline zl::dmr::DmrPeerClient::Profile profile(const QString& label, quint16 port, quint32 peerId,
                                               const QString& password)
{
    zl::dmr::DmrPeerClient::Profile p;
    p.label = label;
    p.networkName = label;
    p.host = QStringLiteral("127.0.0.1");
    p.port = port;
    p.peerId = peerId;
    p.callsign = QStringLiteral("XX0ABC");
    p.password = password;
    return p;
}

// A voice burst whose three frames the simulated chip decodes to a sine of this level and pitch.
inline QByteArray toneBurst(int level, int frequency)
{
    QByteArray frames;
    for (int i = 0; i < 3; ++i) {
        const QByteArray pcm = SimulatedAmbeChip::sine(level, frequency);
        frames += SimulatedAmbeChip::encodeFrame(reinterpret_cast<const qint16*>(pcm.constData()));
    }
    QByteArray burst(33, '\0');
    const auto* f = reinterpret_cast<const uint8_t*>(frames.constData());
    zl::dmr::insertAmbe(f, f + 9, f + 18, nullptr, reinterpret_cast<uint8_t*>(burst.data()));
    return burst;
}

// The dominant pitch of each of the three frames of a burst, as the simulated chip hears them.
inline QList<int> burstPitches(const QByteArray& burst33)
{
    uint8_t frames[27];
    zl::dmr::extractAmbe(reinterpret_cast<const uint8_t*>(burst33.constData()), frames);
    QList<int> out;
    for (int i = 0; i < 3; ++i) {
        const QByteArray pcm = SimulatedAmbeChip::decodeFrame(QByteArray(reinterpret_cast<char*>(frames) + 9 * i, 9));
        out.append(SimulatedAmbeChip::analyse(pcm).frequency);
    }
    return out;
}

// The chips of the DMR suites, lent by the application's pool.
class ChipFarm : public AmbeChips {
public:
    static zl::hw::Dv3000Pool* pool() { return zl::hw::Dv3000Pool::instance(); }
    static QThread* worker() { return pool()->workerThread(); }
};

} // namespace kit
